#pragma once
// A chart of the dashboard: its title and subtitle, and one chart drawn from a ChartState (areas,
// stacked areas or bars, the labelled time axis, the value axis, the point of now). The chart is
// built again only when its state changes, or when the palette does.

#include <QWidget>

#include <optional>

#include "CorvaneApp/dashboard/ChartState.h"

class QChartView;
class QLabel;

namespace corvane {

class ChartView final : public QWidget {
  public:
    explicit ChartView(QWidget* parent = nullptr);
    ~ChartView() override;
    void render(const ChartState& state);
    // How often a chart was built; a render with nothing new builds none.
    int rebuildCount() const { return rebuilds_; }

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void rebuild(const ChartState& state);

    QLabel* title_;
    QLabel* subtitle_;
    QChartView* view_;
    std::optional<ChartState> shown_;
    int rebuilds_ = 0;
};

}  // namespace corvane
