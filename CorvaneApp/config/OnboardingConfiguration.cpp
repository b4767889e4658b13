#include "CorvaneApp/config/OnboardingConfiguration.h"

namespace corvane {

std::string_view rawValue(OnboardingSchedulePreset preset) {
    switch (preset) {
        case OnboardingSchedulePreset::alwaysOn:
            return "alwaysOn";
        case OnboardingSchedulePreset::businessHours:
            return "businessHours";
        case OnboardingSchedulePreset::custom:
            return "custom";
    }
    return "custom";
}

std::optional<OnboardingSchedulePreset> onboardingSchedulePresetFromRaw(std::string_view raw) {
    for (auto preset : {OnboardingSchedulePreset::alwaysOn, OnboardingSchedulePreset::businessHours,
                        OnboardingSchedulePreset::custom}) {
        if (rawValue(preset) == raw) return preset;
    }
    return std::nullopt;
}

}  // namespace corvane
