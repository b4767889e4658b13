#pragma once
// A private dbus-daemon for one test, with a tiny service on it that answers like GNOME's idle
// monitor, KDE's screen saver and logind's manager, so that the real sd-bus client is tested end to
// end.

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace corvane::testing {

class PrivateBus {
  public:
    // Starts dbus-daemon; address() is empty when it can't run here.
    explicit PrivateBus(const std::filesystem::path& folder) {
        auto config = folder / "bus.conf";
        std::ofstream(config)
            << "<busconfig><type>session</type><listen>unix:path=" << (folder / "bus").string()
            << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow "
               "send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
               "<allow own=\"*\"/></policy></busconfig>\n";
        std::string configArgument = "--config-file=" + config.string();
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::execlp("dbus-daemon", "dbus-daemon", configArgument.c_str(), "--nofork",
                     "--print-address", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        // The daemon prints its address once it listens: this read is the wait for readiness.
        char buffer[512];
        ssize_t got = pid_ > 0 ? ::read(fds[0], buffer, sizeof buffer) : -1;
        ::close(fds[0]);
        if (got > 1) address_.assign(buffer, static_cast<std::size_t>(got) - 1);  // without '\n'
    }
    ~PrivateBus() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    const std::string& address() const { return address_; }

  private:
    pid_t pid_ = -1;
    std::string address_;
};

// Serves Mutter's GetIdletime (64 bits), the screen saver's GetSessionIdleTime (32 bits) and
// logind's IdleHint/IdleSinceHint from its own thread.
class FakeIdleService {
  public:
    std::atomic<std::uint64_t> idleMilliseconds{0}, idleSinceMicros{0};
    std::atomic<bool> idleHint{false};

    explicit FakeIdleService(const std::string& address) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        if (sd_bus_start(bus_) < 0) return;
        sd_bus_add_object_vtable(bus_, nullptr, "/org/gnome/Mutter/IdleMonitor/Core",
                                 "org.gnome.Mutter.IdleMonitor", kMutter, this);
        sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/ScreenSaver",
                                 "org.freedesktop.ScreenSaver", kScreenSaver, this);
        sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/login1",
                                 "org.freedesktop.login1.Manager", kLogind, this);
        ready_ = sd_bus_request_name(bus_, "org.gnome.Mutter.IdleMonitor", 0) >= 0 &&
                 sd_bus_request_name(bus_, "org.freedesktop.ScreenSaver", 0) >= 0 &&
                 sd_bus_request_name(bus_, "org.freedesktop.login1", 0) >= 0;
        thread_ = std::thread([this] {
            while (!stop_ && sd_bus_process(bus_, nullptr) >= 0) sd_bus_wait(bus_, 20'000);
        });
    }
    ~FakeIdleService() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        sd_bus_flush_close_unref(bus_);
    }
    bool ready() const { return ready_; }

  private:
    static FakeIdleService& self(void* data) { return *static_cast<FakeIdleService*>(data); }
    static int idletime(sd_bus_message* call, void* data, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "t", self(data).idleMilliseconds.load());
    }
    static int sessionIdle(sd_bus_message* call, void* data, sd_bus_error*) {
        return sd_bus_reply_method_return(
            call, "u", static_cast<std::uint32_t>(self(data).idleMilliseconds.load()));
    }
    static int hint(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                    void* data, sd_bus_error*) {
        return sd_bus_message_append(reply, "b", self(data).idleHint.load() ? 1 : 0);
    }
    static int since(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                     void* data, sd_bus_error*) {
        return sd_bus_message_append(reply, "t", self(data).idleSinceMicros.load());
    }
    static constexpr sd_bus_vtable kMutter[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("GetIdletime", "", "t", idletime, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    static constexpr sd_bus_vtable kScreenSaver[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("GetSessionIdleTime", "", "u", sessionIdle, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    static constexpr sd_bus_vtable kLogind[] = {
        SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("IdleHint", "b", hint, 0, 0),
        SD_BUS_PROPERTY("IdleSinceHint", "t", since, 0, 0), SD_BUS_VTABLE_END};

    sd_bus* bus_ = nullptr;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace corvane::testing
