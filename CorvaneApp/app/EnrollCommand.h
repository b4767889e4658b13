#pragma once
// `corvane enroll`: headless onboarding for a machine without a window. It registers with the
// coordinator, stores the worker credential, writes config.yaml and prints the worker id.

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/app/OnboardingMachineFacts.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct EnrollDependencies {
    std::shared_ptr<CoordinatorRegistering> registrationClient;
    std::shared_ptr<OnboardingCredentialStore> credentialStore;
    std::filesystem::path configPath;  // ~/.varnix-compute/config.yaml
    std::function<OnboardingMachineFacts()> machineFacts;
    NowFunction now = systemNow;
};

extern const char* const kEnrollUsage;

// `arguments` are those after "enroll". Returns the exit status: 0 enrolled, 1 enrolment failed,
// 2 bad arguments. The token is read from `input` or a file, never from the arguments, so that it
// stays out of the process list and the shell history.
int runEnrollCommand(const std::vector<std::string>& arguments, std::istream& input,
                     std::ostream& output, std::ostream& errors,
                     const EnrollDependencies& dependencies);

}  // namespace corvane
