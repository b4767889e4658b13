#include "CorvaneApp/app/SignOutCommand.h"

#include <ostream>

#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

void removeEnrollment(const std::filesystem::path& configPath, KeychainStore& keychain) {
    auto log = log::get("SignOut");
    std::optional<WorkerConfig> config;
    try {
        config = WorkerConfig::load(configPath);
    } catch (const std::exception& error) {
        log->warn("signOut: cannot read {}: {}", configPath.string(), error.what());
    }
    std::error_code error;
    std::filesystem::remove(configPath, error);
    if (error) log->warn("signOut: cannot remove {}: {}", configPath.string(), error.message());
    auto forget = [&](auto&&... item) {
        try {
            keychain.deleteItem(item...);
        } catch (const std::exception& failure) {
            log->warn("signOut: cannot delete a credential: {}", failure.what());
        }
    };
    if (config) forget(KeychainStore::pythonServiceName(config->coordinatorURL), config->workerID);
    forget("worker_token");
    forget("worker_id");
}

int runSignOutCommand(const std::vector<std::string>& arguments, std::ostream& output,
                      std::ostream& errors, const SignOutDependencies& dependencies) {
    if (!arguments.empty()) {
        const bool help = arguments.front() == "--help" || arguments.front() == "-h";
        (help ? output : errors)
            << "usage: corvane signout\n"
               "Ends this computer's enrolment: removes ~/.varnix-compute/config.yaml and the\n"
               "worker credential. Stop a running worker first.\n";
        return help ? 0 : 2;
    }
    if (const auto pid = dependencies.runningWorker ? dependencies.runningWorker() : std::nullopt) {
        errors << "corvane signout: Corvane is running (process " << *pid
               << "); stop it first (systemctl --user stop corvane, or its tray menu's Quit)\n";
        return 1;
    }
    const bool wasEnrolled = std::filesystem::exists(dependencies.configPath);
    removeEnrollment(dependencies.configPath, *dependencies.keychain);
    output << (wasEnrolled ? "Signed out: this computer is no longer enrolled.\n"
                           : "This computer is not enrolled.\n");
    return 0;
}

}  // namespace corvane
