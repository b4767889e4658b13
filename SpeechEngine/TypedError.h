#pragma once
// The shape every error of the engine shares: a case and the fixed text made for it.

#include <exception>
#include <string>
#include <utility>

namespace speech {

template <typename KindType>
class TypedError : public std::exception {
  public:
    using Kind = KindType;

    Kind kind() const { return kind_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  protected:
    TypedError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

  private:
    Kind kind_;
    std::string description_;
};

}  // namespace speech
