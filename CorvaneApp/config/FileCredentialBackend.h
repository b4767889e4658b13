#pragma once
// Credentials in one JSON file readable only by the owner (0600, in a 0700 folder), replaced
// atomically on every change: the store for machines without a Secret Service.

#include <filesystem>
#include <mutex>

#include "CorvaneApp/config/CredentialBackend.h"

namespace corvane {

class FileCredentialBackend final : public CredentialBackend {
  public:
    // ~/.varnix-compute/credentials
    static std::filesystem::path defaultPath();

    explicit FileCredentialBackend(std::filesystem::path path);

    std::string description() const override;
    CredentialRead read(const std::string& service, const std::string& account) override;
    int write(const std::string& service, const std::string& account,
              const std::string& secret) override;
    void remove(const std::string& service, const std::string& account) override;
    void removeAllOfService(const std::string& service) override;
    int itemCount(const std::string& service, const std::string& account) override;

  private:
    const std::filesystem::path path_;
    // Serialises read-modify-write within the process; the rename keeps other readers whole.
    std::mutex mutex_;
};

}  // namespace corvane
