#include "tools/dev-coordinator/ConnectionShutdown.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <charconv>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace corvane::dev {

namespace {

std::optional<int> portOf(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    }
    if (address.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    }
    return std::nullopt;
}

std::optional<int> localPort(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
    return portOf(address);
}

std::optional<int> peerPort(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
    return portOf(address);
}

}  // namespace

bool shutdownConnection(int wantedLocalPort, int wantedRemotePort) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const std::string name = entry.path().filename().string();
        int fd = -1;
        auto [end, parseError] = std::from_chars(name.data(), name.data() + name.size(), fd);
        if (parseError != std::errc() || end != name.data() + name.size()) continue;
        // The client end of the same connection, when it lives in this process too, has the two
        // ports the other way round and is left alone.
        if (localPort(fd) != wantedLocalPort || peerPort(fd) != wantedRemotePort) continue;
        return ::shutdown(fd, SHUT_RDWR) == 0;
    }
    return false;
}

}  // namespace corvane::dev
