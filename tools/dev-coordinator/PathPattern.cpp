#include "tools/dev-coordinator/PathPattern.h"

namespace corvane::dev {

PathPattern::PathPattern(std::string_view pattern) {
    auto mark = pattern.find("{}");
    hasPlaceholder_ = mark != std::string_view::npos;
    head_ = pattern.substr(0, mark);
    if (hasPlaceholder_) tail_ = pattern.substr(mark + 2);
}

std::optional<std::string> PathPattern::match(std::string_view path) const {
    if (!hasPlaceholder_) return path == head_ ? std::optional<std::string>("") : std::nullopt;
    if (path.size() <= head_.size() + tail_.size()) return std::nullopt;
    if (!path.starts_with(head_) || !path.ends_with(tail_)) return std::nullopt;
    return std::string(path.substr(head_.size(), path.size() - head_.size() - tail_.size()));
}

}  // namespace corvane::dev
