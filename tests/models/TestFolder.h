#pragma once
// A fresh folder per test with the local coordinator serving its "served" subfolder at
// "/audio/<name>" on 127.0.0.1; and whole-file reads and writes.

#include <filesystem>
#include <optional>
#include <string>

#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {

std::string readFile(const std::filesystem::path& path);
// Creates the parent folders; throws when the file cannot be written.
void writeFile(const std::filesystem::path& path, const std::string& content);

class TestFolder {
  public:
    explicit TestFolder(const std::string& prefix);
    ~TestFolder();

    const std::filesystem::path root;
    const std::filesystem::path served = root / "served";
    dev::DevCoordinator& server() { return *server_; }
    std::string url(const std::string& path) const { return server_->baseURL() + path; }

  private:
    std::optional<dev::DevCoordinator> server_;
};

}  // namespace corvane::testing
