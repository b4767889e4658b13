#include "CorvaneApp/platform/VolumeInfo.h"

#include <sys/statvfs.h>

#include "CorvaneApp/platform/Paths.h"

namespace corvane {

std::optional<VolumeInfo> VolumeInfo::of(const std::filesystem::path& path) {
    struct statvfs stats {};
    if (::statvfs(path.c_str(), &stats) != 0) return std::nullopt;
    constexpr double gib = 1024.0 * 1024.0 * 1024.0;
    const double unit = double(stats.f_frsize ? stats.f_frsize : stats.f_bsize);
    return VolumeInfo{double(stats.f_blocks) * unit / gib, double(stats.f_bavail) * unit / gib};
}

std::optional<VolumeInfo> VolumeInfo::current() {
    return of(paths::home());
}

}  // namespace corvane
