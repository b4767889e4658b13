// The Models page's rows, statuses, filters, disk bar and stored choices, from the model's
// download progress and installed set.

#include <gtest/gtest.h>

#include <algorithm>

#include "CorvaneApp/dashboard/ModelsPageState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Progress = ModelDownloadProgress;
using Action = ModelsPageRow::Action;

TEST(ModelRowStatusTest, EveryPhaseAndWhetherInstalled) {
    const std::tuple<std::optional<Progress::Phase>, bool, ModelRowStatus> rows[] = {
        {std::nullopt, true, {ModelStatus::idle, std::nullopt}},
        {std::nullopt, false, {ModelStatus::available, std::nullopt}},
        {Progress::NotStarted{}, true, {ModelStatus::idle, std::nullopt}},
        {Progress::NotStarted{}, false, {ModelStatus::available, std::nullopt}},
        {Progress::Failed{"gone"}, true, {ModelStatus::failed, std::nullopt}},
        {Progress::Ready{}, false, {ModelStatus::idle, std::nullopt}},
        {Progress::Downloading{50, 200}, false, {ModelStatus::downloading, 0.25}},
        {Progress::Downloading{300, 200}, false, {ModelStatus::downloading, 1.0}},
        {Progress::Downloading{50, 0}, false, {ModelStatus::downloading, std::nullopt}},
        {Progress::Downloading{50, std::nullopt}, true, {ModelStatus::downloading, std::nullopt}},
    };
    for (const auto& [phase, installed, expected] : rows) {
        std::optional<Progress> progress;
        if (phase) progress = Progress{"Whisper large-v3 turbo", *phase};
        EXPECT_EQ(rowStatus(progress, installed), expected)
            << (phase ? phase->index() : 9) << " " << installed;
    }
}

class ModelsPageStateTest : public ::testing::Test {
  protected:
    ModelsPageStateTest() {
        DemoSession::Options options;
        options.referenceDate = dateFromUnixSeconds(1'781'771'400);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        session_.emplace(executor_, std::move(options));
        model().modelInstall().setInstalledModelIDs({});
    }
    AppModel& model() { return session_->model(); }
    void progress(std::string name, Progress::Phase phase) {
        model().modelInstall().setModelDownloadProgress(Progress{std::move(name), phase});
    }
    ModelsPageState state(ModelsPagePrefs prefs = {},
                          ModelsPageFilter filter = ModelsPageFilter::all,
                          std::optional<ModelRemoval> removal = std::nullopt) {
        return modelsPageState(model(), prefs, filter, removal);
    }
    static std::vector<Action> actions(const ModelsPageRow& row) {
        std::vector<Action> kinds;
        for (const auto& button : row.buttons) kinds.push_back(button.action);
        return kinds;
    }

    testing::ManualExecutor executor_;
    std::optional<DemoSession> session_;
};

TEST_F(ModelsPageStateTest, RowsFollowTheDownloadOfTheirOwnModelOnly) {
    progress("Whisper large-v3 turbo", Progress::Downloading{235'000'000, 574'041'195});
    auto rows = modelsPageRows(model(), ModelsPageMode::automatic);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].id, "whisper-large-v3-turbo");
    EXPECT_EQ(rows[0].name, "Whisper large-v3-turbo");
    EXPECT_EQ(rows[0].status, ModelStatus::downloading);
    EXPECT_EQ(rows[0].progressText, "40% · 235 MB / 574 MB");
    EXPECT_TRUE(actions(rows[0]).empty()) << "nothing to press while it downloads";
    EXPECT_EQ(rows[1].id, "parakeet-tdt-0.6b-v2");
    EXPECT_EQ(rows[1].status, ModelStatus::available) << "the names differ";
    EXPECT_FALSE(rows[1].fraction);
    EXPECT_EQ(rows[1].license, "Apache-2.0 · NVIDIA");
    EXPECT_EQ(rows[1].published, "Jul 2024");

    // Failed: its text and a retry. Installed as well: a remove with its size.
    progress("Whisper large-v3 turbo", Progress::Failed{"I/O error at /m/w.bin.partial"});
    model().modelInstall().setInstalledModelIDs({whisperModelIdentifier()});
    rows = modelsPageRows(model(), ModelsPageMode::automatic);
    EXPECT_EQ(rows[0].statusText, "Download failed");
    EXPECT_EQ(rows[0].progressText, "I/O error at /m/w.bin.partial");
    EXPECT_EQ(actions(rows[0]), (std::vector{Action::retry, Action::remove}));
    EXPECT_EQ(rows[0].buttons[1].title, "Remove · 0.53 GB");
    EXPECT_EQ(rows[0].details, "0.53 GB · q5_0 · MIT · OpenAI · Nov 2023");
    EXPECT_EQ(rows[0].note, "Corvane is managing your models. Switch to manual mode to override.");

    progress("Whisper large-v3 turbo", Progress::Ready{});
    rows = modelsPageRows(model(), ModelsPageMode::manual);
    EXPECT_EQ(rows[0].statusText, "Installed");
    EXPECT_EQ(actions(rows[0]), std::vector{Action::remove});
    EXPECT_EQ(rows[0].note, "") << "in manual mode the owner drives";
}

TEST_F(ModelsPageStateTest, ParakeetOffersNoInstallWithoutARuntime) {
    auto parakeet = modelsPageRows(model(), ModelsPageMode::manual)[1];
    EXPECT_TRUE(parakeet.buttons.empty());
    EXPECT_NE(parakeet.note.find("no runtime for Parakeet on Linux"), std::string::npos);

    // Weights left on disk (from another build) can still be removed.
    model().modelInstall().setInstalledModelIDs({parakeetModelIdentifier()});
    parakeet = modelsPageRows(model(), ModelsPageMode::manual)[1];
    EXPECT_EQ(actions(parakeet), std::vector{Action::remove});
    EXPECT_EQ(parakeet.buttons[0].title, "Remove · 1.21 GB");

    model().modelInstall().setInstalledModelIDs({});
    model().modelInstall().setParakeetRunnable(true);
    EXPECT_EQ(actions(modelsPageRows(model(), ModelsPageMode::manual)[1]),
              std::vector{Action::install});
    progress("Parakeet TDT v2", Progress::Failed{"Wait for Whisper large-v3 turbo to finish"});
    EXPECT_EQ(actions(modelsPageRows(model(), ModelsPageMode::manual)[1]),
              std::vector{Action::retry});

    EXPECT_EQ(modelIdentifierForRow("parakeet-tdt-0.6b-v2"), parakeetModelIdentifier());
    EXPECT_EQ(modelIdentifierForRow("whisper-large-v3-turbo"), whisperModelIdentifier());
    EXPECT_EQ(modelIdentifierForRow("sdxl"), std::nullopt) << "any other id does nothing";
}

TEST_F(ModelsPageStateTest, FiltersAndTheirEmptyText) {
    model().modelInstall().setInstalledModelIDs({whisperModelIdentifier()});
    const std::tuple<ModelsPageFilter, std::vector<std::string>> rows[] = {
        {ModelsPageFilter::all, {"whisper-large-v3-turbo", "parakeet-tdt-0.6b-v2"}},
        {ModelsPageFilter::installed, {"whisper-large-v3-turbo"}},
        {ModelsPageFilter::available, {"parakeet-tdt-0.6b-v2"}},
        {ModelsPageFilter::update, {}},
    };
    for (const auto& [filter, ids] : rows) {
        const auto page = state({}, filter);
        std::vector<std::string> shown;
        for (const auto& row : page.categories[0].rows) shown.push_back(row.id);
        EXPECT_EQ(shown, ids) << rawValue(filter);
        EXPECT_EQ(page.emptyText.has_value(), ids.empty());
        EXPECT_EQ(std::count_if(page.filters.begin(), page.filters.end(),
                                [&](const auto& f) { return f.selected && f.filter == filter; }),
                  1);
    }
    EXPECT_EQ(state({}, ModelsPageFilter::update).emptyText, "No models match this filter.");
}

TEST_F(ModelsPageStateTest, ModeCategoriesAndStoredPreferences) {
    UserDefaults defaults;
    EXPECT_EQ(ModelsPagePrefs::load(defaults), ModelsPagePrefs{});
    defaults.setString(ModelsPagePrefs::modeKey, "manual");
    defaults.setNumber(ModelsPagePrefs::diskBudgetKey, 35.5);
    defaults.setInteger(ModelsPagePrefs::purgeDaysKey, 45);
    defaults.setBool(ModelsPagePrefs::allowTranscriptionKey, false);
    const auto prefs = ModelsPagePrefs::load(defaults);
    EXPECT_EQ(prefs, (ModelsPagePrefs{ModelsPageMode::manual, 35.5, 45, false}));
    // Values of the wrong kind or out of range read as the defaults.
    defaults.setString(ModelsPagePrefs::modeKey, "sometimes");
    defaults.setNumber(ModelsPagePrefs::diskBudgetKey, -4);
    defaults.setString(ModelsPagePrefs::purgeDaysKey, "30");
    defaults.setString(ModelsPagePrefs::allowTranscriptionKey, "no");
    EXPECT_EQ(ModelsPagePrefs::load(defaults), ModelsPagePrefs{});

    const auto page = state(prefs);
    EXPECT_EQ(page.modeLine, "You are driving. Only models you enable below will serve jobs.");
    EXPECT_TRUE(page.modes[1].selected);
    EXPECT_NE(page.modes[0].line.find("your computer's specs"), std::string::npos);
    ASSERT_EQ(page.categories.size(), 4u);
    EXPECT_EQ(page.categories[0].pausedText, "Paused — no models in this category will serve");
    EXPECT_EQ(page.categories[1].name, "Image generation");
    EXPECT_FALSE(page.categories[1].open);
    EXPECT_TRUE(page.categories[1].rows.empty());
    EXPECT_EQ(page.purgeChoices, (std::vector<int>{7, 14, 30, 45, 60, 90}));
    EXPECT_EQ(page.budgetValueText, "36 GB");
    EXPECT_EQ(state().modeLine,
              "Corvane is managing these. Toggles below only take effect in manual mode.");
}

TEST_F(ModelsPageStateTest, DiskBarLegendAndBudgetFromTheMeasuredVolume) {
    EXPECT_FALSE(state().disk) << "not measured yet";
    EXPECT_EQ(state().freeText, "");

    model().modelInstall().setInstalledModelIDs({whisperModelIdentifier()});
    model().modelInstall().setVolume(VolumeInfo{465.6, 171.2});
    const auto page = state();
    ASSERT_TRUE(page.disk);
    const double whisper = 574'041'195 / 1073741824.0;
    EXPECT_DOUBLE_EQ(page.disk->corvaneUsed, whisper);
    const auto segments = page.disk->segments();
    EXPECT_NEAR(segments[0].gigabytes, 465.6 - 171.2 - whisper, 1e-9);
    EXPECT_NEAR(segments[2].gigabytes, 20 - whisper, 1e-9);
    double sum = 0;
    for (const auto& segment : segments) sum += segment.gigabytes;
    EXPECT_NEAR(sum, 465.6, 1e-9);
    EXPECT_EQ(page.diskLegend[0].text, "The system & files · 293.9 GB");
    EXPECT_EQ(page.diskLegend[1].text, "Transcription · 0.5 GB");
    EXPECT_EQ(page.diskLegend[2].text, "Budget headroom · 19.5 GB");
    EXPECT_EQ(page.freeText,
              "171.2 GB free right now. Corvane can never claim space the system or your files "
              "already use.");
    EXPECT_EQ(page.budgetMaximum, 171);
    EXPECT_EQ(page.categories[0].usage, "0.53 GB on disk");

    // A budget beyond the free space leaves no more headroom than there is room.
    const DiskAllocationBar full{100, 3, 10, 50};
    EXPECT_EQ(full.segments()[2].gigabytes, 3);
    EXPECT_EQ(full.segments()[3].gigabytes, 0);
    EXPECT_EQ(state({}, ModelsPageFilter::all, ModelRemoval{"Parakeet TDT v2", 0}).removalText,
              "Removed Parakeet TDT v2 · freed 0 MB");
}

}  // namespace
}  // namespace corvane
