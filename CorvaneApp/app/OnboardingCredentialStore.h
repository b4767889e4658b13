#pragma once
// Where onboarding keeps the worker token: the keyring, or the private file on a machine without
// one. Onboarding needs to store it and, when the rest of the enrolment fails, to take it back.

#include <string>

#include "CorvaneApp/config/WorkerTokenKeychainRef.h"

namespace corvane {

class OnboardingCredentialStore {
  public:
    virtual ~OnboardingCredentialStore() = default;
    // Throws when the token can't be stored.
    virtual WorkerTokenKeychainRef storeWorkerToken(const std::string& token,
                                                    const std::string& coordinatorURL,
                                                    const std::string& workerID) = 0;
    // Best effort; never throws.
    virtual void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept = 0;
};

}  // namespace corvane
