#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "CorvaneApp/eligibility/PowerSupplyReader.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/eligibility/ScopedTimeZone.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using testing::FakeClock;
using testing::ManualExecutor;
using testing::ScopedTimeZone;

class IdleEligibilityMonitorTest : public ::testing::Test {
protected:
    IdleEligibilityMonitor makeMonitor() {
        return IdleEligibilityMonitor(
            gate, executor,
            {[this] { return idleMinutes; }, [this] { return cpuCeiling; }, [this] { return ramCeiling; }},
            {[this](Date) {
                 ++probeCalls;
                 return scheduleOK;
             },
             [this] {
                 ++probeCalls;
                 return idle;
             },
             [this] {
                 ++probeCalls;
                 return onAC;
             },
             clock.function()});
    }
    // One evaluation; the gate's schedule input and its reason.
    std::pair<bool, std::optional<std::string>> verdict() {
        makeMonitor().evaluate();
        return {gate->isScheduledOn(), gate->scheduledOffReason()};
    }

    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    double idleMinutes = 3;
    double cpuCeiling = 0;
    double ramCeiling = 0;
    bool scheduleOK = true;
    double idle = 0;
    bool onAC = true;
    int probeCalls = 0;
};

TEST_F(IdleEligibilityMonitorTest, VerdictTableFirstMatchWins) {
    using Verdict = std::pair<bool, std::optional<std::string>>;
    struct Row {
        bool schedule, ac;
        double idleSeconds, minutes, cpu, ram;
        Verdict expected;
    };
    const Verdict on{true, std::nullopt};
    const Row rows[] = {
        {true, true, 180.0, 3, 0, 0, on},                         // equal passes
        {true, true, 179.99, 3, 0, 0, {false, "waiting for idle"}},
        {true, true, 0, 0, 0, 0, on},                              // no idle needed
        {true, true, 0, -5, 0, 0, on},                             // negative minutes count as 0
        {true, true, 0, 3, 20, 10, on},                            // in-use limits allow work
        {true, true, 0, 3, 20, 0, {false, "waiting for idle"}},
        {true, true, 0, 3, 0, 10, {false, "waiting for idle"}},
        {true, true, 0, 3, -20, 10, {false, "waiting for idle"}},
        {false, false, 999, 3, 20, 10, {false, "schedule off"}},   // schedule outranks power
        {true, false, 999, 3, 0, 0, {false, "on battery"}},        // power outranks idleness
        {true, false, 0, 3, 20, 10, {false, "on battery"}},        // AC needed in in-use mode too
        {true, true, NAN, 0, 0, 0, on},
        {true, true, NAN, 3, 0, 0, {false, "waiting for idle"}},   // a failed reading is not idle
        {true, true, -50, 3, 0, 0, {false, "waiting for idle"}},
        {true, true, INFINITY, 3, 0, 0, on},
    };
    for (const auto& row : rows) {
        scheduleOK = row.schedule;
        onAC = row.ac;
        idle = row.idleSeconds;
        idleMinutes = row.minutes;
        cpuCeiling = row.cpu;
        ramCeiling = row.ram;
        EXPECT_EQ(verdict(), row.expected) << row.schedule << row.ac << " idle " << row.idleSeconds
                                           << " min " << row.minutes << " cpu " << row.cpu
                                           << " ram " << row.ram;
    }
}

TEST_F(IdleEligibilityMonitorTest, EveryProbeRunsEveryTickEvenWhenTheFirstDecides) {
    scheduleOK = false;
    makeMonitor().evaluate();
    EXPECT_EQ(probeCalls, 3);
}

TEST_F(IdleEligibilityMonitorTest, StartEvaluatesAtOnceThenEveryFiveSeconds) {
    onAC = false;
    auto monitor = makeMonitor();
    monitor.start();
    EXPECT_EQ(gate->reason(), "on battery");  // before any timer tick
    monitor.start();
    EXPECT_EQ(probeCalls, 3);                 // no second immediate evaluation
    EXPECT_EQ(executor.timerCount(), 1u);     // and no second timer
    onAC = true;
    idleMinutes = 0;
    executor.advance(4.9);
    EXPECT_EQ(gate->reason(), "on battery");
    executor.advance(0.1);
    EXPECT_TRUE(gate->isEligible());
    executor.advance(50);
    EXPECT_EQ(probeCalls, 3 * 12);
}

TEST_F(IdleEligibilityMonitorTest, TimerEndsWithTheMonitor) {
    {
        auto monitor = makeMonitor();
        monitor.start();
    }
    EXPECT_EQ(executor.timerCount(), 0u);
    executor.advance(30);
    EXPECT_EQ(probeCalls, 3);
}

TEST(ScheduleCalendarTest, LocalWeekdayAndHourMapToTheGrid) {
    ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");  // Berlin's rules, no tzdata needed
    struct Row {
        double unixSeconds;
        int day, hour;
    };
    const Row rows[] = {
        {1735513200, 0, 0},    // Monday 2024-12-30 00:00 CET
        {1735509600, 6, 23},   // Sunday 2024-12-29 23:00 CET
        {1743296400, 6, 3},    // Sunday 2025-03-30 03:00 CEST, just after the clocks moved
        {1743296399, 6, 1},    // 01:59:59 CET, just before
        {1735833600, 3, 17},   // Thursday 2025-01-02 17:00 CET
    };
    for (const auto& row : rows) {
        auto dayAndHour = IdleEligibilityMonitor::localDayAndHour(dateFromUnixSeconds(row.unixSeconds));
        ASSERT_TRUE(dayAndHour);
        EXPECT_EQ(*dayAndHour, std::make_pair(row.day, row.hour)) << row.unixSeconds;
    }
    auto grid = ScheduleGrid::recommended();
    EXPECT_FALSE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, dateFromUnixSeconds(1735891200)));  // Fri 09:00
    EXPECT_TRUE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, dateFromUnixSeconds(1735833600)));   // Thu 17:00
    grid.setAllowed(false, 3, 17);
    EXPECT_FALSE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, dateFromUnixSeconds(1735833600)));
    // A ragged grid from an old file reads its missing cells from the recommended grid.
    ScheduleGrid ragged{{{true}}};
    EXPECT_TRUE(IdleEligibilityMonitor::scheduleAllowsClaim(ragged, dateFromUnixSeconds(1735513200)));
    EXPECT_TRUE(IdleEligibilityMonitor::scheduleAllowsClaim(ragged, dateFromUnixSeconds(1735833600)));
}

TEST(SystemProbesTest, ScheduleProbeAllowsWhenTheStoreIsGone) {
    ScopedTimeZone zone("UTC");
    std::optional<ScheduleGrid> grid;
    auto probes = IdleEligibilityMonitor::Probes::system([&] { return grid; });
    Date fridayNoon = dateFromUnixSeconds(1735905600);  // Friday 2025-01-03 12:00 UTC
    EXPECT_TRUE(probes.isScheduleAllowing(fridayNoon));
    grid = ScheduleGrid::recommended();
    EXPECT_FALSE(probes.isScheduleAllowing(fridayNoon));
}

class PowerSupplyTest : public ::testing::Test {
protected:
    void supply(const std::string& name, const std::string& type,
                std::vector<std::pair<std::string, std::string>> attributes) {
        tree.write("ps/" + name + "/type", type + "\n");
        for (auto& [key, value] : attributes) tree.write("ps/" + name + "/" + key, value + "\n");
    }
    std::optional<std::string> providing() {
        return PowerSupplyReader(tree.path("ps")).read().providingSourceType;
    }
    testing::FixtureTree tree;
};

TEST_F(PowerSupplyTest, LaptopOnMainsAndOnBattery) {
    supply("AC", "Mains", {{"online", "1"}});
    supply("BAT0", "Battery", {{"status", "Charging"}, {"scope", "System"}});
    EXPECT_EQ(providing(), "AC Power");
    supply("AC", "Mains", {{"online", "0"}});
    supply("BAT0", "Battery", {{"status", "Discharging"}});
    EXPECT_EQ(providing(), "Battery Power");
    // A full battery while the adapter's own file is unreadable still means mains.
    tree.unreadable("ps/AC/online");
    supply("BAT0", "Battery", {{"status", "Full"}});
    EXPECT_EQ(providing(), "AC Power");
}

TEST_F(PowerSupplyTest, DesktopsServersAndPeripheralBatteries) {
    tree.folder("ps");
    EXPECT_EQ(providing(), "AC Power");  // no supplies at all: a server
    supply("hidpp_battery_0", "Battery", {{"status", "Discharging"}, {"scope", "Device"}});
    EXPECT_EQ(providing(), "AC Power");  // a wireless mouse doesn't power the machine
    supply("ucsi-source-psy-USBC000:001", "USB", {{"online", "1"}});
    supply("BAT1", "Battery", {{"status", "Not charging"}});
    EXPECT_EQ(providing(), "AC Power");
}

TEST_F(PowerSupplyTest, UnknownAndGarbageGiveNoVerdictAndTheMonitorAssumesAC) {
    testing::LogCapture logs;
    supply("BAT0", "Battery", {{"status", "Unknown"}});
    EXPECT_EQ(providing(), std::nullopt);
    EXPECT_TRUE(IdleEligibilityMonitor::isOnACPower(tree.path("ps").string()));
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor error: providing power source type unknown"));

    supply("BAT0", "Battery", {{"status", "\x01\x02garbage"}});
    EXPECT_EQ(providing(), std::nullopt);
    tree.unreadable("ps/BAT0/status");
    EXPECT_EQ(providing(), std::nullopt);
    // An unknown battery next to an adapter that says it is unplugged: on battery.
    supply("ADP1", "Mains", {{"online", "0"}});
    EXPECT_EQ(providing(), "Battery Power");
    EXPECT_FALSE(IdleEligibilityMonitor::isOnACPower(tree.path("ps").string()));
    // Supplies whose type can't be read are skipped.
    tree.unreadable("ps/ADP1/type");
    tree.write("ps/junk/type", "");
    EXPECT_EQ(providing(), std::nullopt);
}

TEST_F(PowerSupplyTest, MissingFolderAssumesACWithItsOwnError) {
    testing::LogCapture logs;
    EXPECT_FALSE(PowerSupplyReader(tree.path("nothing")).read().folderReadable);
    EXPECT_TRUE(IdleEligibilityMonitor::isOnACPower(tree.path("nothing").string()));
    EXPECT_TRUE(logs.contains(
        "IdleEligibilityMonitor error: power supply information unavailable \u2014 assuming AC to avoid false pauses"));
    tree.write("file-not-folder", "x");
    EXPECT_TRUE(IdleEligibilityMonitor::isOnACPower(tree.path("file-not-folder").string()));
}

}  // namespace
}  // namespace corvane
