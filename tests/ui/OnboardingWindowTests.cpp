// The onboarding window as an owner walks it: a real session in a scratch home (file credential
// store), the desktop shell around it, and the local coordinator over real HTTP. Each walk ends
// in what it must leave on disk, and the full one in a running worker.

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QToolButton>

#include <filesystem>
#include <stdexcept>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/onboarding/OnboardingFlow.h"
#include "CorvaneApp/ui/onboarding/OnboardingWindow.h"
#include "CorvaneApp/ui/shell/DesktopShell.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/tray/PopoverWindow.h"
#include "tests/support/WhisperFixtures.h"
#include "tests/ui/QtTestApp.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string kSaveFailed =
    "Corvane could not save your worker credentials locally. Check keyring and home-folder "
    "permissions, then try again.";

class OnboardingWindowTest : public ::testing::Test {
  protected:
    void SetUp() override { qtTestApp(); }

    void start(dev::DevCoordinator::Options options = {}) {
        coordinator = std::make_unique<dev::DevCoordinator>(std::move(options));
        // The worker loads the generated model instead of downloading one.
        const fs::path weights =
            home.path() / "models" / "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
        fs::create_directories(weights);
        fs::copy_file(whisperTestModelFile(), weights / WhisperImpl::defaultModelFilename);
        session = std::make_unique<AppSession>(main, environment());
        session->launch();
        flow = std::make_unique<OnboardingFlow>(
            *session, main, OnboardingFlow::Options{[this] { shell->openDashboard(); }});
        shell = std::make_unique<DesktopShell>(
            *session, main, DesktopShell::Options{"test", {}, [this] { flow->show(); }});
    }
    void TearDown() override {
        shell.reset();
        flow.reset();
        session.reset();
        coordinator.reset();
    }

    AppEnvironment environment() const {
        AppEnvironment env;
        env.configPath = varnix / "config.yaml";
        env.runtimeStatePath = varnix / "worker-runtime-state.json";
        env.modelRoot = home.path() / "models";
        env.parakeetDirectory = home.path() / "parakeet";
        env.tempDirectory = home.path() / "shards";
        env.userDefaultsFile = home.path() / "defaults.json";
        env.version = "onboarding-test";
        env.credentials = std::make_shared<FileCredentialBackend>(credentialsFile);
        env.session = std::make_shared<const http::Session>();
        // Short enough that a coordinator that never answers is a few seconds of this test.
        env.registrationSession =
            std::make_shared<const http::Session>(http::SessionConfig{3, 10, 3});
        env.machine = std::make_shared<ProcMachineProbe>();
        env.samplerProbes =
            std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{});
        env.secondsSinceLastInput = [] { return std::optional<double>(100'000); };
        env.isOnACPower = [] { return true; };
        env.meetingProbe = [] { return MeetingDetector::Snapshot{}; };
        return env;
    }

    template <typename T>
    T& find(const char* name) {
        auto* widget = flow->window()->findChild<T*>(QString::fromLatin1(name));
        if (!widget) throw std::runtime_error(std::string("no widget ") + name);
        return *widget;
    }
    QPushButton& primary() { return find<QPushButton>("onboardingPrimary"); }
    std::string errorShown() {
        auto& label = find<QLabel>("onboardingError");
        return label.isHidden() ? "" : label.text().toStdString();
    }
    OnboardingStep step() { return flow->model()->step(); }
    bool landed() {
        return runEventsUntil([&] { return !flow->model() || !flow->model()->isWorking(); });
    }
    void openAdvanced(bool open = true) {
        auto& toggle = find<QToolButton>("advancedToggle");
        if (toggle.isChecked() != open) toggle.click();
    }
    void type(const char* field, const std::string& text) {
        auto& edit = find<QLineEdit>(field);
        edit.selectAll();
        edit.insert(QString::fromStdString(text));  // as typed: the edit signal fires
    }
    // Opens the window and walks to `connect` with the coordinator's URL typed under Advanced.
    void toConnect(const std::string& url) {
        flow->show();
        ASSERT_EQ(step(), OnboardingStep::welcome);
        primary().click();
        ASSERT_EQ(step(), OnboardingStep::connect);
        openAdvanced();
        type("coordinatorURL", url);
    }
    void connect() {
        primary().click();
        ASSERT_TRUE(landed());
    }

    bool credentialStored() const {
        const auto config = WorkerConfig::load(varnix / "config.yaml");
        if (!config) return false;
        KeychainStore keychain(std::make_shared<FileCredentialBackend>(credentialsFile));
        return keychain.pythonWorkerToken(config->coordinatorURL, config->workerID).has_value();
    }
    bool nothingWritten() const {
        return !fs::exists(varnix / "config.yaml") && !fs::exists(credentialsFile);
    }

    ScratchFolder home;
    fs::path varnix = home.path() / ".varnix-compute";
    // The file store in a folder of its own, so that a test can take that folder's place.
    fs::path credentialsFile = home.path() / "keyring" / "credentials";
    QtExecutor main{qtTestApp()};
    std::unique_ptr<dev::DevCoordinator> coordinator;
    std::unique_ptr<AppSession> session;
    std::unique_ptr<OnboardingFlow> flow;
    std::unique_ptr<DesktopShell> shell;
};

TEST_F(OnboardingWindowTest, FourStepsOverRealHTTPEndInConfigCredentialAndARunningWorker) {
    start();
    ASSERT_EQ(session->model().phase(), AppPhase::notEnrolled);
    toConnect(coordinator->baseURL());

    primary().click();
    // Off the Qt thread: the window is still answering, busy, and a second press goes nowhere.
    EXPECT_TRUE(flow->model()->isWorking());
    EXPECT_FALSE(primary().isEnabled());
    EXPECT_EQ(primary().text(), "Connecting…");
    EXPECT_FALSE(find<QLineEdit>("coordinatorURL").isEnabled());
    primary().click();
    ASSERT_TRUE(landed());
    ASSERT_EQ(step(), OnboardingStep::configure) << errorShown();
    EXPECT_EQ(coordinator->registrations().size(), 1u) << "one press, one registration";

    find<QSpinBox>("minIdleMinutes").setValue(7);
    find<QRadioButton>("preset-custom").click();
    find<QRadioButton>("preset-businessHours").click();
    primary().click();
    EXPECT_EQ(primary().text(), "Saving…");
    ASSERT_TRUE(landed());
    ASSERT_EQ(step(), OnboardingStep::done) << errorShown();
    EXPECT_TRUE(credentialStored());
    const std::string yaml = readFile(varnix / "config.yaml").value_or("");
    EXPECT_NE(yaml.find("min_idle_minutes: 7"), std::string::npos) << yaml;
    EXPECT_NE(yaml.find("  enabled: true\n  start_time: '09:00'\n  end_time: '17:00'"),
              std::string::npos)
        << yaml;
    EXPECT_EQ(yaml.find("dev-token"), std::string::npos) << "the token stays out of the file";

    primary().click();  // "Start Earning"
    EXPECT_FALSE(flow->isOpen());
    EXPECT_EQ(session->model().phase(), AppPhase::enrolled);
    EXPECT_TRUE(shell->dashboard().isVisible()) << "the dashboard opens to show the download";
    EXPECT_EQ(session->configStore().idleMinutes(), 7.0) << "the settings read the new file";
    ASSERT_TRUE(runEventsUntil(
        [&] { return session->delegate().workerBridge() && session->delegate().modelReady(); },
        120s));
    EXPECT_TRUE(session->delegate().workerBridge()->isRunning());
    // The worker speaks to the coordinator with the credential the window stored.
    ASSERT_TRUE(runEventsUntil(
        [&] {
            for (const auto& request : coordinator->requests()) {
                if (!request.path.starts_with("/api/v1/workers/poll")) continue;
                const auto authorization = request.headers.find("authorization");
                return authorization != request.headers.end() &&
                       authorization->second == "Bearer dev-token";
            }
            return false;
        },
        120s));
}

TEST_F(OnboardingWindowTest, ARejectedInvitationOpensAdvancedWithItsTextThenAGoodOneConnects) {
    start({.enrollmentToken = "inv-good-1234"});
    toConnect(coordinator->baseURL());
    type("invitationCode", "inv-typed-while-closed");
    openAdvanced(false);  // a code behind a closed Advanced is not sent
    connect();
    EXPECT_EQ(errorShown(),
              "This installation requires an invitation code. Open Advanced, enter it there, and "
              "try again.");
    EXPECT_TRUE(find<QToolButton>("advancedToggle").isChecked());
    EXPECT_TRUE(find<QLineEdit>("invitationCode").isVisible()) << "Advanced opened";
    EXPECT_EQ(find<QLineEdit>("invitationCode").text(), "inv-typed-while-closed")
        << "what the owner typed is kept";

    type("invitationCode", "inv-expired-0001");
    connect();
    EXPECT_EQ(errorShown(), "That invitation code wasn't accepted. Check Advanced and try again.");
    EXPECT_EQ(step(), OnboardingStep::connect);
    EXPECT_TRUE(nothingWritten());

    type("invitationCode", "  inv-good-1234 ");
    connect();
    EXPECT_EQ(step(), OnboardingStep::configure) << errorShown();
    EXPECT_EQ(errorShown(), "");
    ASSERT_EQ(coordinator->registrations().size(), 1u);
    EXPECT_TRUE(coordinator->registrations()[0].sentEnrollmentToken);
}

// The keyring refusing (here the file store: a plain file stands where its folder goes, which no
// write gets past, not even root's) loses nothing, and the retry saves with the registration
// already held.
TEST_F(OnboardingWindowTest, AKeyringRefusalLeavesNothingAndTheRetryReusesTheRegistration) {
    start();
    toConnect(coordinator->baseURL());
    connect();
    ASSERT_EQ(step(), OnboardingStep::configure) << errorShown();
    writeFileAtomically(credentialsFile.parent_path(), "not a folder\n");

    primary().click();
    ASSERT_TRUE(landed());
    EXPECT_EQ(errorShown(), kSaveFailed);
    EXPECT_EQ(step(), OnboardingStep::configure);
    EXPECT_FALSE(fs::exists(varnix / "config.yaml")) << "no config without its credential";
    EXPECT_TRUE(primary().isEnabled()) << "the owner can try again";

    fs::remove(credentialsFile.parent_path());
    primary().click();
    ASSERT_TRUE(landed());
    EXPECT_EQ(step(), OnboardingStep::done) << errorShown();
    EXPECT_TRUE(credentialStored());
    EXPECT_EQ(coordinator->registrations().size(), 1u) << "two saves, one registration";
}

// What the owner may meet at `connect`: each shows its words on the step, leaves nothing on disk,
// and the window works again afterwards (each row is a new window, as after a close).
TEST_F(OnboardingWindowTest, EachConnectionFaultShowsItsTextOnTheStepAndWritesNothing) {
    start();
    const std::string network =
        "Corvane could not reach the service. Check your internet connection and try again.";
    struct Row {
        std::string name;
        std::optional<dev::ScriptedReply> reply;
        std::string url;  // empty: the coordinator's
        std::string text;
    };
    const std::vector<Row> rows{
        {"not a URL", std::nullopt, "coordinator dot example", "Enter a valid URL."},
        {"no answer in time", dev::ScriptedReply{.delaySeconds = 8}, "", network},
        {"5xx", dev::ScriptedReply{.status = 503, .body = "{}"}, "",
         "Corvane couldn't reach the service right now. Wait a moment and try again."},
        {"a body that is not JSON", dev::ScriptedReply{.status = 200, .body = "<html>ok</html>"},
         "", network},
        {"nobody listening", std::nullopt, "http://127.0.0.1:1", network},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.reply) coordinator->enqueueReply("/api/v1/workers/register", *row.reply);
        toConnect(row.url.empty() ? coordinator->baseURL() : row.url);
        connect();
        EXPECT_EQ(errorShown(), row.text);
        EXPECT_EQ(step(), OnboardingStep::connect);
        EXPECT_TRUE(primary().isEnabled());
        EXPECT_TRUE(nothingWritten());
        flow->window()->close();
        EXPECT_FALSE(flow->isOpen());
    }
    EXPECT_TRUE(coordinator->registrations().empty());
}

// A registration dies with its window: closing at `configure` leaves nothing, the window opens
// afresh, and the coordinator then refuses this computer a second time in the words of the table.
TEST_F(OnboardingWindowTest, ClosingMidwayLeavesNothingAndTheWindowOpensAfresh) {
    start();
    toConnect(coordinator->baseURL());
    connect();
    ASSERT_EQ(step(), OnboardingStep::configure);
    flow->window()->close();
    ASSERT_TRUE(runEventsUntil([&] { return !flow->isOpen(); }));
    EXPECT_TRUE(nothingWritten());
    EXPECT_EQ(session->model().phase(), AppPhase::notEnrolled);

    toConnect(coordinator->baseURL());
    connect();
    EXPECT_EQ(errorShown(),
              "This computer is already registered. Use the existing worker credential to rotate "
              "it instead of retrying public setup.");
    EXPECT_TRUE(nothingWritten());
}

// Going back from `configure` and on again keeps the registration instead of asking twice.
TEST_F(OnboardingWindowTest, BackAndOnAgainNeedsNoSecondRegistration) {
    start();
    toConnect(coordinator->baseURL());
    connect();
    ASSERT_EQ(step(), OnboardingStep::configure);
    find<QPushButton>("onboardingBack").click();
    EXPECT_EQ(step(), OnboardingStep::connect);
    connect();
    EXPECT_EQ(step(), OnboardingStep::configure) << errorShown();
    EXPECT_EQ(coordinator->registrations().size(), 1u);
}

// While not enrolled, the popover's and the dashboard's buttons both open the one window.
TEST_F(OnboardingWindowTest, ThePopoverAndTheDashboardOpenOnboardingWhileNotEnrolled) {
    start();
    shell->togglePopover();
    auto* connectButton =
        shell->popover().findChild<QPushButton*>(QStringLiteral("connectComputer"));
    ASSERT_NE(connectButton, nullptr);
    connectButton->click();
    ASSERT_TRUE(flow->isOpen());
    OnboardingWindow* first = flow->window();
    EXPECT_TRUE(first->isVisible());

    shell->openDashboard();
    auto* welcome = shell->dashboard().findChild<QPushButton*>(QStringLiteral("connectComputer"));
    ASSERT_NE(welcome, nullptr);
    ASSERT_TRUE(welcome->isVisible()) << "the dashboard shows its welcome while not enrolled";
    welcome->click();
    EXPECT_EQ(flow->window(), first) << "brought forward, not a second window";
}

}  // namespace
}  // namespace corvane::testing
