#pragma once
// Removing Corvane from this computer, in an order that never pulls credentials from under a
// running worker: first a systemd user unit of Corvane's is stopped (stopServices), then the
// session signs out (its worker stops, the credentials go), then removeFiles takes the local
// folder (~/.varnix-compute), the model store, the autostart entry, the owner's unit files and,
// when it lives in the owner's own prefix, the program. A program that a package manager owns is
// left to it: the report says which command removes it. A path that cannot be removed doesn't
// stop the rest; the report names it.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct UninstallPaths {
    std::filesystem::path home;            // the owner's prefix lives below it
    std::filesystem::path varnixDir;       // ~/.varnix-compute
    std::filesystem::path modelStore;      // $XDG_DATA_HOME/VarnixCompute
    std::filesystem::path autostartEntry;  // $XDG_CONFIG_HOME/autostart/corvane.desktop
    std::filesystem::path userUnitDir;     // $XDG_CONFIG_HOME/systemd/user
    std::filesystem::path program;         // the installed `corvane`
};

struct UninstallReport {
    enum class Program {
        removed,         // it lived in the owner's prefix and is gone
        packageManaged,  // `removalCommand` removes it
        elsewhere,       // not in a layout Corvane installs: left where it is
        failed,          // in the owner's prefix, but a file of it stayed (see failures)
    };
    struct Failure {
        std::filesystem::path path;
        std::string reason;
        bool programFile = false;  // a file of the program itself
        friend bool operator==(const Failure&, const Failure&) = default;
    };
    std::vector<std::filesystem::path> removed;
    std::vector<Failure> failures;
    Program program = Program::elsewhere;
    std::filesystem::path programPath;
    std::optional<std::string> removalCommand;  // "sudo apt remove corvane"
    bool sampleSession = false;                 // the demo: nothing on disk was touched
    friend bool operator==(const UninstallReport&, const UninstallReport&) = default;
};

class UninstallController {
  public:
    static constexpr const char* unitName = "corvane.service";

    struct Probes {
        // Stops and disables the owner's systemd unit of that name.
        std::function<void(const std::string& unit)> stopUserUnit;
        // The command that removes the package owning `file`; absent when no package does.
        std::function<std::optional<std::string>(const std::filesystem::path& file)> removalCommand;
        // Removes a file or a folder with all it holds; absent: std::filesystem::remove_all.
        std::function<void(const std::filesystem::path&, std::error_code&)> removeAll;
    };

    UninstallController(UninstallPaths paths, Probes probes);
    // This computer's paths, with `program` the running installation's `corvane`.
    static UninstallPaths systemPaths(std::filesystem::path program);
    // systemctl, and dpkg or rpm.
    static Probes systemProbes();

    // Before the sign-out: a unit of the owner's that runs Corvane is stopped and disabled.
    void stopServices();
    // After the sign-out.
    UninstallReport removeFiles();

    // What an installation under `prefix` (bin/corvane's grandparent) holds of Corvane.
    static std::vector<std::filesystem::path> programFiles(const std::filesystem::path& prefix);
    // The owner's unit files of Corvane: the unit itself and its links in *.wants folders.
    std::vector<std::filesystem::path> userUnitFiles() const;

  private:
    void remove(const std::filesystem::path& path, UninstallReport& report,
                bool programFile = false);
    // The prefix of the installation when it lives under the owner's home in a bin/ layout.
    std::optional<std::filesystem::path> ownPrefix() const;

    UninstallPaths paths_;
    Probes probes_;
};

}  // namespace corvane
