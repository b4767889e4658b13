#pragma once
// Schedule & limits: when Corvane may run and how hard. The head estimates what the limits earn;
// two tabs hold the away and in-use limits; the heatmap marks the quiet hours, with suggestions
// from the owner's own activity; a table shows what other settings would earn. Every change goes
// to the settings store (which saves by line, half a second after the last change), and the page
// follows the store, so a config.yaml edited by hand shows here at once.

#include <array>
#include <memory>
#include <optional>

#include "CorvaneApp/dashboard/ScheduleActivityHistoryStore.h"
#include "CorvaneApp/dashboard/ScheduleGridEditor.h"
#include "CorvaneApp/dashboard/SchedulePageState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QCheckBox;
class QGridLayout;
class QLabel;
class QPushButton;
class QScrollArea;

namespace corvane {

class LimitSlider;
class ScheduleHeatmap;
class SegmentedControl;

class SchedulePage final : public DashboardPage {
  public:
    static constexpr int historyDays = 30;

    explicit SchedulePage(PageContext& context, QWidget* parent = nullptr);
    ~SchedulePage() override;

    ModelParts observedParts() const override { return {ModelPart::machine}; }
    void refresh() override;
    // Loads the owner's activity for the suggestions.
    void shown() override;
    void prepareScene(std::string_view sceneID) override;

    ScheduleHeatmap& heatmap() { return *heatmap_; }
    const ScheduleGridEditor& editor() const { return editor_; }
    const ScheduleActivityHistoryStore& history() const { return history_; }

  private:
    void selectTab(SchedulePageTab tab);
    void change(ScheduleSetting setting, int value);
    void paintCell(HeatmapCell cell);
    void finishPaint();
    void toggleCell(HeatmapCell cell);
    void applySuggestions();
    void render(const SchedulePageState& state);

    PageContext& context_;
    ScheduleGridEditor editor_;
    ScheduleActivityHistoryStore history_;
    SchedulePageTab tab_;
    Subscription storeSubscription_;
    Subscription historySubscription_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    QLabel* estimate_;
    QLabel* estimateTitle_;
    QLabel* estimateBasis_;
    std::array<QLabel*, 3> awayRate_{};   // rate, title, line
    std::array<QLabel*, 3> inUseRate_{};  // rate, title, line
    SegmentedControl* tabs_;
    std::array<QWidget*, 2> tabPages_;  // away, in use: only the chosen one is shown
    QLabel* awayHeading_;
    QLabel* awayLine_;
    LimitSlider* idle_;
    std::array<QCheckBox*, 2> toggles_{};
    std::array<QLabel*, 2> toggleDetails_{};
    QLabel* awayLimitsHeading_;
    QLabel* awayLimitsLine_;
    LimitSlider* awayCpu_;
    LimitSlider* awayRam_;
    QLabel* inUseHeading_;
    QLabel* inUseLine_;
    LimitSlider* inUseCpu_;
    LimitSlider* inUseRam_;
    QLabel* quietTitle_;
    QLabel* quietLine_;
    QScrollArea* scroll_;
    QWidget* quietCard_;  // the heatmap's card, where a scene of the suggestions scrolls to
    ScheduleHeatmap* heatmap_;
    std::array<QLabel*, 3> legend_{};
    QLabel* banner_;
    QPushButton* apply_;
    QLabel* scenarioTitle_;
    QGridLayout* scenarioGrid_;
    std::vector<std::array<QLabel*, 4>> scenarioCells_;
    std::optional<SchedulePageState> shown_;
};

}  // namespace corvane
