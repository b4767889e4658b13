// Every scene of the catalogue through the real harness (`corvane --data-mode=dummy --screen=ID
// --capture-to=FILE`), offscreen with no display, against its golden picture. On a mismatch the
// actual picture and a difference map are written next to the build's test output; with
// CORVANE_UPDATE_GOLDENS=1 the goldens are rewritten instead.

#include <gtest/gtest.h>

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

const std::filesystem::path kGoldens = CORVANE_GOLDEN_DIR;
const std::filesystem::path kOutput = CORVANE_GOLDEN_OUTPUT_DIR;

struct Run {
    int exitCode = -1;
    std::string out;
};

// The shipped binary in a scratch home, with no display: the harness must not need one.
Run harness(const QStringList& arguments, const QString& palette = QStringLiteral("light")) {
    static QTemporaryDir home;
    QProcess process;
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "CORVANE_DATA_MODE"})
        environment.remove(QString::fromLatin1(name));
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"})
        environment.insert(QString::fromLatin1(name), home.filePath(QString::fromLatin1(name)));
    environment.insert(QStringLiteral("CORVANE_SCREENSHOT_PALETTE"), palette);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(CORVANE_BINARY), arguments);
    process.waitForFinished(120'000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput().toStdString()};
}

// Pixels whose colour differs by more than antialiasing does; the map marks them in red.
int differingPixels(const QImage& actual, const QImage& golden, QImage& map) {
    map = golden.convertToFormat(QImage::Format_RGB32);
    int count = 0;
    for (int y = 0; y < golden.height(); ++y) {
        for (int x = 0; x < golden.width(); ++x) {
            const QColor a = actual.pixelColor(x, y), b = golden.pixelColor(x, y);
            const int delta =
                std::max({std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                          std::abs(a.blue() - b.blue())});
            if (delta <= 40) continue;
            ++count;
            map.setPixelColor(x, y, Qt::red);
        }
    }
    return count;
}

class GoldenScene : public ::testing::TestWithParam<std::string> {
  protected:
    void SetUp() override { testing::qtTestApp(); }
};

TEST_P(GoldenScene, RendersAsItsGoldenPicture) {
    const std::string id = GetParam();
    std::filesystem::create_directories(kOutput);
    const auto actualPath = kOutput / (id + ".png");
    const auto run =
        harness({QStringLiteral("--data-mode=dummy"), QString::fromStdString("--screen=" + id),
                 QString::fromStdString("--capture-to=" + actualPath.string())});
    ASSERT_EQ(run.exitCode, 0) << run.out;
    EXPECT_EQ(run.out, "OK " + actualPath.string() + "\n");
    const QImage actual(QString::fromStdString(actualPath.string()));
    ASSERT_FALSE(actual.isNull());

    const auto goldenPath = kGoldens / (id + ".png");
    if (std::getenv("CORVANE_UPDATE_GOLDENS")) {
        std::filesystem::copy_file(actualPath, goldenPath,
                                   std::filesystem::copy_options::overwrite_existing);
        GTEST_SKIP() << "golden rewritten: " << goldenPath;
    }
    const QImage golden(QString::fromStdString(goldenPath.string()));
    ASSERT_FALSE(golden.isNull()) << "no golden at " << goldenPath
                                  << " (CORVANE_UPDATE_GOLDENS=1 writes it)";
    ASSERT_EQ(actual.size(), golden.size()) << "see " << actualPath;
    QImage map;
    const int differing = differingPixels(actual, golden, map);
    // A few hundred pixels of tolerance: glyph rasterisation may move an edge by one step.
    const int allowed = actual.width() * actual.height() / 500;
    if (differing > allowed) {
        const auto mapPath = kOutput / (id + ".diff.png");
        map.save(QString::fromStdString(mapPath.string()));
        FAIL() << differing << " pixels differ (allowed " << allowed << "); actual " << actualPath
               << ", difference " << mapPath;
    }
}

std::vector<std::string> sceneIDs() {
    std::vector<std::string> ids;
    for (const auto& scenario : screenshotCatalog()) ids.emplace_back(scenario.id);
    return ids;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, GoldenScene, ::testing::ValuesIn(sceneIDs()),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

// Scripts rely on the harness's last line and status.
TEST(ScreenshotHarness, FailuresSayWhatFailedOnTheirLastLineAndLeaveNothingBehind) {
    testing::qtTestApp();
    const auto unknown =
        harness({QStringLiteral("--data-mode=dummy"), QStringLiteral("--screen=no-such-id"),
                 QStringLiteral("--capture-to=/tmp/never.png")});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.out, "ERROR: unknown scenario id: no-such-id\n");

    QTemporaryDir scratch;
    const std::string missing =
        scratch.filePath(QStringLiteral("no/such/folder/x.png")).toStdString();
    const auto unwritable =
        harness({QStringLiteral("--data-mode=dummy"), QStringLiteral("--screen=popover-idle"),
                 QString::fromStdString("--capture-to=" + missing)});
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_EQ(unwritable.out, "ERROR: write failed for " + missing + "\n");
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path().toStdString())) << "nothing partial";
}

TEST(ScreenshotHarness, EverySceneIsAPictureOfItsOwn) {
    std::map<std::string, std::string> pictures;
    for (const auto& id : sceneIDs()) {
        QFile file(QString::fromStdString((kGoldens / (id + ".png")).string()));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << id;
        pictures[id] = file.readAll().toStdString();
    }
    // A newer version is only stored, never announced: the update banner stays hidden, so this
    // scene shows the same popover as the one it adds the update to.
    EXPECT_EQ(pictures.at("popover-update-available"), pictures.at("popover-earning"));
    pictures.erase("popover-update-available");
    std::set<std::string> distinct;
    for (const auto& [id, bytes] : pictures) {
        EXPECT_TRUE(distinct.insert(bytes).second) << id << " looks like another scene";
    }
}

}  // namespace
}  // namespace corvane
