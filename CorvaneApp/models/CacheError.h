#pragma once
// Why the model cache could not put a model on disk; each case has a fixed text.

#include <cstdint>
#include <exception>
#include <string>

namespace corvane {

class CacheError : public std::exception {
  public:
    enum class Kind { httpError, sha256Mismatch, ioError, cancelled };

    static CacheError httpError(std::int64_t status);
    static CacheError sha256Mismatch(std::string expected, std::string actual);
    static CacheError ioError(std::string path);
    static CacheError cancelled();

    Kind kind() const { return kind_; }
    std::int64_t status() const { return status_; }
    const std::string& expected() const { return expected_; }
    const std::string& actual() const { return actual_; }
    const std::string& path() const { return path_; }

    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    CacheError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
    std::int64_t status_ = 0;
    std::string expected_;
    std::string actual_;
    std::string path_;
};

}  // namespace corvane
