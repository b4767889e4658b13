#include "tests/models/TestFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace corvane::testing {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

TestFolder::TestFolder(const std::string& prefix) {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = std::filesystem::temp_directory_path() /
            (prefix + "-" + std::to_string(::getpid()) + "-" + (test ? test->name() : "none"));
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(served());
    server_ = std::make_unique<dev::DevCoordinator>(dev::DevCoordinator::Options{.audioDir = served()});
}

TestFolder::~TestFolder() {
    server_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

}  // namespace corvane::testing
