// The Schedule & limits page as the owner drives it: a block painted on the heatmap with the
// pointer or the keyboard is one save that changes only the grid's lines of config.yaml; a file
// edited by hand shows at once; an unreadable line shows the default and is left as it is.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPushButton>
#include <QSlider>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/ui/dashboard/pages/SchedulePage.h"
#include "CorvaneApp/ui/widgets/ScheduleHeatmap.h"
#include "tests/config/ConfigLineDiff.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/PageTestSession.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

using Field = WorkerConfigStore::Field;
const std::filesystem::path kCorpus = CORVANE_CONFIG_CORPUS_DIR;

// The sample session's model beside a settings store over a real config.yaml.
class FileBackedSession final : public testing::PageTestSession {
  public:
    FileBackedSession(Executor& main, std::filesystem::path config)
        : PageTestSession(main),
          demo_(main, demoOptions()),
          store_(main, defaults_, runner_,
                 WorkerConfigStore::Options{
                     std::move(config), [] { return std::optional<double>(0); }, DataMode::real}) {}
    ~FileBackedSession() override { dropNotifications(); }
    void launch() override {}
    void terminate() override {}
    AppModel& model() override { return demo_.model(); }
    WorkerConfigStore& configStore() override { return store_; }
    UserDefaults& userDefaults() override { return defaults_; }
    WorkerStatusRecord statusRecord() override { return {}; }

  private:
    static DemoSession::Options demoOptions() {
        DemoSession::Options options;
        options.referenceDate = dateFromUnixSeconds(1'781'771'400);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        return options;
    }
    DemoSession demo_;
    UserDefaults defaults_;
    InlineBackgroundRunner runner_;
    WorkerConfigStore store_;
};

class SchedulePageTest : public ::testing::Test {
  protected:
    void open(const std::string& corpusFile) {
        testing::qtTestApp();
        original_ = readFile(kCorpus / corpusFile).value();
        config_ = folder_.write("home/.varnix-compute/config.yaml", original_);
        session_.emplace(executor_, config_);
        context_.emplace(PageContext{*session_, executor_, [](DashPage) {}, [] {}});
        page_ = std::make_unique<SchedulePage>(*context_);
        page_->resize(1000, 1400);
        page_->show();
        page_->refresh();
        page_->shown();
        executor_.runUntilIdle();  // the activity history's answer
        gridSaves_ = 0;
        watch_ =
            store().observe([this](Field field) { gridSaves_ += field == Field::scheduleGrid; });
    }
    WorkerConfigStore& store() { return session_->configStore(); }
    ScheduleHeatmap& heatmap() { return page_->heatmap(); }
    QPoint centre(HeatmapCell cell) { return heatmap().cell(cell).geometry().center(); }
    void mouse(QEvent::Type type, HeatmapCell cell) {
        const QPointF at = centre(cell);
        QMouseEvent event(type, at, heatmap().mapToGlobal(at),
                          type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                          type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                          Qt::NoModifier);
        QApplication::sendEvent(&heatmap(), &event);
    }
    void key(QEvent::Type type, int code, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QKeyEvent event(type, code, modifiers);
        QApplication::sendEvent(&heatmap().cell(heatmap().currentCell()), &event);
    }
    testing::Diff diffFromCorpus() {
        return testing::diffLines(configlines::split(original_),
                                  configlines::split(readFile(config_).value()));
    }

    testing::LogCapture logs_;
    testing::ScratchFolder folder_;
    testing::ManualExecutor executor_;
    std::string original_;
    std::filesystem::path config_;
    std::optional<FileBackedSession> session_;
    std::optional<PageContext> context_;
    std::unique_ptr<SchedulePage> page_;
    int gridSaves_ = 0;
    Subscription watch_;
};

TEST_F(SchedulePageTest, ADraggedBlockIsOneSaveOfTheGridLinesOnly) {
    open("02-settings-saved.yaml");
    // Monday and Tuesday, 18:00 to 20:59: open in the file, so the drag closes them.
    mouse(QEvent::MouseButtonPress, {0, 18});
    for (HeatmapCell cell : {HeatmapCell{0, 19}, {0, 20}, {1, 20}, {1, 19}, {1, 18}, {0, 18}})
        mouse(QEvent::MouseMove, cell);
    EXPECT_EQ(gridSaves_, 0) << "nothing is saved while the drag runs";
    EXPECT_EQ(heatmap().cell({1, 19}).accessibleName(), "Tuesday 19:00, quiet")
        << "the drag shows as it goes";
    mouse(QEvent::MouseButtonRelease, {0, 18});
    EXPECT_EQ(gridSaves_, 1);
    executor_.advance(WorkerConfigStore::saveDebounceSeconds);
    EXPECT_EQ(store().saveCount(), 1);

    for (int day : {0, 1}) {
        for (int hour = 17; hour <= 21; ++hour)
            EXPECT_EQ(store().scheduleGrid().isAllowed(day, hour), hour < 18 || hour > 20)
                << day << " " << hour;
    }
    const auto diff = diffFromCorpus();
    ASSERT_EQ(diff.removed.size(), 2u);
    ASSERT_EQ(diff.added.size(), 2u);
    for (const auto& line : diff.removed) EXPECT_TRUE(line.starts_with("    - [")) << line;
    for (const auto& line : diff.added) EXPECT_TRUE(line.starts_with("    - [")) << line;
}

TEST_F(SchedulePageTest, TheKeyboardReachesTogglesAndPaintsTheHeatmap) {
    open("02-settings-saved.yaml");
    int stops = 0;
    for (int day = 0; day < 7; ++day) {
        for (int hour = 0; hour < 24; ++hour)
            stops += heatmap().cell({day, hour}).focusPolicy() != Qt::NoFocus;
    }
    EXPECT_EQ(stops, 1) << "one Tab stop: the current cell";

    key(QEvent::KeyPress, Qt::Key_Space);  // Monday 00:00
    EXPECT_EQ(gridSaves_, 1) << "a toggle is saved at once";
    // The sample owner is never at the computer then: a quiet hour worth opening.
    EXPECT_EQ(heatmap().cell({0, 0}).accessibleName(), "Monday 00:00, quiet, suggested to open");

    key(QEvent::KeyPress, Qt::Key_Down);
    for (int i = 0; i < 3; ++i) key(QEvent::KeyPress, Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_EQ(heatmap().currentCell(), (HeatmapCell{1, 3}));
    EXPECT_EQ(gridSaves_, 1);
    key(QEvent::KeyRelease, Qt::Key_Shift);
    EXPECT_EQ(gridSaves_, 2) << "the paint is one save when Shift is let go";
    for (int hour = 0; hour <= 3; ++hour) EXPECT_FALSE(store().scheduleGrid().isAllowed(1, hour));
    EXPECT_TRUE(store().scheduleGrid().isAllowed(1, 4));
    EXPECT_EQ(heatmap().cell({1, 3}).focusPolicy(), Qt::StrongFocus);
    EXPECT_EQ(heatmap().cell({0, 0}).focusPolicy(), Qt::NoFocus);
}

TEST_F(SchedulePageTest, TheLimitsFollowAFileEditedByHand) {
    open("02-settings-saved.yaml");
    auto* inUseCpu = page_->findChild<QSlider*>("inUseCpuSlider");
    ASSERT_TRUE(inUseCpu);
    EXPECT_EQ(inUseCpu->value(), 20);
    auto edited = original_;
    edited.replace(edited.find("in_use_cpu_ceiling_pct: 20"), 26, "in_use_cpu_ceiling_pct: 33");
    writeFileAtomically(config_, edited);
    store().followFileChange();  // what the application's watcher does on the file's change
    EXPECT_EQ(inUseCpu->value(), 33);
    EXPECT_FALSE(store().hasPendingSave()) << "following the file writes nothing";

    // The owner moves a slider: the save keeps the hand edit.
    page_->findChild<QSlider*>("awayCpuSlider")->setValue(60);
    executor_.advance(WorkerConfigStore::saveDebounceSeconds);
    const auto diff = testing::diffLines(configlines::split(edited),
                                         configlines::split(readFile(config_).value()));
    EXPECT_EQ(diff.removed, std::vector<std::string>{"  away_cpu_ceiling_pct: 90"});
    EXPECT_EQ(diff.added, std::vector<std::string>{"  away_cpu_ceiling_pct: 60"});
}

TEST_F(SchedulePageTest, UnreadableAndOutOfRangeValuesShowWithoutBeingWrittenBack) {
    // "5min", "1,5" and "0x10" cannot be read; 100 GB is above this computer's slider.
    open("19-odd-values.yaml");
    EXPECT_EQ(page_->findChild<QSlider*>("idleMinutesSlider")->value(), 3);
    EXPECT_EQ(page_->findChild<QSlider*>("awayCpuSlider")->value(), 90);
    auto* awayRam = page_->findChild<QSlider*>("awayRamSlider");
    EXPECT_EQ(awayRam->maximum(), 30);
    EXPECT_EQ(awayRam->value(), 30);
    page_->refresh();
    executor_.advance(5);
    EXPECT_EQ(store().saveCount(), 0);
    EXPECT_FALSE(store().hasPendingSave());
    EXPECT_EQ(readFile(config_), original_);
}

TEST_F(SchedulePageTest, SuggestionsOpenTheQuietHoursInOneSave) {
    open("02-settings-saved.yaml");
    auto grid = store().scheduleGrid();
    for (int day = 0; day < 7; ++day) grid.setAllowed(false, day, 3);
    store().setScheduleGrid(grid);
    gridSaves_ = 0;
    auto* apply = page_->findChild<QPushButton*>("applySuggestions");
    ASSERT_TRUE(apply);
    EXPECT_TRUE(apply->isEnabled());
    apply->click();
    EXPECT_EQ(gridSaves_, 1);
    for (int day = 0; day < 7; ++day) EXPECT_TRUE(store().scheduleGrid().isAllowed(day, 3));
    EXPECT_FALSE(store().scheduleGrid().isAllowed(0, 10)) << "busy hours stay quiet";
    EXPECT_FALSE(apply->isEnabled());
}

}  // namespace
}  // namespace corvane
