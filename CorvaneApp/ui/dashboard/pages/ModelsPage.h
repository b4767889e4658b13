#pragma once
// Models: what this computer serves and how much disk that takes. The disk bar and its legend,
// the filter, the transcription rows (Whisper and Parakeet) with their install, retry and
// remove, the closed categories, who picks the models, and the budget card. Install, remove and
// retry go to the application through the model's requests; the page's choices are stored in the
// user's defaults. The volume is measured off the Qt thread.

#include <array>
#include <optional>
#include <vector>

#include "CorvaneApp/dashboard/ModelsPageState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QRadioButton;
class QSlider;
class QVBoxLayout;

namespace corvane {

class DiskAllocationBarView;
class ModelRowView;
class SegmentedControl;

class ModelsPage final : public DashboardPage {
  public:
    explicit ModelsPage(PageContext& context, QWidget* parent = nullptr);

    ModelParts observedParts() const override { return {ModelPart::models}; }
    void refresh() override;
    // Measures the volume again: weights may have come or gone since.
    void shown() override;

    ModelRowView* row(std::string_view rowID);

  private:
    struct CategoryView {
        QLabel* name = nullptr;
        QCheckBox* allow = nullptr;
        QLabel* line = nullptr;
        QLabel* paused = nullptr;
        QLabel* usage = nullptr;
        QVBoxLayout* rows = nullptr;
        std::vector<ModelRowView*> rowViews;
    };

    void act(const ModelsPageRow& row, ModelsPageRow::Action action);
    void render(const ModelsPageState& state);
    void renderRows(CategoryView& view, const std::vector<ModelsPageRow>& rows);

    PageContext& context_;
    ModelsPageFilter filter_ = ModelsPageFilter::all;
    std::optional<ModelRemoval> lastRemoval_;

    QLabel* diskTitle_;
    DiskAllocationBarView* diskBar_;
    std::array<QLabel*, 3> diskLegend_{};
    QLabel* removal_;
    SegmentedControl* filters_;
    QLabel* empty_;
    std::vector<CategoryView> categories_;
    QLabel* modeQuestion_;
    std::array<QRadioButton*, 2> modes_{};
    std::array<QLabel*, 2> modeLines_{};
    QLabel* modeLine_;
    QLabel* budgetTitle_;
    QLabel* budgetText_;
    QSlider* budget_;
    QLabel* budgetValue_;
    QLabel* freeText_;
    QLabel* purgeTitle_;
    QComboBox* purge_;
    QLabel* purgeText_;
    QLabel* integrityTitle_;
    QLabel* integrityText_;
    std::optional<ModelsPageState> shown_;
};

}  // namespace corvane
