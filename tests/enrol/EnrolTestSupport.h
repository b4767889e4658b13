#pragma once
// Fakes for the registration client and the credential store, shared by the enrolment suites.

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"
#include "tests/support/ScratchFolder.h"

namespace corvane::testing {

// Answers with a scripted response or error, and remembers each call.
class FakeRegistration final : public CoordinatorRegistering {
  public:
    struct Call {
        std::optional<std::string> enrollmentToken;
        WorkerRegistrationRequest request;
    };
    std::function<WorkerRegistrationResponse(const Call&)> answer = [](const Call& call) {
        return WorkerRegistrationResponse{call.request.workerID, "wt-secret-123", "registered"};
    };
    std::vector<Call> calls;

    WorkerRegistrationResponse registerWorker(std::string_view,
                                              const std::optional<std::string>& enrollmentToken,
                                              const WorkerRegistrationRequest& request) override {
        calls.push_back({enrollmentToken, request});
        return answer(calls.back());
    }
};

// Keeps tokens in memory, keyed "service|account"; can be told to fail the next stores.
class FakeCredentialStore final : public OnboardingCredentialStore {
  public:
    int failuresLeft = 0;
    std::map<std::string, std::string> tokens;

    WorkerTokenKeychainRef storeWorkerToken(const std::string& token,
                                            const std::string& coordinatorURL,
                                            const std::string& workerID) override {
        if (failuresLeft > 0 && failuresLeft--) throw std::runtime_error("keyring locked");
        WorkerTokenKeychainRef reference{"VarnixCompute Worker (" + coordinatorURL + ")", workerID};
        tokens[reference.service + "|" + reference.account] = token;
        return reference;
    }
    void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept override {
        tokens.erase(reference.service + "|" + reference.account);
    }
};

}  // namespace corvane::testing
