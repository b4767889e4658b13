#pragma once
// The sample session's credential store: tokens live in memory for the life of the session, so
// that the sample onboarding never touches the owner's keyring or files.

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "CorvaneApp/app/OnboardingCredentialStore.h"

namespace corvane {

class DemoCredentialStore final : public OnboardingCredentialStore {
  public:
    WorkerTokenKeychainRef storeWorkerToken(const std::string& token,
                                            const std::string& coordinatorURL,
                                            const std::string& workerID) override {
        WorkerTokenKeychainRef reference{"Corvane sample (" + coordinatorURL + ")", workerID};
        std::lock_guard lock(mutex_);
        tokens_[{reference.service, reference.account}] = token;
        return reference;
    }
    void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept override {
        std::lock_guard lock(mutex_);
        tokens_.erase({reference.service, reference.account});
    }
    std::optional<std::string> token(const WorkerTokenKeychainRef& reference) const {
        std::lock_guard lock(mutex_);
        auto found = tokens_.find({reference.service, reference.account});
        return found == tokens_.end() ? std::nullopt : std::optional(found->second);
    }

  private:
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, std::string>, std::string> tokens_;  // guarded by mutex_
};

}  // namespace corvane
