#pragma once
// The shape of this subsystem's typed errors: one case per way of failing, with a fixed text.

#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace corvane {

template <typename Case>
class CaseError : public std::exception {
  public:
    const Case& value() const { return value_; }
    const std::string& description() const { return description_; }
    std::optional<std::string> errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  protected:
    CaseError(Case value, std::string description)
        : value_(std::move(value)), description_(std::move(description)) {}

  private:
    Case value_;
    std::string description_;
};

}  // namespace corvane
