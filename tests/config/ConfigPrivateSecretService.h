#pragma once
// A Secret Service of the tests' own: a private session bus and a gnome-keyring-daemon with an
// unlocked keyring in a temp home, both ended (by their pids) when this object goes.

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

#include "tests/config/ConfigTempDir.h"

namespace corvane::testing {

class PrivateSecretService {
public:
    // Absent, with `reason` saying why, when the daemons are missing or don't come up.
    static std::unique_ptr<PrivateSecretService> start(std::string& reason);
    ~PrivateSecretService();
    PrivateSecretService(const PrivateSecretService&) = delete;
    PrivateSecretService& operator=(const PrivateSecretService&) = delete;

private:
    PrivateSecretService() = default;

    ConfigTempDir home_;
    pid_t busPid_ = -1;
    pid_t keyringPid_ = -1;
    bool changedEnvironment_ = false;
    std::optional<std::string> previousBusAddress_;
};

}  // namespace corvane::testing
