#pragma once
// The choices the owner makes at enrolment, written once into a new config.yaml.

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/platform/Clock.h"

namespace corvane {

enum class OnboardingSchedulePreset { alwaysOn, businessHours, custom };

std::string_view rawValue(OnboardingSchedulePreset preset);
std::optional<OnboardingSchedulePreset> onboardingSchedulePresetFromRaw(std::string_view raw);

struct OnboardingConfiguration {
    struct Schedule {
        bool enabled = false;
        Date startTime;
        Date endTime;
    };

    int minIdleMinutes = 3;
    bool requireACPower = true;
    OnboardingSchedulePreset preset = OnboardingSchedulePreset::alwaysOn;
    Schedule schedule;
};

}  // namespace corvane
