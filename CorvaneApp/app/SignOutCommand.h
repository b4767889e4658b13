#pragma once
// Ending this computer's enrolment: the config file and the worker's credentials go, the
// application stays. `corvane signout` does it for an owner without a window.

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

class KeychainStore;

// Removes config.yaml and, with the coordinator and worker id it named, the worker's token, then
// the "worker_token" and "worker_id" items. A step that fails doesn't stop the next: the computer
// always ends unenrolled, also when it was never enrolled.
void removeEnrollment(const std::filesystem::path& configPath, KeychainStore& keychain);

struct SignOutDependencies {
    std::filesystem::path configPath;  // ~/.varnix-compute/config.yaml
    std::shared_ptr<KeychainStore> keychain;
    // The process id of a worker running on this computer, if one is.
    std::function<std::optional<long>()> runningWorker;
};

// `arguments` are those after "signout". Returns the exit status: 0 signed out, 1 a worker is
// still running (nothing is removed: its credentials must not vanish under it), 2 bad arguments.
int runSignOutCommand(const std::vector<std::string>& arguments, std::ostream& output,
                      std::ostream& errors, const SignOutDependencies& dependencies);

}  // namespace corvane
