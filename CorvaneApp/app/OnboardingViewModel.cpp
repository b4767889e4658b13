#include "CorvaneApp/app/OnboardingViewModel.h"

#include <ctime>

#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/eligibility/UnicodeTrim.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

const std::shared_ptr<spdlog::logger>& logger() {
    static const auto instance = log::get("OnboardingViewModel");
    return instance;
}

constexpr const char* kSaveFailedText =
    "Corvane could not save your worker credentials locally. Check keyring and home-folder "
    "permissions, then try "
    "again.";

}  // namespace

OnboardingViewModel::OnboardingViewModel(Dependencies dependencies)
    : deps_(std::move(dependencies)) {
    coordinatorURL_ = deps_.defaultCoordinatorURL;
    configuration_.preset = OnboardingSchedulePreset::alwaysOn;
    configuration_.schedule = {false, makeTime(9), makeTime(17)};
    lastCustomSchedule_ = {true, makeTime(9), makeTime(17)};
}

const std::vector<std::string>& OnboardingViewModel::availableHandlers() {
    static const std::vector<std::string> handlers{"whisper-cpp-swift", "speech-engine-native"};
    return handlers;
}

const std::vector<std::string>& OnboardingViewModel::availableModels() {
    static const std::vector<std::string> models{"whisper-large-v3-turbo-q4",
                                                 "parakeet-tdt-0.6b-v2"};
    return models;
}

void OnboardingViewModel::advance() {
    if (step_ == OnboardingStep::welcome) step_ = OnboardingStep::connect;
}

void OnboardingViewModel::goBack() {
    errorMessage_.reset();
    if (step_ != OnboardingStep::welcome)
        step_ = static_cast<OnboardingStep>(static_cast<int>(step_) - 1);
}

WorkerRegistrationRequest OnboardingViewModel::registrationRequest() const {
    WorkerRegistrationRequest request;
    request.workerID = deps_.machine.workerID;
    request.displayName = deps_.machine.computerName;
    request.chip = deps_.machine.chipDescription;
    if (deps_.machine.physicalMemoryBytes) {
        request.memoryGB = static_cast<std::int64_t>(*deps_.machine.physicalMemoryBytes >> 30);
    }
    request.availableHandlers = availableHandlers();
    request.availableModels = availableModels();
    request.buildIdentity = deps_.machine.buildIdentity;
    return request;
}

void OnboardingViewModel::connect() {
    errorMessage_.reset();
    isWorking_ = true;
    // A code typed while Advanced is closed is not sent: the owner can't see what would go out.
    std::optional<std::string> token;
    if (showAdvancedOptions_) {
        if (std::string code = trimWhitespaceAndNewlines(enrollmentToken_); !code.empty())
            token = std::move(code);
    }
    const bool sentToken = token.has_value();
    const std::string url = trimWhitespaceAndNewlines(coordinatorURL_);
    try {
        registrationResponse_ =
            deps_.registrationClient->registerWorker(url, token, registrationRequest());
        registeredCoordinatorURL_ = url;
        step_ = OnboardingStep::configure;
    } catch (const CoordinatorRegistrationError& error) {
        using Kind = CoordinatorRegistrationError::Kind;
        switch (error.kind()) {
            case Kind::invalidInvitation:
                showAdvancedOptions_ = true;
                errorMessage_ =
                    "That invitation code wasn't accepted. Check Advanced and try again.";
                break;
            case Kind::invitationRequired:
                showAdvancedOptions_ = true;
                errorMessage_ =
                    sentToken
                        ? "This invitation code wasn't accepted. Check Advanced and try again."
                        : "This installation requires an invitation code. Open Advanced, enter it "
                          "there, and try again.";
                break;
            default:
                errorMessage_ = error.errorDescription();
                break;
        }
    } catch (const std::exception& error) {
        errorMessage_ = error.what();
    }
    isWorking_ = false;
}

void OnboardingViewModel::saveConfiguration() {
    if (!registrationResponse_) {
        errorMessage_ = "Complete the connection step before saving.";
        return;
    }
    errorMessage_.reset();
    isWorking_ = true;
    const WorkerRegistrationResponse& response = *registrationResponse_;
    std::optional<WorkerTokenKeychainRef> stored;
    try {
        stored = deps_.credentialStore->storeWorkerToken(
            response.workerToken, registeredCoordinatorURL_, response.workerID);
        if (deps_.flushPendingSettings) deps_.flushPendingSettings();
        WorkerConfigWriter writer{registeredCoordinatorURL_, response.workerID, *stored,
                                  configuration_, deps_.now};
        writer.write(deps_.configPath);
    } catch (const std::exception& error) {
        // The texts of these errors name paths, never the token.
        logger()->error("saving the enrolment failed: {}", error.what());
        // A credential without its config.yaml would be a half-enrolled machine.
        if (stored) deps_.credentialStore->removeWorkerToken(*stored);
        errorMessage_ = kSaveFailedText;
        isWorking_ = false;
        return;
    }
    summary_ = OnboardingSummary{response.workerID, registeredCoordinatorURL_};
    step_ = OnboardingStep::done;
    isWorking_ = false;
}

void OnboardingViewModel::finish() {
    if (step_ == OnboardingStep::done && deps_.onFinish) deps_.onFinish();
}

Date OnboardingViewModel::makeTime(int hour) const {
    const std::time_t now = std::chrono::system_clock::to_time_t(deps_.now());
    std::tm local{};
    localtime_r(&now, &local);
    local.tm_hour = hour;
    local.tm_min = 0;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&local));
}

void OnboardingViewModel::applySchedulePreset(OnboardingSchedulePreset preset) {
    if (configuration_.preset == OnboardingSchedulePreset::custom &&
        preset != OnboardingSchedulePreset::custom) {
        lastCustomSchedule_ = configuration_.schedule;
    }
    configuration_.preset = preset;
    switch (preset) {
        case OnboardingSchedulePreset::alwaysOn:
            configuration_.schedule = {false, makeTime(9), makeTime(17)};
            break;
        case OnboardingSchedulePreset::businessHours:
            configuration_.schedule = {true, makeTime(9), makeTime(17)};
            break;
        case OnboardingSchedulePreset::custom:
            configuration_.schedule = lastCustomSchedule_;
            break;
    }
}

void OnboardingViewModel::updateCustomStart(Date time) {
    configuration_.schedule.startTime = time;
    configuration_.schedule.enabled = true;
    configuration_.preset = OnboardingSchedulePreset::custom;
    lastCustomSchedule_ = configuration_.schedule;
}

void OnboardingViewModel::updateCustomEnd(Date time) {
    configuration_.schedule.endTime = time;
    configuration_.schedule.enabled = true;
    configuration_.preset = OnboardingSchedulePreset::custom;
    lastCustomSchedule_ = configuration_.schedule;
}

}  // namespace corvane
