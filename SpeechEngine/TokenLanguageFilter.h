#pragma once
// A hook that may swap a proposed token for one of the joint's top-K alternatives whose script
// fits the requested language. The recogniser runs without one unless a caller installs it.

#include <optional>
#include <span>
#include <string>

namespace speech {

struct FilteredToken {
    int token = 0;
    float score = 0.0f;
};

class TokenLanguageFilter {
  public:
    virtual ~TokenLanguageFilter() = default;
    // Absent keeps the joint's own choice.
    virtual std::optional<FilteredToken> filter(int label, float score,
                                                std::span<const float> topKIds,
                                                std::span<const float> topKLogits,
                                                const std::string& language) const = 0;
};

}  // namespace speech
