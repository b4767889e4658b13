// The desktop entry as a panel sees it: a private session bus with a StatusNotifierWatcher, an X
// server (Xvfb), and the smoke app with a scripted session. Reads the tray menu over dbusmenu,
// clicks it, and checks how the process ends.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "tests/ui/ChildProcess.h"
#include "tests/ui/QtTestApp.h"
#include "tests/ui/TrayItemClient.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ChildProcess;
using testing::MenuEntry;
using testing::TrayItemClient;

// Generous: a sanitized Qt start on a busy machine takes seconds.
constexpr auto kLimit = 90s;

std::string readFile(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class TraySmokeTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        testing::qtTestApp();  // the test's own D-Bus client needs an application object
        root = fs::temp_directory_path() / ("corvane-ui-smoke-" + std::to_string(::getpid()));
        fs::remove_all(root);
        fs::create_directories(root / "runtime");
        fs::permissions(root / "runtime", fs::perms::owner_all, fs::perm_options::replace);
        for (const char* tool : {"dbus-daemon", "Xvfb"}) {
            if (!testing::onPath(tool)) {
                setUpError = std::string(tool) +
                             " is not installed (scripts/common.sh lists it for the tests)";
                return;
            }
        }
        std::ofstream(root / "bus.conf")
            << "<busconfig><type>session</type><listen>unix:dir=" << root.string()
            << "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow "
               "send_destination=\"*\"/>"
               "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
        bus = std::make_unique<ChildProcess>(
            ChildProcess::Options{{"dbus-daemon", "--config-file=" + (root / "bus.conf").string(),
                                   "--nofork", "--print-address=1"},
                                  {},
                                  {},
                                  root / "bus.log"});
        busAddress = bus->readLine(kLimit).value_or("");
        // -displayfd picks a free display and prints its number once the server accepts clients.
        display = std::make_unique<ChildProcess>(ChildProcess::Options{
            {"Xvfb", "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "800x600x24"},
            {},
            {},
            root / "xvfb.log"});
        const auto displayNumber = display->readLine(kLimit);
        if (busAddress.empty() || !displayNumber) {
            setUpError = "the private bus or Xvfb did not start; see " + root.string();
            return;
        }
        displayName = ":" + *displayNumber;
        // The watcher must be on the bus before the application asks for a tray.
        watcher = std::make_unique<ChildProcess>(
            ChildProcess::Options{{CORVANE_UI_SNI_WATCHER},
                                  {{"DBUS_SESSION_BUS_ADDRESS", busAddress}},
                                  {},
                                  root / "watcher.log"});
        if (!watcher->waitForLine("ready", kLimit)) setUpError = "the tray watcher did not start";
    }
    static void TearDownTestSuite() {
        watcher.reset();
        display.reset();
        bus.reset();
        fs::remove_all(root);
    }

    void SetUp() override {
        ASSERT_TRUE(setUpError.empty()) << setUpError;
        folder = root / ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::create_directories(folder);
    }

    void writeStatus(const std::string& line, const std::string& tooltip, const std::string& icon) {
        // Replaced whole, so the app never reads half a status.
        std::ofstream(folder / "status.new") << line << "\n" << tooltip << "\n" << icon << "\n";
        fs::rename(folder / "status.new", folder / "status");
    }

    std::unique_ptr<ChildProcess> startApp(const std::string& platform) {
        ChildProcess::Options options;
        options.arguments = {CORVANE_UI_SMOKE_APP, folder.string()};
        options.setEnvironment = {{"DISPLAY", displayName},
                                  {"DBUS_SESSION_BUS_ADDRESS", busAddress},
                                  {"QT_QPA_PLATFORM", platform},
                                  {"XDG_RUNTIME_DIR", (root / "runtime").string()},
                                  {"XDG_SESSION_TYPE", "x11"}};
        options.unsetEnvironment = {"WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP", "DESKTOP_SESSION",
                                    "XAUTHORITY"};
        options.stderrFile = folder / "stderr.log";
        return std::make_unique<ChildProcess>(options);
    }

    // The tray item of the app just started, as the watcher saw it register.
    std::unique_ptr<TrayItemClient> trayItem() {
        auto line = watcher->waitForLine("item ", kLimit);
        if (!line) return nullptr;
        std::istringstream words(*line);
        std::string word, service, path;
        words >> word >> service >> path;
        return std::make_unique<TrayItemClient>(busAddress, service, path);
    }

    ::testing::AssertionResult exitedCleanly(ChildProcess& app) {
        const auto status = app.waitForExit(kLimit);
        if (!status)
            return ::testing::AssertionFailure() << "still running; stderr:\n" << stderrText();
        if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
            return ::testing::AssertionFailure() << "ended with status " << *status << "; stderr:\n"
                                                 << stderrText();
        }
        return ::testing::AssertionSuccess();
    }
    std::string stderrText() const { return readFile(folder / "stderr.log"); }

    static inline fs::path root;
    static inline std::string setUpError, busAddress, displayName;
    static inline std::unique_ptr<ChildProcess> bus, display, watcher;
    fs::path folder;
};

std::vector<std::string> describe(const std::vector<MenuEntry>& entries) {
    std::vector<std::string> lines;
    for (const auto& entry : entries) {
        if (!entry.visible) continue;
        lines.push_back(
            entry.type == "separator" ? "-" : entry.label + (entry.enabled ? "" : " (disabled)"));
    }
    return lines;
}

TEST_F(TraySmokeTest, ThePanelReadsTheMenuFollowsTheStatusAndQuitEndsTheProcess) {
    writeStatus("Idle — Online · waiting for work", "Corvane · Idle", "idle");
    auto app = startApp("xcb");
    ASSERT_TRUE(app->waitForLine("event ready", kLimit)) << stderrText();
    auto item = trayItem();
    ASSERT_TRUE(item) << "no tray item registered; stderr:\n" << stderrText();

    EXPECT_EQ(describe(item->menu()),
              (std::vector<std::string>{"Idle — Online · waiting for work (disabled)", "-",
                                        "Open Dashboard", "Preferences…", "-", "About Corvane",
                                        "Quit Corvane"}));
    EXPECT_EQ(item->toolTipTitle(), "Corvane · Idle");
    const auto sizes = item->iconPixmapSizes();
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), "16x16"), sizes.end());
    EXPECT_NE(std::find(sizes.begin(), sizes.end(), "22x22"), sizes.end());

    writeStatus("Earning — Processing work", "Corvane · Earning", "earning");
    EXPECT_TRUE(item->waitUntil(
        [&] {
            return item->menu().front().label == "Earning — Processing work" &&
                   item->toolTipTitle() == "Corvane · Earning";
        },
        kLimit));

    item->click("Open Dashboard");
    EXPECT_TRUE(app->waitForLine("event openDashboard", kLimit));
    item->click("Preferences…");
    EXPECT_TRUE(app->waitForLine("event showPreferences", kLimit));
    item->click("About Corvane");
    EXPECT_TRUE(app->waitForLine("event about", kLimit));

    item->click("Quit Corvane");
    EXPECT_TRUE(app->waitForLine("event shutdown", kLimit));
    EXPECT_TRUE(exitedCleanly(*app));
    EXPECT_EQ(readFile(folder / "shutdown"), "shutdown\n");
}

TEST_F(TraySmokeTest, TerminationSignalsTakeTheQuitPathOnce) {
    writeStatus("Paused — Paused by you", "Corvane · Paused", "paused");
    for (int signalNumber : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(::strsignal(signalNumber));
        fs::remove(folder / "shutdown");
        auto app = startApp("xcb");
        ASSERT_TRUE(app->waitForLine("event ready", kLimit)) << stderrText();
        ASSERT_TRUE(trayItem()) << stderrText();
        app->signal(signalNumber);
        EXPECT_TRUE(exitedCleanly(*app));
        EXPECT_EQ(readFile(folder / "shutdown"), "shutdown\n");
    }
}

TEST_F(TraySmokeTest, WithoutATrayTheProcessWarnsAndKeepsRunning) {
    writeStatus("Idle", "Corvane · Idle", "idle");
    auto app = startApp("offscreen");  // no tray on this platform
    ASSERT_TRUE(app->waitForLine("event ready", kLimit)) << stderrText();
    EXPECT_NE(stderrText().find(
                  "No system tray is available: Corvane keeps working without its tray icon"),
              std::string::npos)
        << stderrText();
    app->signal(SIGTERM);
    EXPECT_TRUE(exitedCleanly(*app));
    EXPECT_EQ(readFile(folder / "shutdown"), "shutdown\n");
}

TEST_F(TraySmokeTest, ASessionThatCannotBeBuiltEndsTheProcessWithAnError) {
    std::ofstream(folder / "fail-session") << "1\n";
    auto app = startApp("offscreen");
    const auto status = app->waitForExit(kLimit);
    ASSERT_TRUE(status);
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 1);
    EXPECT_NE(stderrText().find(
                  "Could not start the desktop session: the scripted session was told to fail"),
              std::string::npos)
        << stderrText();
    EXPECT_FALSE(fs::exists(folder / "shutdown"));
}

}  // namespace
}  // namespace corvane
