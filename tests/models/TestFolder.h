#pragma once
// A fresh folder per test, removed afterwards, with a loopback server (the local coordinator)
// serving its "served" subfolder at "/audio/<name>"; and whole-file reads and writes.

#include <filesystem>
#include <memory>
#include <string>

#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {

std::string readFile(const std::filesystem::path& path);
// Creates the parent folders; throws when the file cannot be written.
void writeFile(const std::filesystem::path& path, const std::string& content);

class TestFolder {
public:
    // The folder's name carries `prefix`, the process and the running test's name.
    explicit TestFolder(const std::string& prefix);
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path served() const { return root_ / "served"; }
    dev::DevCoordinator& server() const { return *server_; }
    std::string url(const std::string& path) const { return server_->baseURL() + path; }

private:
    std::filesystem::path root_;
    std::unique_ptr<dev::DevCoordinator> server_;
};

}  // namespace corvane::testing
