#pragma once
// A private dbus-daemon for one test, and a tiny service on it that answers like GNOME's idle
// monitor and logind's manager, so that the real sd-bus client is tested end to end.

#include <signal.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

namespace corvane::testing {

class PrivateBus {
public:
    // Starts dbus-daemon; address() is empty when it can't run here.
    explicit PrivateBus(const std::filesystem::path& folder) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        std::string config = "--config-file=" + writeConfig(folder).string();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            ::execlp("dbus-daemon", "dbus-daemon", config.c_str(), "--nofork", "--print-address",
                     static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        // The daemon prints its address once it listens: reading it is the wait for readiness.
        char buffer[512];
        ssize_t got = pid_ > 0 ? ::read(fds[0], buffer, sizeof buffer - 1) : -1;
        ::close(fds[0]);
        if (got > 0) {
            address_.assign(buffer, static_cast<std::size_t>(got));
            while (!address_.empty() && (address_.back() == '\n')) address_.pop_back();
        }
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return address_; }

private:
    static std::filesystem::path writeConfig(const std::filesystem::path& folder) {
        auto path = folder / "bus.conf";
        std::string text =
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
            "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n<busconfig>"
            "<type>session</type><listen>unix:path=" +
            (folder / "bus").string() +
            "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
            "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
        FILE* file = std::fopen(path.c_str(), "w");
        std::fputs(text.c_str(), file);
        std::fclose(file);
        return path;
    }

    pid_t pid_ = -1;
    std::string address_;
};

// Serves org.gnome.Mutter.IdleMonitor.GetIdletime and logind's IdleHint/IdleSinceHint on its own
// thread until destroyed.
class FakeIdleService {
public:
    std::atomic<std::uint64_t> idleMilliseconds{0};
    std::atomic<bool> idleHint{false};
    std::atomic<std::uint64_t> idleSinceMicros{0};

    explicit FakeIdleService(const std::string& address) {
        sd_bus_new(&bus_);
        sd_bus_set_address(bus_, address.c_str());
        sd_bus_set_bus_client(bus_, 1);
        if (sd_bus_start(bus_) < 0) return;
        sd_bus_add_object_vtable(bus_, nullptr, "/org/gnome/Mutter/IdleMonitor/Core",
                                 "org.gnome.Mutter.IdleMonitor", kMutterTable, this);
        sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/login1",
                                 "org.freedesktop.login1.Manager", kLogindTable, this);
        sd_bus_request_name(bus_, "org.gnome.Mutter.IdleMonitor", 0);
        sd_bus_request_name(bus_, "org.freedesktop.login1", 0);
        ready_ = true;
        thread_ = std::thread([this] {
            while (!stop_) {
                int r = sd_bus_process(bus_, nullptr);
                if (r < 0) break;
                if (r == 0) sd_bus_wait(bus_, 20'000);  // wakes on traffic; the bound only ends the loop
            }
        });
    }
    ~FakeIdleService() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        sd_bus_flush_close_unref(bus_);
    }
    bool ready() const { return ready_; }

private:
    static int getIdletime(sd_bus_message* call, void* self, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "t",
                                          static_cast<std::uint64_t>(static_cast<FakeIdleService*>(self)->idleMilliseconds));
    }
    static int getHint(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                       sd_bus_error*) {
        int value = static_cast<FakeIdleService*>(self)->idleHint ? 1 : 0;
        return sd_bus_message_append(reply, "b", value);
    }
    static int getSince(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                        sd_bus_error*) {
        return sd_bus_message_append(reply, "t",
                                     static_cast<std::uint64_t>(static_cast<FakeIdleService*>(self)->idleSinceMicros));
    }

    static constexpr sd_bus_vtable kMutterTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("GetIdletime", "", "t", getIdletime, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    static constexpr sd_bus_vtable kLogindTable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_PROPERTY("IdleHint", "b", getHint, 0, 0),
        SD_BUS_PROPERTY("IdleSinceHint", "t", getSince, 0, 0),
        SD_BUS_VTABLE_END};

    sd_bus* bus_ = nullptr;
    bool ready_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace corvane::testing
