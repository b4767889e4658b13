#include "tests/models/TestFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace corvane::testing {

std::string readFile(const std::filesystem::path& path) {
    std::stringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << content)) throw std::runtime_error("cannot write " + path.string());
}

TestFolder::TestFolder(const std::string& prefix)
    : root(std::filesystem::temp_directory_path() /
           (prefix + "-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
    std::filesystem::remove_all(root);
    std::filesystem::create_directories(served);
    server_.emplace(dev::DevCoordinator::Options{.audioDir = served});
}

TestFolder::~TestFolder() {
    server_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

}  // namespace corvane::testing
