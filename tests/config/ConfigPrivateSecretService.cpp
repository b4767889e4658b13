#include "tests/config/ConfigPrivateSecretService.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CorvaneApp/config/SecretServiceBackend.h"

extern char** environ;

namespace corvane::testing {
namespace {

struct Spawned {
    pid_t pid = -1;
    int stdinFd = -1;
    int stdoutFd = -1;
};

// Starts `argv` with `env`, its stdin and stdout on pipes, stderr to `errPath`.
Spawned spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, const std::string& errPath) {
    int in[2], out[2];
    if (::pipe(in) != 0) return {};
    if (::pipe(out) != 0) {
        ::close(in[0]);
        ::close(in[1]);
        return {};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_addclose(&actions, in[1]);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    std::vector<char*> envp;
    for (const auto& entry : env) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);
    Spawned result;
    if (posix_spawnp(&result.pid, args[0], &actions, nullptr, args.data(), envp.data()) != 0) result.pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    result.stdinFd = in[1];
    result.stdoutFd = out[0];
    if (result.pid < 0) {
        ::close(in[1]);
        ::close(out[0]);
        return {};
    }
    return result;
}

std::string readLine(int fd) {
    std::string line;
    char c = 0;
    while (::read(fd, &c, 1) == 1 && c != '\n') line += c;
    return line;
}

bool onPath(const char* program) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= folders.size()) {
        size_t end = folders.find(':', start);
        auto folder = folders.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (::access((folder + "/" + program).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return false;
}

// What the daemons said, shortened, for a skip reason; the file goes with the temp home.
std::string daemonLog(const std::string& path) {
    auto text = readFile(path).value_or("");
    if (text.size() > 400) text = "..." + text.substr(text.size() - 400);
    return text.empty() ? "the daemons logged nothing" : "daemons said: " + text;
}

void endProcess(pid_t pid) {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
}

}  // namespace

std::unique_ptr<PrivateSecretService> PrivateSecretService::start(std::string& reason) {
    for (const char* program : {"dbus-daemon", "gnome-keyring-daemon"}) {
        if (!onPath(program)) {
            reason = std::string(program) + " is not installed (the test script installs dbus and gnome-keyring)";
            return nullptr;
        }
    }
    std::unique_ptr<PrivateSecretService> service(new PrivateSecretService());
    auto home = service->home_.path();
    auto runtime = home / "run";
    std::filesystem::create_directories(runtime);
    ::chmod(runtime.c_str(), 0700);
    std::string errors = (home / "daemons.log").string();
    std::vector<std::string> env{"HOME=" + home.string(), "XDG_DATA_HOME=" + (home / "data").string(),
                                 "XDG_CONFIG_HOME=" + (home / "config").string(),
                                 "XDG_RUNTIME_DIR=" + runtime.string(), "PATH=/usr/bin:/bin"};

    auto bus = spawn({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}, env, errors);
    if (bus.pid < 0) {
        reason = "dbus-daemon could not be started";
        return nullptr;
    }
    service->busPid_ = bus.pid;
    ::close(bus.stdinFd);
    std::string address = readLine(bus.stdoutFd);
    ::close(bus.stdoutFd);
    if (address.empty()) {
        reason = "dbus-daemon printed no address: " + daemonLog(errors);
        return nullptr;
    }
    env.push_back("DBUS_SESSION_BUS_ADDRESS=" + address);

    auto keyring = spawn({"gnome-keyring-daemon", "--foreground", "--unlock", "--components=secrets"}, env, errors);
    if (keyring.pid < 0) {
        reason = "gnome-keyring-daemon could not be started";
        return nullptr;
    }
    service->keyringPid_ = keyring.pid;
    // --unlock reads the new login keyring's password from stdin.
    std::string password = "corvane-test";
    [[maybe_unused]] auto written = ::write(keyring.stdinFd, password.data(), password.size());
    ::close(keyring.stdinFd);
    ::close(keyring.stdoutFd);

    if (const char* previous = std::getenv("DBUS_SESSION_BUS_ADDRESS")) service->previousBusAddress_ = previous;
    service->changedEnvironment_ = true;
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    // The daemon registers on the bus shortly after it starts; a bounded wait for an external
    // process, not for our own code.
    SecretServiceBackend::Probe probe;
    for (int attempt = 0; attempt < 100; ++attempt) {
        probe = SecretServiceBackend::probe(/*displayAvailable=*/false);
        if (probe.usable) return service;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    reason = "the private Secret Service never became usable: " + probe.reason + "; " + daemonLog(errors);
    return nullptr;
}

PrivateSecretService::~PrivateSecretService() {
    endProcess(keyringPid_);
    endProcess(busPid_);
    if (!changedEnvironment_) return;
    if (previousBusAddress_) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", previousBusAddress_->c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
}

}  // namespace corvane::testing
