#include "tests/enrol/EnrolTestSupport.h"

#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace corvane::testing {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "enrol-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code error;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, error);
    std::filesystem::remove_all(path_, error);
}

std::filesystem::path TempDir::write(const std::filesystem::path& relative, const std::string& contents) const {
    const auto full = path_ / relative;
    std::filesystem::create_directories(full.parent_path());
    std::ofstream(full, std::ios::binary) << contents;
    return full;
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

WorkerRegistrationResponse FakeRegistration::registerWorker(std::string_view coordinatorURL,
                                                            const std::optional<std::string>& enrollmentToken,
                                                            const WorkerRegistrationRequest& request) {
    calls.push_back({std::string(coordinatorURL), enrollmentToken, request});
    return answer(calls.back());
}

WorkerTokenKeychainRef FakeCredentialStore::storeWorkerToken(const std::string& token, const std::string& coordinatorURL,
                                                             const std::string& workerID) {
    if (failuresLeft > 0) {
        --failuresLeft;
        throw std::runtime_error("keyring locked");
    }
    WorkerTokenKeychainRef reference{"VarnixCompute Worker (" + coordinatorURL + ")", workerID};
    tokens[reference.service + "|" + reference.account] = token;
    return reference;
}

void FakeCredentialStore::removeWorkerToken(const WorkerTokenKeychainRef& reference) noexcept {
    ++removals;
    tokens.erase(reference.service + "|" + reference.account);
}

}  // namespace corvane::testing
