#pragma once
// Where the `corvane` command of this installation is, whichever of its two images asks: itself,
// or the tray application beside it (a build tree) or in libexec/corvane (an installation).

#include <filesystem>

namespace corvane {

// `runningImage` is the running program (/proc/self/exe). Falls back to the bare name "corvane"
// (found on PATH) when no launcher is where the layouts put it.
std::filesystem::path corvaneLauncherPath(const std::filesystem::path& runningImage);
std::filesystem::path corvaneLauncherPath();

}  // namespace corvane
