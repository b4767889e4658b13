#pragma once
// A route path with at most one "{}" placeholder, such as "/api/v1/jobs/{}/result". The
// placeholder takes any non-empty text, "/" included, since job ids may carry slashes.

#include <optional>
#include <string>
#include <string_view>

namespace corvane::dev {

class PathPattern {
  public:
    explicit PathPattern(std::string_view pattern);

    // The placeholder's text (empty for a pattern without one), or absent when `path` does not
    // fit.
    std::optional<std::string> match(std::string_view path) const;

  private:
    std::string head_;
    std::string tail_;
    bool hasPlaceholder_ = false;
};

}  // namespace corvane::dev
