#include "CorvaneApp/app/UninstallController.h"

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Paths.h"
#include "CorvaneApp/platform/Subprocess.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

bool present(const fs::path& path) {
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found && !error;
}

bool isWithin(const fs::path& path, const fs::path& folder) {
    const auto relative = path.lexically_normal().lexically_relative(folder.lexically_normal());
    return !relative.empty() && *relative.begin() != "..";
}

}  // namespace

UninstallController::UninstallController(UninstallPaths paths, Probes probes)
    : paths_(std::move(paths)), probes_(std::move(probes)) {}

UninstallPaths UninstallController::systemPaths(fs::path program) {
    UninstallPaths paths;
    paths.home = paths::home();
    paths.varnixDir = paths::varnixDir();
    paths.modelStore = paths::dataHome() / "VarnixCompute";
    paths.autostartEntry = paths::configHome() / "autostart" / "corvane.desktop";
    paths.userUnitDir = paths::configHome() / "systemd" / "user";
    std::error_code error;
    auto resolved = fs::weakly_canonical(program, error);
    paths.program = error ? std::move(program) : std::move(resolved);
    return paths;
}

UninstallController::Probes UninstallController::systemProbes() {
    Probes probes;
    probes.stopUserUnit = [](const std::string& unit) {
        const auto result = runSubprocess({"systemctl", "--user", "disable", "--now", unit});
        if (result.exitStatus != 0) {
            log::get("Uninstall")
                ->warn("systemctl --user disable --now {} ended with {}", unit, result.exitStatus);
        }
    };
    probes.removalCommand = [](const fs::path& file) -> std::optional<std::string> {
        // dpkg answers "package: /path" (or "package:arch: /path").
        const auto dpkg = runSubprocess({"dpkg-query", "-S", file.string()});
        if (dpkg.exitStatus == 0) {
            const auto colon = dpkg.output.find(':');
            if (colon != std::string::npos && colon > 0)
                return "sudo apt remove " +
                       std::string(trimAsciiWhitespace(dpkg.output.substr(0, colon)));
        }
        const auto rpm = runSubprocess({"rpm", "-qf", "--queryformat", "%{NAME}", file.string()});
        if (rpm.exitStatus == 0 && !trimAsciiWhitespace(rpm.output).empty())
            return "sudo dnf remove " + std::string(trimAsciiWhitespace(rpm.output));
        return std::nullopt;
    };
    return probes;
}

std::vector<fs::path> UninstallController::programFiles(const fs::path& prefix) {
    return {prefix / "bin" / "corvane",
            prefix / "libexec" / "corvane",
            prefix / "lib" / "corvane",
            prefix / "lib64" / "corvane",
            prefix / "share" / "applications" / "corvane.desktop",
            prefix / "share" / "icons" / "hicolor" / "scalable" / "apps" / "corvane.svg",
            prefix / "share" / "systemd" / "user" / unitName,
            prefix / "lib" / "systemd" / "user" / unitName,
            prefix / "etc" / "xdg" / "autostart" / "corvane.desktop"};
}

std::vector<fs::path> UninstallController::userUnitFiles() const {
    std::vector<fs::path> files;
    if (present(paths_.userUnitDir / unitName)) files.push_back(paths_.userUnitDir / unitName);
    std::error_code error;
    for (fs::directory_iterator it(paths_.userUnitDir, error), end; !error && it != end;
         it.increment(error)) {
        const auto link = it->path() / unitName;
        if (it->path().extension() == ".wants" && present(link)) files.push_back(link);
    }
    return files;
}

std::optional<fs::path> UninstallController::ownPrefix() const {
    const fs::path& program = paths_.program;
    if (!program.is_absolute() || !isWithin(program, paths_.home)) return std::nullopt;
    if (program.filename() != "corvane" || program.parent_path().filename() != "bin")
        return std::nullopt;
    return program.parent_path().parent_path();
}

void UninstallController::stopServices() {
    if (!userUnitFiles().empty() && probes_.stopUserUnit) probes_.stopUserUnit(unitName);
}

void UninstallController::remove(const fs::path& path, UninstallReport& report, bool programFile) {
    if (!present(path)) return;
    std::error_code error;
    if (probes_.removeAll) {
        probes_.removeAll(path, error);
    } else {
        fs::remove_all(path, error);
    }
    if (error) {
        log::get("Uninstall")->warn("cannot remove {}: {}", path.string(), error.message());
        report.failures.push_back({path, error.message(), programFile});
        return;
    }
    report.removed.push_back(path);
}

UninstallReport UninstallController::removeFiles() {
    UninstallReport report;
    for (const auto& path : {paths_.varnixDir, paths_.modelStore, paths_.autostartEntry})
        remove(path, report);
    for (const auto& unit : userUnitFiles()) remove(unit, report);

    report.programPath = paths_.program;
    if (const auto prefix = ownPrefix()) {
        const auto failuresBefore = report.failures.size();
        for (const auto& file : programFiles(*prefix)) remove(file, report, true);
        report.program = report.failures.size() == failuresBefore
                             ? UninstallReport::Program::removed
                             : UninstallReport::Program::failed;
    } else if (paths_.program.is_absolute() && !isWithin(paths_.program, paths_.home) &&
               probes_.removalCommand) {
        report.removalCommand = probes_.removalCommand(paths_.program);
        if (report.removalCommand) report.program = UninstallReport::Program::packageManaged;
    }
    log::get("Uninstall")
        ->info("uninstall removed {} paths, {} could not be removed", report.removed.size(),
               report.failures.size());
    return report;
}

}  // namespace corvane
