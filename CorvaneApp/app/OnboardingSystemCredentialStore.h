#pragma once
// Onboarding's credential store over the application's KeychainStore: the keyring, or the 0600
// file store on a machine where no Secret Service answers.

#include <memory>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/config/KeychainStore.h"

namespace corvane {

class OnboardingSystemCredentialStore final : public OnboardingCredentialStore {
  public:
    explicit OnboardingSystemCredentialStore(std::shared_ptr<KeychainStore> keychain)
        : keychain_(std::move(keychain)) {}

    WorkerTokenKeychainRef storeWorkerToken(const std::string& token,
                                            const std::string& coordinatorURL,
                                            const std::string& workerID) override {
        return keychain_->storePythonWorkerToken(token, coordinatorURL, workerID);
    }
    void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept override {
        try {
            keychain_->deleteItem(reference.service, reference.account);
        } catch (...) {
            // Best effort: without config.yaml the machine is not enrolled either way.
        }
    }

  private:
    std::shared_ptr<KeychainStore> keychain_;
};

// The store over the backend chosen for this system.
inline std::shared_ptr<OnboardingCredentialStore> makeSystemCredentialStore() {
    return std::make_shared<OnboardingSystemCredentialStore>(
        std::make_shared<KeychainStore>(chooseCredentialBackend()));
}

}  // namespace corvane
