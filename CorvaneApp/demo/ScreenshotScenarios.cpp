#include "CorvaneApp/demo/ScreenshotScenarios.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/models/ModelCatalogue.h"

namespace corvane {
namespace {

constexpr std::string_view failedDownloadText = "The network connection was lost.";
constexpr std::uint64_t downloadedPercent = 41;

// The next minor release after `running` ("0.2.5" gives "0.3.0"), so that the update scenes have
// a version the running one is older than.
std::string nextMinorVersion(std::string_view running) {
    std::vector<long> parts;
    for (std::size_t start = 0; start <= running.size();) {
        const auto dot = std::min(running.find('.', start), running.size());
        long value = 0;
        std::from_chars(running.data() + start, running.data() + dot, value);
        parts.push_back(value);
        start = dot + 1;
    }
    parts.resize(std::max<std::size_t>(parts.size(), 3), 0);
    parts[1] += 1;
    std::fill(parts.begin() + 2, parts.end(), 0);
    std::string text;
    for (std::size_t i = 0; i < parts.size(); ++i)
        text += (i ? "." : "") + std::to_string(parts[i]);
    return text;
}

ModelDownloadProgress::Phase downloadPhase(ScreenshotModelsState state, std::uint64_t size) {
    using P = ModelDownloadProgress;
    switch (state) {
        case ScreenshotModelsState::ready:
            return P::Ready{};
        case ScreenshotModelsState::downloading:
            return P::Downloading{size * downloadedPercent / 100, size};
        case ScreenshotModelsState::notInstalled:
            return P::NotStarted{};
        case ScreenshotModelsState::downloadFailed:
            return P::Failed{std::string(failedDownloadText)};
    }
    return P::NotStarted{};
}

void applyModelsState(ScreenshotModelsState state, AppModel& model) {
    const ModelIdentifier whisper = whisperModelIdentifier();
    const auto entry = catalogueEntry(whisper);
    std::unordered_set<ModelIdentifier> installed;
    if (state == ScreenshotModelsState::ready) installed.insert(whisper);
    ModelChanges::Batch batch(model.changes());
    model.modelInstall().setInstalledModelIDs(std::move(installed));
    model.modelInstall().setModelDownloadProgress(ModelDownloadProgress{
        modelDisplayName(whisper), downloadPhase(state, entry ? entry->downloadSizeBytes : 0)});
    model.refreshStatus(true);
}

// The earnings page opens on today: the owner's remembered choice, which the page brings into
// force.
void rememberTodayRange(DemoSession& session) {
    session.userDefaults().setString("cvn.earnings.range", "Today");
}

// An account that has earned nothing yet: no days, no hours, no jobs, zero balances.
void noEarningsYet(DemoSession& session) {
    AppModel& model = session.model();
    ModelChanges::Batch batch(model.changes());
    WorkerDashboard dashboard;
    dashboard.workerId = model.machine().workerID;
    dashboard.trustTier = "new";
    model.account().applyDashboard(dashboard);
    model.account().setTopJobs({});
    model.earnings().applyEarningsSnapshot(EarningsRangeSnapshot::fromRows({}, {}),
                                           EarningsRange::month, true);
    model.earnings().applyEarningsSummary(EarningsSummary{});
}

// A wallet made primary and a checking account, as an owner who set up two destinations has.
void attachSamplePayoutMethods(DemoSession& session) {
    auto api = session.model().coordinatorAPI();
    if (!api) return;
    AddPayoutMethodRequest wallet;
    wallet.method = PayoutMethodType::usdc;
    wallet.walletAddress = "0x4b1e2f9a7c3d5e6f8a9b0c1d2e3f4a5b6c7d8e9f";
    wallet.makePrimary = true;
    api->addPayoutMethod(wallet);
    AddPayoutMethodRequest bank;
    bank.method = PayoutMethodType::ach;
    bank.routingNumber = "021000021";
    bank.accountNumber = "000123456789";
    bank.accountHolderName = "Sam Rivera";
    bank.accountType = PayoutBankAccountType::checking;
    api->addPayoutMethod(bank);
}

// Quiet nights every day and late weekend evenings: hours the sample owner is rarely at the
// computer, so that the activity history has suggestions to make.
void closeQuietHours(DemoSession& session) {
    auto grid = ScheduleGrid::recommended();
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        for (int hour = 0; hour < 6; ++hour) grid.setAllowed(false, day, hour);
    }
    for (int day : {5, 6}) {
        for (int hour : {22, 23}) grid.setAllowed(false, day, hour);
    }
    session.configStore().setScheduleGrid(std::move(grid));
}

}  // namespace

std::optional<ScreenshotLaunchArgs> ScreenshotLaunchArgs::parse(
    const std::vector<std::string>& arguments) {
    constexpr std::string_view screen = "--screen=";
    constexpr std::string_view capture = "--capture-to=";
    std::string scenario;
    std::optional<std::filesystem::path> captureTo;
    for (const auto& argument : arguments) {
        if (argument.starts_with(screen)) {
            scenario = argument.substr(screen.size());
        } else if (argument.starts_with(capture)) {
            auto path = argument.substr(capture.size());
            captureTo = path.empty() ? std::nullopt : std::optional<std::filesystem::path>(path);
        }
    }
    if (scenario.empty()) return std::nullopt;
    return ScreenshotLaunchArgs{std::move(scenario), std::move(captureTo)};
}

const std::vector<ScreenshotScenarioInfo>& screenshotCatalog() {
    using K = ScreenshotSurface::Kind;
    using S = WorkerStatus;
    using M = ScreenshotModelsState;
    constexpr std::nullopt_t none = std::nullopt;
    constexpr ScreenshotSurface popover{K::popover, DashPage::overview};
    auto page = [](DashPage p) { return ScreenshotSurface{K::dashboard, p}; };
    auto onboarding = [](OnboardingStep step, std::string_view code = {}) {
        return ScreenshotSurface{K::onboarding, DashPage::overview, step, code};
    };
    static const std::vector<ScreenshotScenarioInfo> catalog{
        {"popover-earning", "Tray popover — earning, no update banner.", popover, S::earning, false,
         none},
        {"popover-idle", "Tray popover — idle (online, no jobs).", popover, S::idle, false, none},
        {"popover-paused", "Tray popover — paused by user.", popover, S::paused, false, none},
        {"popover-scheduled", "Tray popover — outside allowed hours.", popover, S::scheduled, false,
         none},
        {"popover-throttled", "Tray popover — CPU cap reached.", popover, S::throttled, false,
         none},
        {"popover-offline", "Tray popover — no internet connection.", popover, S::offline, false,
         none},
        {"popover-updating", "Tray popover — installing update.", popover, S::updating, false,
         none},
        {"popover-update-available", "Tray popover — earning with an update banner.", popover,
         S::earning, true, none},
        {"overview-earning", "Overview page — earning, steady state.", page(DashPage::overview),
         S::earning, false, none},
        {"overview-paused", "Overview page — paused by user.", page(DashPage::overview), S::paused,
         false, none},
        {"overview-update-available", "Overview page — update banner shown.",
         page(DashPage::overview), none, true, none},
        {"earnings-default", "Earnings page — populated dummy data.", page(DashPage::earnings),
         none, false, none},
        {"models-ready", "Models page — Whisper installed and ready.", page(DashPage::models), none,
         false, M::ready},
        {"models-downloading", "Models page — Whisper mid-download.", page(DashPage::models), none,
         false, M::downloading},
        {"models-not-installed", "Models page — Whisper not yet installed.", page(DashPage::models),
         none, false, M::notInstalled},
        {"models-download-failed", "Models page — Whisper download failed, retry offered.",
         page(DashPage::models), none, false, M::downloadFailed},
        {"schedule-default", "Schedule & limits page — default recommended.",
         page(DashPage::schedule), none, false, none},
        {"payouts-default", "Payouts page — no method attached yet.", page(DashPage::payouts), none,
         false, none},
        {"settings-default", "Settings page — default.", page(DashPage::settings), none, false,
         none},
        {"onboarding-welcome",
         "Onboarding — welcome: this computer's processor and what similar machines earn.",
         onboarding(OnboardingStep::welcome), none, false, none},
        {"onboarding-connect", "Onboarding — connect: the name this computer registers under.",
         onboarding(OnboardingStep::connect), none, false, none},
        {"onboarding-configure",
         "Onboarding — configure: idle minutes, AC power and when Corvane may run.",
         onboarding(OnboardingStep::configure), none, false, none},
        {"onboarding-done", "Onboarding — done: the credential stored and config.yaml written.",
         onboarding(OnboardingStep::done), none, false, none},
        {"onboarding-invitation-rejected",
         "Onboarding — connect after the coordinator refused the invitation code: Advanced open, "
         "the code kept.",
         onboarding(OnboardingStep::connect, "EXPIRED-2025-0417"), none, false, none},
        {"earnings-range-day", "Earnings page — today, hour by hour.", page(DashPage::earnings),
         none, false, none, rememberTodayRange},
        {"earnings-empty", "Earnings page — nothing earned yet.", page(DashPage::earnings), none,
         false, none, noEarningsYet},
        {"payouts-with-methods", "Payouts page — a USDC wallet (primary) and a bank account.",
         page(DashPage::payouts), none, false, none, attachSamplePayoutMethods},
        {"payouts-add-method-invalid", "Payouts page — add-method sheet showing validation errors.",
         page(DashPage::payouts), none, false, none},
        {"schedule-with-suggestion",
         "Schedule & limits page — activity history loaded, suggestions banner shown.",
         page(DashPage::schedule), none, false, none, closeQuietHours},
        {"schedule-in-use-tab", "Schedule & limits page — in-use tab selected.",
         page(DashPage::schedule), none, false, none},
        {"settings-demo-tools", "Settings page — demo-mode dev tools.", page(DashPage::settings),
         none, false, none},
    };
    return catalog;
}

const ScreenshotScenarioInfo* findScreenshotScenario(std::string_view id) {
    const auto& catalog = screenshotCatalog();
    auto it =
        std::find_if(catalog.begin(), catalog.end(), [&](const auto& s) { return s.id == id; });
    return it == catalog.end() ? nullptr : &*it;
}

bool advanceOnboardingScene(const ScreenshotSurface& surface, OnboardingViewModel& model) {
    if (model.isWorking()) return true;  // the last step's answer has not landed yet
    if (model.step() == surface.onboardingStep) {
        if (surface.invitationCode.empty() || model.errorMessage()) return false;
        model.setShowAdvancedOptions(true);
        model.setEnrollmentToken(std::string(surface.invitationCode));
        model.connect();
        return true;
    }
    if (const auto& error = model.errorMessage())
        throw std::runtime_error("the onboarding scene stopped short: " + *error);
    switch (model.step()) {
        case OnboardingStep::welcome:
            model.advance();
            return true;
        case OnboardingStep::connect:
            model.connect();
            return true;
        case OnboardingStep::configure:
            model.saveConfiguration();
            return true;
        case OnboardingStep::done:
            return false;
    }
    return false;
}

void applyScreenshotScenario(const ScreenshotScenarioInfo& scenario, AppModel& model) {
    const auto& surface = scenario.surface;
    ModelChanges::Batch batch(model.changes());
    model.setRequestedPage(surface.kind == ScreenshotSurface::Kind::dashboard
                               ? std::optional<std::string>(rawValue(surface.page))
                               : std::nullopt);
    // The demo account: fetched once per session, since it always reads as fresh.
    model.refreshFromAPIIfStale(AppModel::accountRefreshSeconds);
    if (scenario.status) {
        // Through the pause command, so that the model's own pause state agrees with the words.
        if (model.pauseControl().isManuallyPaused() != (*scenario.status == WorkerStatus::paused))
            model.togglePause();
        model.setStatusPresentation(WorkerStatusPresentation::defaultFor(*scenario.status));
    }
    if (scenario.offersUpdate) {
        model.account().applyLatestAppVersion(
            {nextMinorVersion(model.machine().appVersion), {}, {}, {}}, model.appVersion());
    }
    if (scenario.models) applyModelsState(*scenario.models, model);
}

void applyScreenshotScenario(const ScreenshotScenarioInfo& scenario, DemoSession& session) {
    if (scenario.offersUpdate)  // so that asking the sample coordinator again keeps the update
        session.publishVersion(nextMinorVersion(session.model().machine().appVersion));
    applyScreenshotScenario(scenario, session.model());
}

}  // namespace corvane
