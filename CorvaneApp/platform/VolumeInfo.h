#pragma once
// The size and free space of a file system, in gigabytes of 2 to the 30th bytes.

#include <filesystem>
#include <optional>

namespace corvane {

struct VolumeInfo {
    double totalGB = 0;
    double freeGB = 0;  // what an unprivileged program may still write

    friend bool operator==(const VolumeInfo&, const VolumeInfo&) = default;

    // The volume that holds `path`; absent when it can't be asked (no such path).
    static std::optional<VolumeInfo> of(const std::filesystem::path& path);
    // The volume of the home directory, where the model weights live.
    static std::optional<VolumeInfo> current();
};

}  // namespace corvane
