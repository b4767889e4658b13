#pragma once
// A model repository on the hub: its name, where it lives there, and the local folder it fills.

#include <optional>
#include <string>
#include <vector>

namespace speech {

class Repo {
  public:
    enum class Id { parakeetV2, parakeetV3, parakeetTdtCtc110m, parakeetJa };
    static constexpr const char* defaultOwner = "parakeet-models/";

    constexpr explicit Repo(Id id) : id_(id) {}
    Id id() const { return id_; }

    // "parakeet-tdt-0.6b-v2-coreml"
    std::string name() const;
    // owner joined with the name: "parakeet-models/parakeet-tdt-0.6b-v2-coreml"
    std::string remotePath(const std::string& owner = defaultOwner) const;
    // the name without "-coreml": the local folder
    std::string folderName() const;
    // the folder inside the repository for repositories with variants; none of ours has one
    std::optional<std::string> subPath() const { return std::nullopt; }

    // What a complete local folder of this repository holds: preprocessor, encoder (when the
    // set has one), decoder, joint, then the vocabulary.
    std::vector<std::string> requiredModelNames() const;

    bool operator==(const Repo&) const = default;

  private:
    Id id_;
};

}  // namespace speech
