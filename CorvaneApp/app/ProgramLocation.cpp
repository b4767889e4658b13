#include "CorvaneApp/app/ProgramLocation.h"

#include <unistd.h>

namespace corvane {

std::filesystem::path corvaneLauncherPath(const std::filesystem::path& runningImage) {
    if (runningImage.filename() == "corvane") return runningImage;
    const auto folder = runningImage.parent_path();
    for (const auto& candidate :
         {folder / "corvane", (folder / ".." / ".." / "bin" / "corvane").lexically_normal()}) {
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return "corvane";
}

std::filesystem::path corvaneLauncherPath() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path("corvane") : corvaneLauncherPath(self);
}

}  // namespace corvane
