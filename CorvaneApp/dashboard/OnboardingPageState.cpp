#include "CorvaneApp/dashboard/OnboardingPageState.h"

#include <array>

#include "CorvaneApp/config/WorkerSettings.h"
#include "CorvaneApp/dashboard/MonthlyEarningsEstimate.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

constexpr std::array<std::pair<OnboardingStep, std::string_view>, 4> kSteps{{
    {OnboardingStep::welcome, "Welcome"},
    {OnboardingStep::connect, "Connect"},
    {OnboardingStep::configure, "Configure"},
    {OnboardingStep::done, "Done"},
}};

constexpr std::string_view kConfigPath = "~/.varnix-compute/config.yaml";

OnboardingWelcomeState welcomeState(const OnboardingMachineFacts& machine) {
    const auto& chip = machine.chipDescription;
    std::string processor = chip ? readableChipName(*chip) : std::string();
    const auto estimate = monthlyEarningsEstimate(
        processor.empty() ? std::nullopt : std::optional<std::string_view>(processor));
    if (processor.empty()) processor = "an " + std::string(buildArchitectureName()) + " processor";
    return {"Turn your idle computer into a worker.",
            "Corvane detected " + processor + " in this computer. Similar machines earn about " +
                estimate.estimate + "/month when idle 12 hours a day."};
}

OnboardingConnectState connectState(const OnboardingViewModel& model) {
    const auto& machine = model.machine();
    OnboardingConnectState state;
    state.title = "Set up Corvane on this computer";
    state.body = "Corvane will register this computer and fetch a worker credential.";
    state.registerAs = "This computer will register as";
    state.computerName = machine.computerName;
    // What registration sends besides the name, so that nothing leaves unseen.
    std::string detail = machine.workerID;
    if (machine.chipDescription) detail += " · " + readableChipName(*machine.chipDescription);
    if (machine.physicalMemoryBytes)
        detail += " · " + std::to_string(*machine.physicalMemoryBytes >> 30) + " GB memory";
    state.identityDetail = std::move(detail);
    state.advancedTitle = "Advanced";
    state.showAdvanced = model.showAdvancedOptions();
    state.urlLabel = "Coordinator URL";
    state.url = model.coordinatorURL();
    state.urlPlaceholder = "https://coordinator.example.com";
    state.invitationLabel = "Invitation code";
    state.invitation = model.enrollmentToken();
    state.invitationPlaceholder = "Only if you were given one";
    state.fieldsEnabled = !model.isWorking();
    return state;
}

OnboardingConfigureState configureState(const OnboardingViewModel& model) {
    const auto& configuration = model.configuration();
    OnboardingConfigureState state;
    state.title = "Configure runtime behavior";
    state.bodyMarkdown = "These defaults match the Python daemon schema and are written to `" +
                         std::string(kConfigPath) + "`.";
    state.idleLabel = "Minimum idle minutes";
    state.idleMinutes = configuration.minIdleMinutes;
    state.idleMinimum = int(kIdleMinutesRange.min);
    state.idleMaximum = int(kIdleMinutesRange.max);
    state.acTitle = "Require AC power";
    state.requireACPower = configuration.requireACPower;
    state.acDetail = "Keep Corvane off battery unless you deliberately disable this.";
    state.scheduleHeading = "When Corvane is eligible to run";
    state.scheduleBody =
        "You'll only earn when your computer is idle and plugged in. Letting Corvane run \"always "
        "on\" gives it the most windows — you can tighten the schedule any time from Settings.";
    using P = OnboardingSchedulePreset;
    state.presets = {
        {P::alwaysOn, "Always on", "Runs whenever your computer is idle and on AC power.", false},
        {P::businessHours, "Business hours",
         "Runs 9:00 AM–5:00 PM every day, idle + plugged in. Limit to weekdays in Settings → "
         "Schedule after setup.",
         false},
        {P::custom, "Custom", "Pick a start and end time. Per-day filtering lives in Settings.",
         false},
    };
    for (auto& row : state.presets) row.selected = row.preset == configuration.preset;
    state.startLabel = "Start";
    state.start = localClockTime(configuration.schedule.startTime);
    state.endLabel = "End";
    state.end = localClockTime(configuration.schedule.endTime);
    state.controlsEnabled = !model.isWorking();
    return state;
}

OnboardingDoneState doneState(const OnboardingViewModel& model) {
    OnboardingDoneState state;
    state.title = "This computer is ready.";
    state.body =
        "Corvane stored your worker credential in the keyring and wrote the daemon config.";
    if (const auto& summary = model.summary()) {
        state.rows.push_back({"Worker ID", summary->workerID, true});
        state.rows.push_back({"Coordinator", summary->coordinatorURL, false});
    }
    state.rows.push_back({"Configuration", std::string(kConfigPath), true});
    state.dashboardNote =
        "When you start earning, Corvane opens the dashboard so you can watch Whisper finish "
        "downloading.";
    return state;
}

}  // namespace

ClockTime localClockTime(Date date) {
    const std::tm parts = localParts(date);
    return {parts.tm_hour, parts.tm_min};
}

Date onboardingTimeToday(const OnboardingViewModel& model, ClockTime time) {
    return addSeconds(model.makeTime(time.hour), time.minute * 60.0);
}

std::string readableChipName(std::string_view brand) {
    std::string text(brand);
    for (std::string_view mark : {"(R)", "(r)", "(TM)", "(tm)"}) {
        for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark))
            text.erase(at, mark.size());
    }
    // "… CPU @ 3.80GHz": the clock is a detail of the part, not its name.
    if (auto at = text.find('@'); at != std::string::npos) text.erase(at);
    text = trimWhitespaceAndNewlines(text);
    if (auto at = text.rfind(" CPU"); at != std::string::npos && at + 4 == text.size())
        text.erase(at);
    std::string tidy;
    for (char c : text) {
        if (c == ' ' && (tidy.empty() || tidy.back() == ' ')) continue;
        tidy += c;
    }
    return trimWhitespaceAndNewlines(tidy);
}

OnboardingPageState onboardingPageState(const OnboardingViewModel& model) {
    OnboardingPageState state;
    state.windowTitle = "Set up Corvane";
    state.step = model.step();
    for (const auto& [step, title] : kSteps) {
        state.steps.push_back(
            {std::string(title), step == model.step(), int(step) < int(model.step())});
    }
    state.welcome = welcomeState(model.machine());
    state.connect = connectState(model);
    state.configure = configureState(model);
    state.done = doneState(model);
    state.error = model.errorMessage();
    state.working = model.isWorking();
    const bool idle = !model.isWorking();
    switch (model.step()) {
        case OnboardingStep::welcome:
            state.primary = {"Get Started", true};
            break;
        case OnboardingStep::connect:
            state.back = OnboardingButton{"Back", idle};
            state.primary = {idle ? "Connect" : "Connecting…", idle};
            break;
        case OnboardingStep::configure:
            state.back = OnboardingButton{"Back", idle};
            state.primary = {idle ? "Save Configuration" : "Saving…", idle};
            break;
        case OnboardingStep::done:
            state.primary = {"Start Earning", true};
            break;
    }
    return state;
}

}  // namespace corvane
