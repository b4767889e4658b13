#pragma once
// Where credentials are kept: the items of one (service, account) pair each holding one secret.
// KeychainStore holds the naming and the cache; a backend only stores bytes.

#include <cerrno>
#include <optional>
#include <string>

namespace corvane {

// The answer of one read: `status` 0 with `data`, or an errno-style code (ENOENT for no item).
struct CredentialRead {
    int status = ENOENT;
    std::optional<std::string> data;
};

class CredentialBackend {
  public:
    virtual ~CredentialBackend() = default;

    // "Secret Service" or the file store's path, for the start-up log.
    virtual std::string description() const = 0;

    virtual CredentialRead read(const std::string& service, const std::string& account) = 0;
    // Updates the one item of this pair or adds it; 0 or an errno-style code.
    virtual int write(const std::string& service, const std::string& account,
                      const std::string& secret) = 0;
    // Failures, a missing item included, are ignored.
    virtual void remove(const std::string& service, const std::string& account) = 0;
    // Every item of `service`, whatever its account.
    virtual void removeAllOfService(const std::string& service) = 0;
    // How many items hold this pair (1 at most when the backend is sound).
    virtual int itemCount(const std::string& service, const std::string& account) = 0;
};

}  // namespace corvane
