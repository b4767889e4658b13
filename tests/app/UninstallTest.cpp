// The ways out that touch files, in a scratch home: uninstall removes exactly what is Corvane's
// (a file of the owner's beside it stays), carries on past a path it cannot remove, and leaves a
// packaged program to its package manager; the login item writes, hides and removes the owner's
// autostart entry.

#include <gtest/gtest.h>

#include <set>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/app/FirstLaunchResetError.h"
#include "CorvaneApp/app/LoginItemManager.h"
#include "CorvaneApp/app/UninstallController.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Every file and link below `root`, relative to it.
std::set<std::string> tree(const fs::path& root) {
    std::set<std::string> names;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
         ++it) {
        if (!it->is_directory() || it->is_symlink())
            names.insert(fs::relative(it->path(), root).string());
    }
    return names;
}

class UninstallTest : public ::testing::Test {
  protected:
    UninstallTest() {
        paths.home = home.path();
        paths.varnixDir = home / ".varnix-compute";
        paths.modelStore = home / ".local/share/VarnixCompute";
        paths.autostartEntry = home / ".config/autostart/corvane.desktop";
        paths.userUnitDir = home / ".config/systemd/user";
        paths.program = home / ".local/bin/corvane";
        for (const char* file :
             {".varnix-compute/config.yaml", ".varnix-compute/credentials",
              ".local/share/VarnixCompute/models/whisper--1/ggml.bin",
              ".config/autostart/corvane.desktop", ".config/systemd/user/corvane.service",
              ".local/bin/corvane", ".local/libexec/corvane/corvane-desktop",
              ".local/lib/corvane/libwhisper.so.1", ".local/share/applications/corvane.desktop",
              ".local/share/icons/hicolor/scalable/apps/corvane.svg",
              ".local/share/systemd/user/corvane.service",
              ".local/etc/xdg/autostart/corvane.desktop"}) {
            home.write(file, "corvane's");
        }
        fs::create_directories(home / ".config/systemd/user/default.target.wants");
        fs::create_symlink(home / ".config/systemd/user/corvane.service",
                           home / ".config/systemd/user/default.target.wants/corvane.service");
        // The owner's own files, beside Corvane's.
        for (const char* file :
             {".varnix-compute-notes.txt", ".local/share/OtherApp/data",
              ".config/autostart/other.desktop", ".config/systemd/user/other.service",
              ".local/bin/other-tool", ".local/lib/other/libother.so",
              ".local/share/applications/other.desktop"}) {
            home.write(file, "the owner's");
        }
        probes.stopUserUnit = [this](const std::string& unit) { stopped.push_back(unit); };
        probes.removalCommand = [this](const fs::path& file) -> std::optional<std::string> {
            asked.push_back(file);
            return packageCommand;
        };
    }

    testing::ScratchFolder home;
    UninstallPaths paths;
    UninstallController::Probes probes;
    std::vector<std::string> stopped;
    std::vector<fs::path> asked;
    std::optional<std::string> packageCommand;
};

TEST_F(UninstallTest, RemovesExactlyCorvanesPathsAndTheOwnersFilesStay) {
    UninstallController controller(paths, probes);
    controller.stopServices();
    EXPECT_EQ(stopped, std::vector<std::string>{"corvane.service"});
    const auto report = controller.removeFiles();
    EXPECT_EQ(tree(home.path()),
              (std::set<std::string>{".varnix-compute-notes.txt", ".local/share/OtherApp/data",
                                     ".config/autostart/other.desktop",
                                     ".config/systemd/user/other.service", ".local/bin/other-tool",
                                     ".local/lib/other/libother.so",
                                     ".local/share/applications/other.desktop"}));
    EXPECT_TRUE(report.failures.empty());
    EXPECT_EQ(report.program, UninstallReport::Program::removed);
    EXPECT_TRUE(asked.empty()) << "a program in the owner's prefix is no package's";
    EXPECT_EQ(report.removed.front(), paths.varnixDir);
}

TEST_F(UninstallTest, APathThatCannotBeRemovedIsNamedAndTheRestStillGoes) {
    // Two folders refuse to go, as a folder of another owner or a busy mount would.
    const std::set<fs::path> stuck{home / ".local/share/VarnixCompute",
                                   home / ".local/libexec/corvane"};
    probes.removeAll = [&](const fs::path& path, std::error_code& error) {
        if (stuck.contains(path)) {
            error = std::make_error_code(std::errc::permission_denied);
            return;
        }
        fs::remove_all(path, error);
    };
    const auto report = UninstallController(paths, probes).removeFiles();
    ASSERT_EQ(report.failures.size(), 2u);
    EXPECT_EQ(report.failures[0], (UninstallReport::Failure{home / ".local/share/VarnixCompute",
                                                            "Permission denied", false}));
    EXPECT_EQ(report.failures[1], (UninstallReport::Failure{home / ".local/libexec/corvane",
                                                            "Permission denied", true}));
    EXPECT_EQ(report.program, UninstallReport::Program::failed);
    for (const auto& gone :
         {paths.varnixDir, paths.autostartEntry, home / ".local/bin/corvane",
          home / ".local/lib/corvane", home / ".config/systemd/user/corvane.service"})
        EXPECT_FALSE(fs::exists(gone)) << gone;
    EXPECT_TRUE(fs::exists(home / ".local/share/VarnixCompute/models/whisper--1/ggml.bin"));
}

TEST_F(UninstallTest, AProgramOutsideTheHomeIsLeftToItsPackageManager) {
    fs::remove_all(home / ".config/systemd");
    for (auto [program, command, expected] :
         std::vector<std::tuple<fs::path, std::optional<std::string>, UninstallReport::Program>>{
             {"/usr/bin/corvane", "sudo apt remove corvane",
              UninstallReport::Program::packageManaged},
             {"/opt/corvane/bin/corvane", std::nullopt, UninstallReport::Program::elsewhere},
             // A build tree in the home: not a layout Corvane installs, so not removed.
             {home / "src/corvane/build/CorvaneApp/corvane", std::nullopt,
              UninstallReport::Program::elsewhere}}) {
        paths.program = program;
        packageCommand = command;
        const auto report = UninstallController(paths, probes).removeFiles();
        EXPECT_EQ(report.program, expected) << program;
        EXPECT_EQ(report.removalCommand, command);
        EXPECT_EQ(report.programPath, program);
    }
    EXPECT_EQ(asked, (std::vector<fs::path>{"/usr/bin/corvane", "/opt/corvane/bin/corvane"}));
    EXPECT_TRUE(stopped.empty());
    EXPECT_TRUE(fs::exists(home / ".local/bin/corvane")) << "not the running installation's";
}

TEST(LoginItemManager, WritesHidesAndRemovesTheOwnersAutostartEntry) {
    testing::ScratchFolder root;
    LoginItemManager::Paths paths{
        root / "config/autostart", {root / "etc/xdg/autostart"}, "/home/o wner/.local/bin/corvane"};
    LoginItemManager items(paths);
    EXPECT_FALSE(items.isEnabled());
    items.setEnabled(true);  // the folder does not exist yet
    EXPECT_TRUE(items.isEnabled());
    const auto entry = readFile(root / "config/autostart/corvane.desktop").value_or("");
    EXPECT_NE(entry.find("\nExec=\"/home/o wner/.local/bin/corvane\"\n"), std::string::npos)
        << entry;
    EXPECT_EQ(entry.rfind("[Desktop Entry]\n", 0), 0u);
    items.setEnabled(false);
    EXPECT_FALSE(fs::exists(root / "config/autostart/corvane.desktop"));
    EXPECT_TRUE(fs::exists(root / "config/autostart")) << "the folder is the owner's";

    // A package's system-wide entry: turning it off takes an entry of the owner's that hides it.
    root.write("etc/xdg/autostart/corvane.desktop", LoginItemManager::entryText("corvane", false));
    EXPECT_TRUE(items.isEnabled());
    items.setEnabled(false);
    EXPECT_FALSE(items.isEnabled());
    EXPECT_NE(readFile(root / "config/autostart/corvane.desktop").value_or("").find("Hidden=true"),
              std::string::npos);
    items.setEnabled(true);
    EXPECT_TRUE(items.isEnabled());

    root.write("config/autostart/corvane.desktop",
               "[Desktop Entry]\nExec=corvane\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(items.isEnabled()) << "GNOME's own switch counts";
}

TEST(LoginItemManager, AnAutostartFolderThatCannotBeMadeSaysWhy) {
    testing::ScratchFolder root;
    root.write("config", "a file where the config folder goes");
    LoginItemManager items({root / "config/autostart", {}, "/usr/bin/corvane"});
    EXPECT_THROW(items.setEnabled(true), std::filesystem::filesystem_error);
    EXPECT_FALSE(items.isEnabled());
}

TEST(FirstLaunchReset, ARealSessionRefusesAndChangesNothing) {
    testing::ScratchFolder folder;
    testing::ManualExecutor main;
    testing::LogCapture logs;
    AppEnvironment env;
    env.configPath = folder.write("varnix/config.yaml",
                                  "coordinator_url: \"http://127.0.0.1:9\"\nworker_id: \"w1\"\n");
    env.runtimeStatePath = folder / "varnix/worker-runtime-state.json";
    env.modelRoot = folder / "models";
    env.parakeetDirectory = folder / "models/parakeet";
    env.tempDirectory = folder / "shards";
    env.userDefaultsFile = folder / "defaults.json";
    env.credentials = std::make_shared<FileCredentialBackend>(folder / "varnix/credentials");
    env.session = std::make_shared<const http::Session>();
    env.machine = std::make_shared<ProcMachineProbe>();
    AppSession session(main, std::move(env));
    session.userDefaults().setString("cvn.page", "settings");
    try {
        resetToFirstLaunchState(session);
        ADD_FAILURE() << "reset";
    } catch (const FirstLaunchResetError& error) {
        EXPECT_EQ(error.kind(), FirstLaunchResetError::Kind::notAvailableInRealDataMode);
        EXPECT_STREQ(error.what(), "resetToFirstLaunchState is dummy-data-mode only");
    }
    EXPECT_TRUE(logs.contains("resetToFirstLaunchState refused: dataMode=real"));
    EXPECT_TRUE(fs::exists(folder / "varnix/config.yaml"));
    EXPECT_EQ(session.userDefaults().string("cvn.page"), "settings");
}

}  // namespace
}  // namespace corvane
