#include "tests/config/ConfigPrivateSecretService.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CorvaneApp/config/SecretServiceBackend.h"

namespace corvane::testing {
namespace {

// The lines `command` prints, run by the shell.
std::vector<std::string> outputOf(const std::string& command) {
    std::vector<std::string> lines;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return lines;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe)) {
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        lines.push_back(line);
    }
    ::pclose(pipe);
    return lines;
}

// What the daemons said, shortened, for a skip reason; the file goes with the temp home.
std::string daemonLog(const std::filesystem::path& path) {
    auto text = readFile(path).value_or("");
    if (text.size() > 400) text = "..." + text.substr(text.size() - 400);
    return text.empty() ? "the daemons logged nothing" : "daemons said: " + text;
}

}  // namespace

std::unique_ptr<PrivateSecretService> PrivateSecretService::start(std::string& reason) {
    for (const char* program : {"dbus-daemon", "gnome-keyring-daemon"}) {
        if (outputOf(std::string("command -v ") + program).empty()) {
            reason = std::string(program) + " is not installed (the test script installs dbus and gnome-keyring)";
            return nullptr;
        }
    }
    std::unique_ptr<PrivateSecretService> service(new PrivateSecretService());
    auto home = service->home_.path();
    std::filesystem::create_directories(home / "run");
    ::chmod((home / "run").c_str(), 0700);
    auto log = home / "daemons.log";
    // A home of its own, so nothing touches the real keyrings.
    std::string env = "env HOME='" + home.string() + "' XDG_DATA_HOME='" + (home / "data").string() +
                      "' XDG_RUNTIME_DIR='" + (home / "run").string() + "' ";

    auto bus = outputOf(env + "dbus-daemon --session --fork --print-address=1 --print-pid=1 2>>'" + log.string() + "'");
    if (bus.size() < 2) {
        reason = "dbus-daemon did not start: " + daemonLog(log);
        return nullptr;
    }
    service->busPid_ = std::atoi(bus[1].c_str());
    const std::string& address = bus[0];
    // --unlock reads the new login keyring's password from stdin; $! is the daemon's own pid.
    auto keyring = outputOf("printf corvane-test | " + env + "DBUS_SESSION_BUS_ADDRESS='" + address +
                            "' gnome-keyring-daemon --foreground --unlock --components=secrets >/dev/null 2>>'" +
                            log.string() + "' & echo $!");
    if (keyring.empty()) {
        reason = "gnome-keyring-daemon did not start: " + daemonLog(log);
        return nullptr;
    }
    service->keyringPid_ = std::atoi(keyring[0].c_str());

    if (const char* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS")) service->previousBusAddress_ = previous;
    service->changedEnvironment_ = true;
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    // The keyring registers on the bus shortly after it starts: a bounded wait for an outside
    // process, not for our own code.
    SecretServiceBackend::Probe probe;
    for (int attempt = 0; attempt < 100; ++attempt) {
        probe = SecretServiceBackend::probe(/*displayAvailable=*/false);
        if (probe.usable) return service;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    reason = "the private Secret Service never became usable: " + probe.reason + "; " + daemonLog(log);
    return nullptr;
}

PrivateSecretService::~PrivateSecretService() {
    for (pid_t pid : {keyringPid_, busPid_}) {
        if (pid > 0) ::kill(pid, SIGTERM);
    }
    if (!changedEnvironment_) return;
    if (previousBusAddress_) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", previousBusAddress_->c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
}

}  // namespace corvane::testing
