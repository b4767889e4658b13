#pragma once
// Onboarding's third step: the minimum idle time, AC power, and when Corvane may run (a preset,
// or custom start and end times).

#include <QWidget>

#include <functional>
#include <vector>

#include "CorvaneApp/dashboard/OnboardingPageState.h"

class QButtonGroup;
class QCheckBox;
class QLabel;
class QRadioButton;
class QSpinBox;
class QTimeEdit;

namespace corvane {

struct ConfigureStepActions {
    std::function<void(int)> onIdleMinutes;
    std::function<void(bool)> onRequireACPower;
    std::function<void(OnboardingSchedulePreset)> onPreset;
    std::function<void(ClockTime)> onStart;
    std::function<void(ClockTime)> onEnd;
};

class ConfigureStepView final : public QWidget {
  public:
    explicit ConfigureStepView(ConfigureStepActions actions, QWidget* parent = nullptr);
    void render(const OnboardingConfigureState& state);

  private:
    struct PresetRow {
        OnboardingSchedulePreset preset;
        QRadioButton* button;
        QLabel* detail;
    };

    ConfigureStepActions actions_;
    QLabel* title_;
    QLabel* body_;
    QLabel* idleLabel_;
    QSpinBox* idle_;
    QCheckBox* ac_;
    QLabel* acDetail_;
    QLabel* scheduleHeading_;
    QLabel* scheduleBody_;
    std::vector<PresetRow> presets_;
    QLabel* startLabel_;
    QTimeEdit* start_;
    QLabel* endLabel_;
    QTimeEdit* end_;
};

}  // namespace corvane
