#pragma once
// Why Parakeet's model set could not be put on disk; each case has a fixed text.

#include <exception>
#include <string>

namespace corvane {

class ParakeetCacheError : public std::exception {
  public:
    enum class Kind {
        weightsMissingAfterDownload,  // "Parakeet weights missing after download"
        noRuntime,                    // "No runtime on this computer can run Parakeet"
    };

    explicit ParakeetCacheError(Kind kind) : kind_(kind) {}
    Kind kind() const { return kind_; }
    const char* what() const noexcept override {
        return kind_ == Kind::weightsMissingAfterDownload
                   ? "Parakeet weights missing after download"
                   : "No runtime on this computer can run Parakeet";
    }

  private:
    Kind kind_;
};

}  // namespace corvane
