#pragma once
// The worker's bearer token and the legacy items of the earlier daemon, kept in the keyring
// under that daemon's naming so that a machine it enrolled stays enrolled. Reads of the token
// are cached for the life of the store (one per process). Safe to use from any thread.

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CorvaneApp/config/CredentialBackend.h"
#include "CorvaneApp/config/WorkerTokenKeychainRef.h"

namespace corvane {

// A failed keyring write; its text carries the status, never the secret.
class KeychainWriteError : public std::runtime_error {
  public:
    explicit KeychainWriteError(int status);
    int status() const { return status_; }

  private:
    int status_;
};

class KeychainStore {
  public:
    static constexpr std::string_view legacyService = "varnix-compute";

    explicit KeychainStore(std::shared_ptr<CredentialBackend> backend);

    // "VarnixCompute Worker (host:port)", "VarnixCompute Worker (host)", or the whole text in
    // the parentheses when it is no URL with a host.
    static std::string pythonServiceName(std::string_view coordinatorURL);

    // The token, from the cache when it was read or stored before; misses aren't cached.
    std::optional<std::string> pythonWorkerToken(std::string_view coordinatorURL,
                                                 std::string_view workerID);
    // Writes the token, then caches it. Throws KeychainWriteError; the cache is then unchanged.
    WorkerTokenKeychainRef storePythonWorkerToken(const std::string& token,
                                                  std::string_view coordinatorURL,
                                                  std::string_view workerID);

    // An item of the legacy service; not cached, not logged.
    std::optional<std::string> read(std::string_view account);
    // Any item; not cached. Misses and undecodable data are logged and give nothing.
    std::optional<std::string> read(std::string_view service, std::string_view account);
    // Update or add; throws KeychainWriteError.
    void write(std::string_view service, std::string_view account, const std::string& value);
    // Deletes ignore failures: deleting what isn't there is harmless. A deleted token leaves
    // the cache as well.
    void deleteItem(std::string_view account);
    void deleteItem(std::string_view service, std::string_view account);
    // The legacy items and every other item of the legacy service, then the cache. Items named
    // by pythonServiceName stay; their owners delete them with deleteItem(service, account).
    void deleteAll();

    const CredentialBackend& backend() const { return *backend_; }

  private:
    static std::string cacheKey(std::string_view service, std::string_view account);

    const std::shared_ptr<CredentialBackend> backend_;
    std::mutex cacheLock_;
    std::map<std::string, std::string> pythonWorkerTokenCache_;  // guarded by cacheLock_
};

// Picks the keyring when a Secret Service is usable, else the 0600 file store, and logs the
// choice and why. Made once at start.
std::shared_ptr<CredentialBackend> chooseCredentialBackend();

}  // namespace corvane
