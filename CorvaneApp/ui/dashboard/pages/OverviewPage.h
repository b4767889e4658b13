#pragma once
// The overview: the hero with today's earnings and the status, the balance card, the memory and
// CPU charts of the last hour, and the card of a model download on its way or failed (with its
// retry).

#include <optional>

#include "CorvaneApp/dashboard/OverviewPageState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QFrame;
class QLabel;
class QProgressBar;
class QPushButton;

namespace corvane {

class ChartView;
class MetricCard;
class StatusBlock;

class OverviewPage final : public DashboardPage {
  public:
    OverviewPage(PageContext& context, QWidget* parent = nullptr);
    ModelParts observedParts() const override;
    void refresh() override;
    void render(const OverviewPageState& state);
    ChartView& memoryChart() { return *memory_; }
    ChartView& cpuChart() { return *cpu_; }

  private:
    PageContext& context_;
    StatusBlock* status_;
    QLabel* explanation_;
    QLabel* todayTitle_;
    QLabel* today_;
    QLabel* todayDelta_;
    QLabel* pace_;
    QLabel* activity_;
    MetricCard* available_;
    MetricCard* held_;
    MetricCard* week_;
    QFrame* downloadCard_;
    QLabel* downloadTitle_;
    QLabel* downloadBody_;
    QProgressBar* downloadBar_;
    QLabel* downloadDetail_;
    QPushButton* retry_;
    ChartView* memory_;
    ChartView* cpu_;
    std::optional<OverviewPageState> shown_;
};

}  // namespace corvane
