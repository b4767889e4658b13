#include "CorvaneApp/eligibility/HeavyAppDetector.h"

#include <gtest/gtest.h>

#include "CorvaneApp/eligibility/HeavyAppSystemSampler.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Sample = HeavyAppDetector::ForegroundAppSample;
using Strategy = HeavyAppDetector::TriggerStrategy;
using testing::FakeClock;
using testing::ManualExecutor;

Sample app(double cpu, double ram, int pid = 100, std::string name = "Blender",
           Strategy strategy = Strategy::sustainedEverySample) {
    return Sample{pid, "blender", std::move(name), cpu, ram, strategy};
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
    std::vector<std::string> holds() const { return gate->pauseReasons(); }

    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::shared_ptr<ScriptedSampler> sampler = std::make_shared<ScriptedSampler>();
    bool enabled = true;
    std::vector<std::optional<std::string>> told;
    HeavyAppDetector detector{gate, executor, [this] { return enabled; }, sampler,
                              [this](const std::optional<std::string>& text) { told.push_back(text); }};
};

TEST_F(HeavyAppDetectorTest, TenHeavySamplesPauseWithTheLoadInTheText) {
    feed(app(60, 10), 9);
    EXPECT_TRUE(gate->isEligible());
    feed(app(60, 10));
    EXPECT_EQ(holds(), std::vector<std::string>{"Paused \u2014 Blender is using 60% CPU"});
    EXPECT_EQ(told, (std::vector<std::optional<std::string>>{"Paused \u2014 Blender is using 60% CPU"}));

    feed(app(30, 10));  // still heavy enough to stay: the text follows, the gate's entry doesn't
    EXPECT_EQ(detector.currentPauseDescription(), "Paused \u2014 Blender is using 30% CPU");
    EXPECT_EQ(holds(), std::vector<std::string>{"Paused \u2014 Blender is using 60% CPU"});
    feed(app(24, 26));
    EXPECT_TRUE(detector.isPaused());
    EXPECT_EQ(detector.currentPauseDescription(), "Paused \u2014 Blender is using 26% RAM");
    feed(app(25, 0));  // exactly 25 doesn't release
    EXPECT_TRUE(detector.isPaused());
    feed(app(24, 24));
    EXPECT_FALSE(detector.isPaused());
    EXPECT_TRUE(gate->isEligible());
    EXPECT_EQ(told.back(), std::nullopt);
    EXPECT_EQ(detector.window().size(), 10u);  // kept, so a heavy window re-arms at once
}

TEST_F(HeavyAppDetectorTest, WindowRearmsAfterReleaseOnlyWhenItStillHolds) {
    feed(app(10, 60), 10);
    feed(app(1, 1));  // release; the window now has one light sample
    EXPECT_FALSE(detector.isPaused());
    feed(app(10, 60), 9);
    EXPECT_FALSE(detector.isPaused());  // the light sample is still in the window
    feed(app(10, 60));
    EXPECT_TRUE(detector.isPaused());
    EXPECT_EQ(holds().back(), "Paused \u2014 Blender is using 60% RAM");
}

TEST_F(HeavyAppDetectorTest, StrategiesOverTheWindow) {
    using Window = std::deque<HeavyAppDetector::WindowSample>;
    Window alternating;
    for (int i = 0; i < 10; ++i) alternating.push_back(i % 2 ? HeavyAppDetector::WindowSample{60, 10}
                                                              : HeavyAppDetector::WindowSample{10, 60});
    EXPECT_TRUE(HeavyAppDetector::shouldPause(alternating, Strategy::sustainedEverySample));
    Window nineAndOne(9, {80, 0});
    nineAndOne.push_back({10, 10});
    EXPECT_FALSE(HeavyAppDetector::shouldPause(nineAndOne, Strategy::sustainedEverySample));
    EXPECT_TRUE(HeavyAppDetector::shouldPause(nineAndOne, Strategy::averageWindow));  // mean 73
    Window bursts(5, {100, 0});
    bursts.insert(bursts.end(), 5, {5, 0});  // mean 52.5
    EXPECT_TRUE(HeavyAppDetector::shouldPause(bursts, Strategy::averageWindow));
    EXPECT_FALSE(HeavyAppDetector::shouldPause(bursts, Strategy::sustainedEverySample));
    Window exact(10, {50.0, 0});
    EXPECT_TRUE(HeavyAppDetector::shouldPause(exact, Strategy::sustainedEverySample));
    EXPECT_FALSE(HeavyAppDetector::shouldPause(Window(9, {99, 99}), Strategy::averageWindow));
    Window justUnder(10, {49.99, 49.99});
    EXPECT_FALSE(HeavyAppDetector::shouldPause(justUnder, Strategy::averageWindow));

    EXPECT_EQ(HeavyAppDetector::strategyFor("qtcreator"), Strategy::averageWindow);
    EXPECT_EQ(HeavyAppDetector::strategyFor("blender"), Strategy::sustainedEverySample);
    EXPECT_EQ(HeavyAppDetector::strategyFor(std::nullopt), Strategy::sustainedEverySample);
}

TEST_F(HeavyAppDetectorTest, DescriptionNamesTheLargerLoadCPUOnEquality) {
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(55, 55)), "Paused \u2014 Blender is using 55% CPU");
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(55, 55.01)), "Paused \u2014 Blender is using 55% RAM");
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(72.5, 3)), "Paused \u2014 Blender is using 73% CPU");
    // A broken reading compares as "not at most", so it names RAM, and its number is 0.
    EXPECT_EQ(HeavyAppDetector::pauseDescription(app(NAN, NAN)), "Paused \u2014 Blender is using 0% RAM");
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
    feed(app(90, 0, 201, "Kdenlive"));  // restarted under a new process id: a new application
    EXPECT_FALSE(detector.isPaused());
    feed(app(90, 0, 201, "Kdenlive"), 9);
    ASSERT_TRUE(detector.isPaused());
    detector.evaluate(std::nullopt);  // the sampler failed or nothing is in front
    EXPECT_FALSE(detector.isPaused());
    EXPECT_FALSE(detector.trackedApp());
    EXPECT_TRUE(detector.window().empty());
    EXPECT_TRUE(gate->isEligible());
}

TEST_F(HeavyAppDetectorTest, SettingOffStopAndTimer) {
    sampler->next = app(90, 0);
    detector.start();
    detector.start();
    EXPECT_EQ(sampler->calls, 1);
    executor.advance(9 * 30);
    EXPECT_EQ(sampler->calls, 10);
    EXPECT_TRUE(detector.isPaused());

    enabled = false;
    detector.syncConfiguration();
    EXPECT_FALSE(detector.isPaused());
    EXPECT_TRUE(gate->isEligible());
    executor.advance(30);  // a tick with the setting off keeps it off
    EXPECT_FALSE(detector.isPaused());

    enabled = true;
    executor.advance(10 * 30);
    EXPECT_TRUE(detector.isPaused());
    detector.stop();
    EXPECT_FALSE(detector.isPaused());
    EXPECT_TRUE(gate->isEligible());
    int calls = sampler->calls;
    executor.advance(300);
    EXPECT_EQ(sampler->calls, calls);
}

// The foreground process and its window's name, as a test says.
class FixedForeground final : public ForegroundAppSource {
public:
    std::optional<App> app;
    std::optional<App> frontmost() override { return app; }
};

class SystemSamplerTest : public ::testing::Test {
protected:
    // utime and stime in ticks of 1/100 s, rss in pages of 4096 bytes.
    void process(int pid, const std::string& name, std::uint64_t ticks, std::uint64_t rssPages,
                 char state = 'R') {
        tree.write("proc/" + std::to_string(pid) + "/stat",
                   std::to_string(pid) + " (" + name + ") " + state + " 1 1 1 0 -1 0 0 0 0 0 " +
                       std::to_string(ticks) + " 0 0 0 20 0 1 0 100 1000 " + std::to_string(rssPages) +
                       " 0\n");
    }
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
    process(42, "blender", 1000, 600);
    auto s = sampler();
    auto first = s.sampleForegroundApp();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->cpuPercent, 0.0);  // no previous reading yet
    EXPECT_DOUBLE_EQ(first->memoryPercent, 60.0);
    EXPECT_EQ(first->localizedName, "Blender");
    EXPECT_EQ(first->bundleIdentifier, "blender");

    clock.advance(30);
    process(42, "blender", 1000 + 6000, 100);  // 60 s of CPU in 30 s on 4 cores: 50%
    auto second = s.sampleForegroundApp();
    EXPECT_DOUBLE_EQ(second->cpuPercent, 50.0);
    EXPECT_DOUBLE_EQ(second->memoryPercent, 10.0);

    clock.advance(30);
    process(42, "blender", 10, 100);  // total went down: a reused id reads as no use
    EXPECT_EQ(s.sampleForegroundApp()->cpuPercent, 0.0);
    process(42, "blender", 400, 100);
    EXPECT_EQ(s.sampleForegroundApp()->cpuPercent, 0.0);  // no time elapsed
}

TEST_F(SystemSamplerTest, NamesStrategiesAndEverythingThatGivesNoSample) {
    process(7, "qtcreator", 0, 0);
    foreground->app = ForegroundAppSource::App{7, std::nullopt};
    auto s = sampler();
    auto sample = s.sampleForegroundApp();
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->localizedName, "qtcreator");
    EXPECT_EQ(sample->strategy, Strategy::averageWindow);

    process(8, "", 0, 0);
    foreground->app = ForegroundAppSource::App{8, std::nullopt};
    EXPECT_EQ(s.sampleForegroundApp()->localizedName, "Foreground app");

    foreground->app.reset();
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    foreground->app = ForegroundAppSource::App{0, "x"};
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    foreground->app = ForegroundAppSource::App{9, "gone"};
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    tree.write("proc/10/stat", "10 (truncated) R 1 1");
    foreground->app = ForegroundAppSource::App{10, "x"};
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    process(11, "zombie", 5, 5, 'Z');
    foreground->app = ForegroundAppSource::App{11, "x"};
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
    tree.unreadable("proc/12/stat");
    foreground->app = ForegroundAppSource::App{12, "x"};
    EXPECT_EQ(s.sampleForegroundApp(), std::nullopt);
}

TEST(ProcessTableTest, StatLinesWithAwkwardNames) {
    auto parsed = ProcessTable::parseStat(
        5, "5 (Web Content (x) ) S 1 1 1 0 -1 0 0 0 0 0 12 30 0 0 20 0 1 0 100 1000 77 0");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->name, "Web Content (x) ");
    EXPECT_EQ(parsed->cpuTicks, 42u);
    EXPECT_EQ(parsed->residentPages, 77u);
    for (const char* bad : {"", "5 no parens", "5 )x( S", "5 (a) S 1 1 1 0 -1 0 0 0 0 0 x 30 0 0 20 0 1 0 100 1000 77",
                            "5 (a) SS 1 1 1 0 -1 0 0 0 0 0 1 30 0 0 20 0 1 0 100 1000 77"}) {
        EXPECT_EQ(ProcessTable::parseStat(5, bad), std::nullopt) << bad;
    }
    auto self = ProcessTable().process(::getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->processID, ::getpid());
    EXPECT_GT(self->residentPages, 0u);
}

TEST(X11ForegroundAppSourceTest, NoDisplayMeansNoApplication) {
    X11ForegroundAppSource source(std::make_shared<X11Display>(":9877"));
    EXPECT_EQ(source.frontmost().has_value(), false);
}

}  // namespace
}  // namespace corvane
