#pragma once
// Shared pieces of the enrolment suites: a temp folder, fixture files, and fakes for the
// registration client and the credential store.

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"

namespace corvane::testing {

// A fresh folder under the system's temp dir, removed at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    // Writes `contents` to `relative`, creating folders.
    std::filesystem::path write(const std::filesystem::path& relative, const std::string& contents) const;

private:
    std::filesystem::path path_;
};

std::string readText(const std::filesystem::path& path);

// Answers with a scripted response or error, and remembers each call.
class FakeRegistration final : public CoordinatorRegistering {
public:
    struct Call {
        std::string coordinatorURL;
        std::optional<std::string> enrollmentToken;
        WorkerRegistrationRequest request;
    };
    std::function<WorkerRegistrationResponse(const Call&)> answer = [](const Call& call) {
        return WorkerRegistrationResponse{call.request.workerID, "wt-secret-123", "registered"};
    };
    std::vector<Call> calls;

    WorkerRegistrationResponse registerWorker(std::string_view coordinatorURL,
                                              const std::optional<std::string>& enrollmentToken,
                                              const WorkerRegistrationRequest& request) override;
};

// Keeps tokens in memory; can be told to fail the next stores.
class FakeCredentialStore final : public OnboardingCredentialStore {
public:
    int failuresLeft = 0;
    std::map<std::string, std::string> tokens;  // "service|account" -> token
    int removals = 0;

    WorkerTokenKeychainRef storeWorkerToken(const std::string& token, const std::string& coordinatorURL,
                                            const std::string& workerID) override;
    void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept override;
};

}  // namespace corvane::testing
