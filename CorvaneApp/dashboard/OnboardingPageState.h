#pragma once
// The onboarding window as words and values: the four steps, their texts (with this system's
// words for the platform), the fields and choices, the buttons and what they say while a request
// runs. Computed from the onboarding view model; the window only renders it.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/OnboardingViewModel.h"

namespace corvane {

// A time of day on the local clock.
struct ClockTime {
    int hour = 0;
    int minute = 0;
    friend bool operator==(const ClockTime&, const ClockTime&) = default;
};
ClockTime localClockTime(Date date);
// Today at `time`, local time, on the view model's clock: what the custom schedule stores.
Date onboardingTimeToday(const OnboardingViewModel& model, ClockTime time);

struct OnboardingButton {
    std::string title;
    bool enabled = true;
    friend bool operator==(const OnboardingButton&, const OnboardingButton&) = default;
};

struct OnboardingStepMark {
    std::string title;  // "Connect"
    bool current = false;
    bool completed = false;
    friend bool operator==(const OnboardingStepMark&, const OnboardingStepMark&) = default;
};

struct OnboardingWelcomeState {
    std::string title;
    std::string body;
    friend bool operator==(const OnboardingWelcomeState&, const OnboardingWelcomeState&) = default;
};

struct OnboardingConnectState {
    std::string title;
    std::string body;
    std::string registerAs;      // "This computer will register as"
    std::string computerName;    // "demo-workstation"
    std::string identityDetail;  // "wk_… · AMD Ryzen 9 … · 32 GB memory"
    std::string advancedTitle;
    bool showAdvanced = false;
    std::string urlLabel;
    std::string url;
    std::string urlPlaceholder;
    std::string invitationLabel;
    std::string invitation;
    std::string invitationPlaceholder;
    bool fieldsEnabled = true;  // not while a request runs: what was sent stays what is shown
    friend bool operator==(const OnboardingConnectState&, const OnboardingConnectState&) = default;
};

struct OnboardingPresetRow {
    OnboardingSchedulePreset preset;
    std::string title;
    std::string detail;
    bool selected = false;
    friend bool operator==(const OnboardingPresetRow&, const OnboardingPresetRow&) = default;
};

struct OnboardingConfigureState {
    std::string title;
    std::string bodyMarkdown;  // the config path stands in backticks, shown as code
    std::string idleLabel;
    int idleMinutes = 0;
    int idleMinimum = 0;
    int idleMaximum = 0;
    std::string acTitle;
    bool requireACPower = true;
    std::string acDetail;
    std::string scheduleHeading;
    std::string scheduleBody;
    std::vector<OnboardingPresetRow> presets;
    std::string startLabel;
    ClockTime start;
    std::string endLabel;
    ClockTime end;
    bool controlsEnabled = true;
    friend bool operator==(const OnboardingConfigureState&,
                           const OnboardingConfigureState&) = default;
};

struct OnboardingDoneState {
    struct Row {
        std::string label;
        std::string value;
        bool code = false;  // a path or an identifier, shown in a fixed-width face
        friend bool operator==(const Row&, const Row&) = default;
    };
    std::string title;
    std::string body;
    std::vector<Row> rows;
    std::string dashboardNote;
    friend bool operator==(const OnboardingDoneState&, const OnboardingDoneState&) = default;
};

struct OnboardingPageState {
    std::string windowTitle;
    OnboardingStep step = OnboardingStep::welcome;
    std::vector<OnboardingStepMark> steps;
    OnboardingWelcomeState welcome;
    OnboardingConnectState connect;
    OnboardingConfigureState configure;
    OnboardingDoneState done;
    std::optional<std::string> error;  // shown on the current step
    bool working = false;              // a request runs: the window shows it busy
    std::optional<OnboardingButton> back;
    OnboardingButton primary;
    friend bool operator==(const OnboardingPageState&, const OnboardingPageState&) = default;
};

OnboardingPageState onboardingPageState(const OnboardingViewModel& model);

// The processor as a person reads it: trademark marks and the clock speed dropped
// ("Intel(R) Core(TM) i7-10700K CPU @ 3.80GHz" reads "Intel Core i7-10700K").
std::string readableChipName(std::string_view brand);

}  // namespace corvane
