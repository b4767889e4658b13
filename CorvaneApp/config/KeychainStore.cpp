#include "CorvaneApp/config/KeychainStore.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/SecretServiceBackend.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

bool isValidUTF8(std::string_view text) {
    static constexpr uint32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
    size_t i = 0;
    while (i < text.size()) {
        auto byte = static_cast<unsigned char>(text[i]);
        size_t extra = 0;
        if (byte >= 0x80) {
            if ((byte >> 5) == 0x6) {
                extra = 1;
            } else if ((byte >> 4) == 0xE) {
                extra = 2;
            } else if ((byte >> 3) == 0x1E) {
                extra = 3;
            } else {
                return false;
            }
        }
        if (text.size() - i <= extra) return false;
        uint32_t code = extra == 0 ? byte : byte & (0x3Fu >> extra);
        for (size_t k = 1; k <= extra; ++k) {
            auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3Fu);
        }
        // Overlong forms, surrogates and values past the last code point.
        if (code < kMinimum[extra] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF)
            return false;
        i += extra + 1;
    }
    return true;
}

struct HostPort {
    std::string host;
    std::string port;
};

// The host and port of an absolute URL with an authority ("scheme://[user@]host[:port]/...");
// absent for anything else, including texts with blanks or a port that isn't a number.
std::optional<HostPort> hostAndPort(std::string_view url) {
    for (char c : url) {
        if (std::isspace(static_cast<unsigned char>(c)) ||
            std::iscntrl(static_cast<unsigned char>(c)))
            return std::nullopt;
    }
    size_t separator = url.find("://");
    if (separator == std::string_view::npos || separator == 0) return std::nullopt;
    auto scheme = url.substr(0, separator);
    if (!std::isalpha(static_cast<unsigned char>(scheme.front()))) return std::nullopt;
    for (char c : scheme) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
            return std::nullopt;
    }
    auto authority = url.substr(separator + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (auto at = authority.rfind('@'); at != std::string_view::npos)
        authority.remove_prefix(at + 1);

    HostPort result;
    std::string_view rest;
    if (!authority.empty() && authority.front() == '[') {
        size_t close = authority.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        result.host = std::string(authority.substr(1, close - 1));
        rest = authority.substr(close + 1);
    } else {
        size_t colon = authority.rfind(':');
        result.host = std::string(authority.substr(0, colon));
        rest = colon == std::string_view::npos ? std::string_view() : authority.substr(colon);
    }
    if (!rest.empty()) {
        if (rest.front() != ':') return std::nullopt;
        rest.remove_prefix(1);
        for (char c : rest) {
            if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
        }
        result.port = std::string(rest);
    }
    if (result.host.empty()) return std::nullopt;
    return result;
}

bool displayAvailable() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value && *value) return true;
    }
    return false;
}

}  // namespace

KeychainWriteError::KeychainWriteError(int status)
    : std::runtime_error("Keyring write failed (OSStatus " + std::to_string(status) + ")"),
      status_(status) {}

KeychainStore::KeychainStore(std::shared_ptr<CredentialBackend> backend)
    : backend_(std::move(backend)) {}

std::string KeychainStore::pythonServiceName(std::string_view coordinatorURL) {
    auto parts = hostAndPort(coordinatorURL);
    if (!parts) return "VarnixCompute Worker (" + std::string(coordinatorURL) + ")";
    if (parts->port.empty()) return "VarnixCompute Worker (" + parts->host + ")";
    return "VarnixCompute Worker (" + parts->host + ":" + parts->port + ")";
}

std::string KeychainStore::cacheKey(std::string_view service, std::string_view account) {
    std::string key(service);
    key += '\0';
    key += account;
    return key;
}

std::optional<std::string> KeychainStore::pythonWorkerToken(std::string_view coordinatorURL,
                                                            std::string_view workerID) {
    auto service = pythonServiceName(coordinatorURL);
    auto key = cacheKey(service, workerID);
    {
        std::lock_guard lock(cacheLock_);
        if (auto it = pythonWorkerTokenCache_.find(key); it != pythonWorkerTokenCache_.end())
            return it->second;
    }
    // Outside the lock: two concurrent misses may both read, and store the same value.
    auto token = read(service, workerID);
    if (token) {
        std::lock_guard lock(cacheLock_);
        pythonWorkerTokenCache_[key] = *token;
    }
    return token;
}

WorkerTokenKeychainRef KeychainStore::storePythonWorkerToken(const std::string& token,
                                                             std::string_view coordinatorURL,
                                                             std::string_view workerID) {
    auto service = pythonServiceName(coordinatorURL);
    write(service, workerID, token);
    {
        std::lock_guard lock(cacheLock_);
        pythonWorkerTokenCache_[cacheKey(service, workerID)] = token;
    }
    return {service, std::string(workerID)};
}

std::optional<std::string> KeychainStore::read(std::string_view account) {
    auto result = backend_->read(std::string(legacyService), std::string(account));
    if (result.status != 0 || !result.data || !isValidUTF8(*result.data)) return std::nullopt;
    return result.data;
}

std::optional<std::string> KeychainStore::read(std::string_view service, std::string_view account) {
    auto result = backend_->read(std::string(service), std::string(account));
    if (result.status != 0 || !result.data) {
        log::get("KeychainStore")
            ->info("Keychain read miss/failure for service={} account={} status={}", service,
                   account, result.status);
        return std::nullopt;
    }
    if (!isValidUTF8(*result.data)) {
        log::get("KeychainStore")
            ->error("Keychain read returned undecodable data for service={} account={}", service,
                    account);
        return std::nullopt;
    }
    return result.data;
}

void KeychainStore::write(std::string_view service, std::string_view account,
                          const std::string& value) {
    if (int status = backend_->write(std::string(service), std::string(account), value);
        status != 0) {
        throw KeychainWriteError(status);
    }
}

void KeychainStore::deleteItem(std::string_view account) {
    deleteItem(legacyService, account);
}

void KeychainStore::deleteItem(std::string_view service, std::string_view account) {
    backend_->remove(std::string(service), std::string(account));
    // A token deleted at sign-out must not be served from the cache afterwards.
    std::lock_guard lock(cacheLock_);
    pythonWorkerTokenCache_.erase(cacheKey(service, account));
}

void KeychainStore::deleteAll() {
    deleteItem("worker_token");
    deleteItem("worker_id");
    backend_->removeAllOfService(std::string(legacyService));
    std::lock_guard lock(cacheLock_);
    pythonWorkerTokenCache_.clear();
}

std::shared_ptr<CredentialBackend> chooseCredentialBackend() {
    auto probe = SecretServiceBackend::probe(displayAvailable());
    if (probe.usable) {
        log::get("KeychainStore")->info("Credential store: Secret Service ({})", probe.reason);
        return std::make_shared<SecretServiceBackend>();
    }
    auto file = std::make_shared<FileCredentialBackend>(FileCredentialBackend::defaultPath());
    log::get("KeychainStore")->info("Credential store: {} ({})", file->description(), probe.reason);
    return file;
}

}  // namespace corvane
