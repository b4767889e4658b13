#pragma once
// Shared pieces of the enrolment suites: a temp folder, and fakes for the registration client and
// the credential store.

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"

namespace corvane::testing {

// A fresh folder under the system's temp dir, removed at the end.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "enrol-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempDir() { std::filesystem::remove_all(path_, ignored_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path write(const std::filesystem::path& relative, const std::string& contents) const {
        const auto full = path_ / relative;
        std::filesystem::create_directories(full.parent_path());
        std::ofstream(full, std::ios::binary) << contents;
        return full;
    }

private:
    std::filesystem::path path_;
    std::error_code ignored_;
};

inline std::string readText(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

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
                                              const WorkerRegistrationRequest& request) override {
        calls.push_back({std::string(coordinatorURL), enrollmentToken, request});
        return answer(calls.back());
    }
};

// Keeps tokens in memory; can be told to fail the next stores.
class FakeCredentialStore final : public OnboardingCredentialStore {
public:
    int failuresLeft = 0;
    std::map<std::string, std::string> tokens;  // "service|account" -> token
    int removals = 0;

    WorkerTokenKeychainRef storeWorkerToken(const std::string& token, const std::string& coordinatorURL,
                                            const std::string& workerID) override {
        if (failuresLeft > 0 && failuresLeft--) throw std::runtime_error("keyring locked");
        WorkerTokenKeychainRef reference{"VarnixCompute Worker (" + coordinatorURL + ")", workerID};
        tokens[reference.service + "|" + reference.account] = token;
        return reference;
    }
    void removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept override {
        ++removals;
        tokens.erase(reference.service + "|" + reference.account);
    }
};

}  // namespace corvane::testing
