#include "CorvaneApp/app/OnboardingViewModel.h"

#include <algorithm>
#include <ctime>

#include "CorvaneApp/config/WorkerSettings.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

constexpr const char* kSaveFailedText =
    "Corvane could not save your worker credentials locally. Check keyring and home-folder "
    "permissions, then try "
    "again.";

}  // namespace

OnboardingViewModel::OnboardingViewModel(Dependencies dependencies)
    : deps_(std::move(dependencies)), alive_(std::make_shared<OnboardingViewModel*>(this)) {
    if (!deps_.backgroundRunner) deps_.backgroundRunner = std::make_shared<TaskBackgroundRunner>();
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

OnboardingViewModel::~OnboardingViewModel() {
    alive_.reset();
    job_.reset();
}

std::function<void(std::function<void(OnboardingViewModel&)>)> OnboardingViewModel::poster() {
    return [main = deps_.mainSequence, alive = std::weak_ptr<OnboardingViewModel*>(alive_)](
               std::function<void(OnboardingViewModel&)> work) {
        main->post([alive, work = std::move(work)] {
            if (auto self = alive.lock()) work(**self);
        });
    };
}

void OnboardingViewModel::advance() {
    if (step_ != OnboardingStep::welcome) return;
    step_ = OnboardingStep::connect;
    changed();
}

void OnboardingViewModel::goBack() {
    if (isWorking_) return;
    errorMessage_.reset();
    if (step_ != OnboardingStep::welcome)
        step_ = static_cast<OnboardingStep>(static_cast<int>(step_) - 1);
    changed();
}

void OnboardingViewModel::setCoordinatorURL(std::string url) {
    coordinatorURL_ = std::move(url);
    changed();
}

void OnboardingViewModel::setEnrollmentToken(std::string token) {
    enrollmentToken_ = std::move(token);
    changed();
}

void OnboardingViewModel::setShowAdvancedOptions(bool show) {
    showAdvancedOptions_ = show;
    changed();
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
    if (isWorking_) return;
    errorMessage_.reset();
    isWorking_ = true;
    // A code typed while Advanced is closed is not sent: the owner can't see what would go out.
    std::optional<std::string> token;
    if (showAdvancedOptions_) {
        if (std::string code = trimWhitespaceAndNewlines(enrollmentToken_); !code.empty())
            token = std::move(code);
    }
    std::string url = trimWhitespaceAndNewlines(coordinatorURL_);
    // Back from `configure` and on again to the same coordinator: the registration already held
    // stands. Asking again would only be refused as a second registration of this computer.
    if (registrationResponse_ && url == registeredCoordinatorURL_) {
        isWorking_ = false;
        step_ = OnboardingStep::configure;
        changed();
        return;
    }
    changed();
    job_ = deps_.backgroundRunner->run([deliver = poster(), client = deps_.registrationClient,
                                        url = std::move(url), token = std::move(token),
                                        request = registrationRequest()](std::stop_token) {
        std::optional<WorkerRegistrationResponse> response;
        std::optional<CoordinatorRegistrationError> error;
        std::optional<std::string> otherError;
        try {
            response = client->registerWorker(url, token, request);
        } catch (const CoordinatorRegistrationError& failure) {
            error = failure;
        } catch (const std::exception& failure) {
            otherError = failure.what();
        }
        deliver([=](OnboardingViewModel& self) {
            self.finishConnect(response, url, error, otherError, token.has_value());
        });
    });
}

void OnboardingViewModel::finishConnect(std::optional<WorkerRegistrationResponse> response,
                                        std::string url,
                                        std::optional<CoordinatorRegistrationError> error,
                                        std::optional<std::string> otherError, bool sentToken) {
    isWorking_ = false;
    if (response) {
        registrationResponse_ = std::move(response);
        registeredCoordinatorURL_ = std::move(url);
        step_ = OnboardingStep::configure;
    } else if (error) {
        using Kind = CoordinatorRegistrationError::Kind;
        switch (error->kind()) {
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
                errorMessage_ = error->errorDescription();
                break;
        }
    } else {
        errorMessage_ = otherError;
    }
    changed();
}

void OnboardingViewModel::saveConfiguration() {
    if (isWorking_) return;
    if (!registrationResponse_) {
        errorMessage_ = "Complete the connection step before saving.";
        changed();
        return;
    }
    errorMessage_.reset();
    isWorking_ = true;
    changed();
    const WorkerRegistrationResponse& response = *registrationResponse_;
    job_ = deps_.backgroundRunner->run([deliver = poster(), store = deps_.credentialStore,
                                        token = response.workerToken,
                                        url = registeredCoordinatorURL_,
                                        workerID = response.workerID](std::stop_token) {
        try {
            auto stored = store->storeWorkerToken(token, url, workerID);
            deliver([stored](OnboardingViewModel& self) { self.keepCredential(stored); });
        } catch (const std::exception& error) {
            // The texts of these errors name paths, never the token.
            log::get("OnboardingViewModel")->error("saving the enrolment failed: {}", error.what());
            deliver([](OnboardingViewModel& self) { self.finishSave(kSaveFailedText); });
        }
    });
}

// The credential is kept: settings changed meanwhile are written (on the main sequence, where
// the settings live), then config.yaml.
void OnboardingViewModel::keepCredential(WorkerTokenKeychainRef stored) {
    if (deps_.flushPendingSettings) deps_.flushPendingSettings();
    job_ = deps_.backgroundRunner->run([deliver = poster(), store = deps_.credentialStore,
                                        writer =
                                            WorkerConfigWriter{registeredCoordinatorURL_,
                                                               registrationResponse_->workerID,
                                                               stored, configuration_, deps_.now},
                                        path = deps_.configPath, write = deps_.writeConfig,
                                        stored](std::stop_token) {
        std::optional<std::string> failure;
        try {
            if (write) {
                write(writer);
            } else {
                writer.write(path);
            }
        } catch (const std::exception& error) {
            log::get("OnboardingViewModel")->error("saving the enrolment failed: {}", error.what());
            // A credential without its config.yaml would be a half-enrolled machine.
            store->removeWorkerToken(stored);
            failure = kSaveFailedText;
        }
        deliver([failure](OnboardingViewModel& self) { self.finishSave(failure); });
    });
}

void OnboardingViewModel::finishSave(std::optional<std::string> failure) {
    isWorking_ = false;
    errorMessage_ = std::move(failure);
    if (!errorMessage_) {
        summary_ = OnboardingSummary{registrationResponse_->workerID, registeredCoordinatorURL_};
        step_ = OnboardingStep::done;
    }
    changed();
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
    changed();
}

void OnboardingViewModel::setMinIdleMinutes(int minutes) {
    // The range the settings store accepts, so the first save keeps the value.
    configuration_.minIdleMinutes =
        std::clamp(minutes, int(kIdleMinutesRange.min), int(kIdleMinutesRange.max));
    changed();
}

void OnboardingViewModel::setRequireACPower(bool required) {
    configuration_.requireACPower = required;
    changed();
}

void OnboardingViewModel::updateCustomStart(Date time) {
    configuration_.schedule.startTime = time;
    configuration_.schedule.enabled = true;
    configuration_.preset = OnboardingSchedulePreset::custom;
    lastCustomSchedule_ = configuration_.schedule;
    changed();
}

void OnboardingViewModel::updateCustomEnd(Date time) {
    configuration_.schedule.endTime = time;
    configuration_.schedule.enabled = true;
    configuration_.preset = OnboardingSchedulePreset::custom;
    lastCustomSchedule_ = configuration_.schedule;
    changed();
}

}  // namespace corvane
