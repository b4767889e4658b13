#pragma once
// Credentials in the desktop keyring through the Secret Service (libsecret). Items carry the
// attributes "service" and "account", so any Secret Service client can find them.

#include <string>

#include "CorvaneApp/config/CredentialBackend.h"

namespace corvane {

class SecretServiceBackend final : public CredentialBackend {
  public:
    struct Probe {
        bool usable = false;
        std::string reason;
    };
    // Whether a Secret Service answers on the session bus and can be used without hanging: an
    // unset bus address, a missing service, or a locked keyring with no display to unlock it
    // mean no. Every bus call here is bounded by a short timeout.
    static Probe probe(bool displayAvailable);

    std::string description() const override { return "Secret Service"; }
    CredentialRead read(const std::string& service, const std::string& account) override;
    int write(const std::string& service, const std::string& account,
              const std::string& secret) override;
    void remove(const std::string& service, const std::string& account) override;
    void removeAllOfService(const std::string& service) override;
    int itemCount(const std::string& service, const std::string& account) override;
};

}  // namespace corvane
