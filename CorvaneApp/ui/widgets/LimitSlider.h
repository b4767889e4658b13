#pragma once
// One limit of the schedule page: its label and value, a slider over its range with a mark at
// the recommended value, and the hint that says what the value means. Moving the slider reports
// each new value; rendering never does.

#include <QWidget>

#include <functional>
#include <optional>

#include "CorvaneApp/dashboard/SchedulePageState.h"

class QLabel;
class QSlider;

namespace corvane {

class LimitSlider final : public QWidget {
  public:
    LimitSlider(std::function<void(int)> onChange, QWidget* parent = nullptr);
    void render(const LimitSliderState& state);
    QSlider& slider() { return *slider_; }

  private:
    std::function<void(int)> onChange_;
    QLabel* label_;
    QLabel* value_;
    QSlider* slider_;
    QLabel* recommended_;
    QLabel* hint_;
    std::optional<LimitSliderState> shown_;
};

}  // namespace corvane
