#pragma once
// The earnings page: the range control (remembered, one refresh per change), today, the range's
// total, the pace and the notes that tell actuals from estimates, the area chart with its time
// axis, the hour bars, the month's projection, the week's best jobs, and the CSV export of the
// chart's days from the header.

#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/dashboard/EarningsPageState.h"
#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QFrame;
class QGridLayout;
class QLabel;
class QProgressBar;
class QPushButton;

namespace corvane {

class ChartView;
class MetricCard;
class SegmentedControl;

class EarningsPage final : public DashboardPage {
  public:
    // Asks where to save, offering the suggested file name; absent when the owner cancels.
    using SavePathPicker = std::function<std::optional<std::string>(const std::string& suggested)>;

    EarningsPage(PageContext& context, QWidget* parent = nullptr);
    ModelParts observedParts() const override;
    void refresh() override;
    // The remembered range comes into force (its refresh starts) when the page is first shown.
    void shown() override;
    void prepareScene(std::string_view sceneID) override;

    // The save dialog by default; tests put their own.
    void setSavePathPicker(SavePathPicker picker) { pickSavePath_ = std::move(picker); }
    // The range control's choice, as a click makes it.
    void selectRange(std::size_t index);
    void exportCSV();
    ChartView& areaChart() { return *area_; }
    ChartView& hourBars() { return *hours_; }

  private:
    void render(const EarningsPageState& state);
    void renderJobs(const EarningsPageState& state);
    std::string locale() const;

    PageContext& context_;
    EarningsRangeSelection selection_;
    SavePathPicker pickSavePath_;
    SegmentedControl* ranges_;
    QPushButton* export_;
    QLabel* loading_;
    QLabel* exportOutcome_;
    MetricCard* today_;
    MetricCard* range_;
    MetricCard* pace_;
    MetricCard* month_;
    QProgressBar* monthBar_;
    QLabel* projectionNote_;
    QLabel* lagNote_;
    ChartView* area_;
    ChartView* hours_;
    QLabel* jobsTitle_;
    QLabel* jobsCaption_;
    QLabel* jobsEmpty_;
    QGridLayout* jobsGrid_;
    std::optional<EarningsPageState> shown_;
};

}  // namespace corvane
