#include "CorvaneApp/eligibility/HeavyAppDetector.h"

#include <gtest/gtest.h>

#include <cmath>

#include "CorvaneApp/eligibility/HeavyAppSystemSampler.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Sample = HeavyAppDetector::ForegroundAppSample;
using Strategy = HeavyAppDetector::TriggerStrategy;
using testing::FakeClock;
using testing::ManualExecutor;

Sample app(double cpu, double ram, int pid = 100, std::string name = "Blender") {
    return Sample{pid, "blender", std::move(name), cpu, ram, Strategy::sustainedEverySample};
}

class ScriptedSampler final : public HeavyAppDetector::Sampling {
  public:
    std::optional<Sample> next;
    int calls = 0;
    std::optional<Sample> sampleForegroundApp() override {
        ++calls;
        return next;
    }
};

class HeavyAppDetectorTest : public ::testing::Test {
  protected:
    void feed(const Sample& sample, int times = 1) {
        for (int i = 0; i < times; ++i) detector.evaluate(sample);
    }

    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::shared_ptr<ScriptedSampler> sampler = std::make_shared<ScriptedSampler>();
    bool enabled = true;
    std::vector<std::optional<std::string>> told;
    HeavyAppDetector detector{
        gate, executor, [this] { return enabled; }, sampler,
        [this](const std::optional<std::string>& text) { told.push_back(text); }};
};

TEST_F(HeavyAppDetectorTest, TenHeavySamplesPauseTheTextFollowsTheLoadAQuarterReleases) {
    feed(app(60, 10), 9);
    EXPECT_TRUE(gate->isEligible());
    feed(app(60, 10));
    EXPECT_EQ(gate->pauseReasons(),
              std::vector<std::string>{"Paused \u2014 Blender is using 60% CPU"});
    feed(app(30, 10));  // still held; the owner's text follows, the gate's entry doesn't
    feed(app(24, 26));
    feed(app(25, 0));  // exactly 25 doesn't release
    EXPECT_TRUE(detector.isPaused());
    EXPECT_EQ(gate->pauseReasons(),
              std::vector<std::string>{"Paused \u2014 Blender is using 60% CPU"});
    using Texts = std::vector<std::optional<std::string>>;
    EXPECT_EQ(told, (Texts{"Paused \u2014 Blender is using 60% CPU",
                           "Paused \u2014 Blender is using 30% CPU",
                           "Paused \u2014 Blender is using 26% RAM",
                           "Paused \u2014 Blender is using 25% CPU"}));
    feed(app(24, 24));
    EXPECT_FALSE(detector.isPaused());
    EXPECT_TRUE(gate->isEligible());
    EXPECT_EQ(told.back(), std::nullopt);
}

TEST(HeavyAppStrategyTest, WindowsStrategiesAndTexts) {
    using Window = std::deque<HeavyAppDetector::WindowSample>;
    auto window = [](std::vector<std::pair<int, HeavyAppDetector::WindowSample>> runs) {
        Window w;
        for (auto [count, sample] : runs) w.insert(w.end(), count, sample);
        return w;
    };
    struct Row {
        Window window;
        bool sustained, average;
    };
    const Row rows[] = {
        {window({{5, {60, 10}}, {5, {10, 60}}}), true,
         false},  // CPU and RAM may alternate; means 35
        {window({{9, {80, 0}}, {1, {10, 10}}}), false, true},  // one light sample; mean 73
        {window({{10, {50.0, 0}}}), true, true},               // exactly 50 passes
        {window({{10, {49.99, 49.99}}}), false, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(HeavyAppDetector::shouldPause(row.window, Strategy::sustainedEverySample),
                  row.sustained);
        EXPECT_EQ(HeavyAppDetector::shouldPause(row.window, Strategy::averageWindow), row.average);
    }
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(55, 55)),
              "Paused \u2014 Blender is using 55% CPU");
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(72.5, 3)),
              "Paused \u2014 Blender is using 73% CPU");
    // A broken reading compares as "not at most", so it names RAM, and its number is 0.
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(NAN, NAN)),
              "Paused \u2014 Blender is using 0% RAM");
}

TEST_F(HeavyAppDetectorTest, AnotherAppInFrontOrNoneReleasesAndEmptiesTheWindow) {
    feed(app(90, 0), 10);
    ASSERT_TRUE(detector.isPaused());
    feed(app(90, 0, 200, "Kdenlive"));  // another application comes to the front
    EXPECT_FALSE(detector.isPaused());
    EXPECT_EQ(detector.window().size(), 1u);
    EXPECT_EQ(told.back(), std::nullopt);

    feed(app(90, 0, 200, "Kdenlive"), 9);
    ASSERT_TRUE(detector.isPaused());
    detector.evaluate(std::nullopt);  // the sampler failed or nothing is in front
    EXPECT_FALSE(detector.isPaused());
    EXPECT_FALSE(detector.trackedApp());
    EXPECT_TRUE(detector.window().empty());
    EXPECT_TRUE(gate->isEligible());
}

TEST_F(HeavyAppDetectorTest, OneLoopAndTheSettingOffReleases) {
    sampler->next = app(90, 0);
    detector.start();
    detector.start();
    executor.advance(9 * 30);
    EXPECT_EQ(sampler->calls, 10);  // one loop
    EXPECT_TRUE(detector.isPaused());

    enabled = false;
    detector.syncConfiguration();
    EXPECT_FALSE(detector.isPaused());
    executor.advance(30);  // a tick with the setting off keeps it off
    EXPECT_TRUE(gate->isEligible());
}

// The foreground process and its window's name, as a test says.
class FixedForeground final : public ForegroundAppSource {
  public:
    std::optional<App> app;
    std::optional<App> frontmost() override { return app; }
};

class SystemSamplerTest : public ::testing::Test {
  protected:
    // Ticks of 1/100 s, pages of 4096 bytes.
    HeavyAppDetector::SystemSampler sampler() {
        return HeavyAppDetector::SystemSampler(foreground, ProcessTable(tree.path("proc")),
                                               {4, 4096.0 * 1000, 100, 4096}, clock.function());
    }

    testing::FixtureTree tree;
    FakeClock clock;
    std::shared_ptr<FixedForeground> foreground = std::make_shared<FixedForeground>();
};

TEST_F(SystemSamplerTest, CPUOverAllCoresSinceTheLastSampleAndRAMOfPhysicalMemory) {
    foreground->app = ForegroundAppSource::App{42, "Blender"};
    tree.process(42, "blender", 'R', 1000, 600);
    auto s = sampler();
    auto first = s.sampleForegroundApp();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->cpuPercent, 0.0);  // no previous reading yet
    EXPECT_DOUBLE_EQ(first->memoryPercent, 60.0);
    EXPECT_EQ(first->localizedName, "Blender");

    clock.advance(30);
    tree.process(42, "blender", 'R', 1000 + 6000, 100);  // 60 s of CPU in 30 s on 4 cores: 50%
    auto second = s.sampleForegroundApp();
    EXPECT_DOUBLE_EQ(second->cpuPercent, 50.0);
    EXPECT_DOUBLE_EQ(second->memoryPercent, 10.0);

    clock.advance(30);
    tree.process(42, "blender", 'R', 10, 100);  // total went down: a reused id reads as no use
    EXPECT_EQ(s.sampleForegroundApp()->cpuPercent, 0.0);
    tree.process(42, "blender", 'R', 400, 100);
    EXPECT_EQ(s.sampleForegroundApp()->cpuPercent, 0.0);  // no time elapsed
}

TEST_F(SystemSamplerTest, NamesStrategiesAndEverythingThatGivesNoSample) {
    tree.process(7, "qtcreator");
    tree.process(8, "");
    tree.process(11, "zombie", 'Z');
    tree.write("proc/10/stat", "10 (truncated) R 1 1");
    tree.unreadable("proc/12/stat");
    auto s = sampler();
    auto sampleOf = [&](int pid, std::optional<std::string> windowName = std::nullopt) {
        foreground->app = ForegroundAppSource::App{pid, std::move(windowName)};
        return s.sampleForegroundApp();
    };
    EXPECT_EQ(sampleOf(7)->localizedName, "qtcreator");
    EXPECT_EQ(sampleOf(7)->strategy, Strategy::averageWindow);
    EXPECT_EQ(sampleOf(8)->localizedName, "Foreground app");
    EXPECT_EQ(sampleOf(8)->strategy, Strategy::sustainedEverySample);
    for (int pid : {0, 9, 10, 11, 12}) EXPECT_EQ(sampleOf(pid, "x"), std::nullopt) << pid;
    foreground->app.reset();
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    // No X server: no application in front, and no exit.
    EXPECT_FALSE(X11ForegroundAppSource(std::make_shared<X11Display>(":9877")).frontmost());

    auto parsed = ProcessTable::parseStat(
        5, "5 (Web (x) ) S 1 1 1 0 -1 0 0 0 0 0 12 30 0 0 20 0 1 0 100 1000 77 0");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->name, "Web (x) ");
    EXPECT_EQ(parsed->cpuTicks, 42u);
    EXPECT_EQ(parsed->residentPages, 77u);
    EXPECT_GT(ProcessTable().process(::getpid()).value().residentPages, 0u);
}

}  // namespace
}  // namespace corvane
