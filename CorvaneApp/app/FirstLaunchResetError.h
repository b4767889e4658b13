#pragma once
// Resetting to the first launch is for the sample session only: a real one refuses with this.

#include <stdexcept>

namespace corvane {

class Session;

class FirstLaunchResetError : public std::runtime_error {
  public:
    enum class Kind { notAvailableInRealDataMode };

    static FirstLaunchResetError notAvailableInRealDataMode() {
        return FirstLaunchResetError(Kind::notAvailableInRealDataMode);
    }
    Kind kind() const { return kind_; }
    const char* errorDescription() const { return what(); }

  private:
    explicit FirstLaunchResetError(Kind kind)
        : std::runtime_error("resetToFirstLaunchState is dummy-data-mode only"), kind_(kind) {}
    Kind kind_;
};

// The session's own reset when it offers one; otherwise logs the refusal and throws
// FirstLaunchResetError, changing nothing.
void resetToFirstLaunchState(Session& session);

}  // namespace corvane
