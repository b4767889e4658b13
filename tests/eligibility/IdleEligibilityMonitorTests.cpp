#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"

#include <gtest/gtest.h>

#include <cmath>

#include "CorvaneApp/eligibility/PowerSupplyReader.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/eligibility/ScopedTimeZone.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Verdict = std::pair<bool, std::optional<std::string>>;

class IdleEligibilityMonitorTest : public ::testing::Test {
  protected:
    testing::FakeClock clock;
    testing::ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    double idleMinutes = 3, cpuCeiling = 0, ramCeiling = 0, idle = 0;
    bool scheduleOK = true, onAC = true;
    int probeCalls = 0;
    std::unique_ptr<IdleEligibilityMonitor> monitor = std::make_unique<IdleEligibilityMonitor>(
        gate, executor,
        IdleEligibilityMonitor::Settings{[this] { return idleMinutes; },
                                         [this] { return cpuCeiling; },
                                         [this] { return ramCeiling; }},
        IdleEligibilityMonitor::Probes{[this](Date) { return ++probeCalls, scheduleOK; },
                                       [this] { return ++probeCalls, idle; },
                                       [this] { return ++probeCalls, onAC; }, clock.function()});
};

TEST_F(IdleEligibilityMonitorTest, VerdictTableFirstMatchWins) {
    struct Row {
        bool schedule, ac;
        double idleSeconds, minutes, cpu, ram;
        Verdict expected;
    };
    const Verdict on{true, std::nullopt}, waiting{false, "waiting for idle"};
    const Row rows[] = {
        {true, true, 180.0, 3, 0, 0, on},  // equal passes
        {true, true, 179.99, 3, 0, 0, waiting},
        {true, true, 0, -5, 0, 0, on},   // negative minutes count as none
        {true, true, 0, 3, 20, 10, on},  // in-use limits allow work whatever the idle time
        {true, true, 0, 3, 20, 0, waiting},
        {false, false, 999, 3, 20, 10, {false, "schedule off"}},  // schedule outranks power
        {true, false, 0, 3, 20, 10, {false, "on battery"}},       // in-use mode needs AC too
        {true, true, NAN, 3, 0, 0, waiting},                      // a failed reading isn't idle
        {true, true, NAN, 0, 0, 0, on},
    };
    for (const auto& row : rows) {
        std::tie(scheduleOK, onAC, idle, idleMinutes, cpuCeiling, ramCeiling) =
            std::tie(row.schedule, row.ac, row.idleSeconds, row.minutes, row.cpu, row.ram);
        probeCalls = 0;
        monitor->evaluate();
        EXPECT_EQ(Verdict(gate->isScheduledOn(), gate->scheduledOffReason()), row.expected)
            << row.schedule << row.ac << " idle " << row.idleSeconds << " min " << row.minutes
            << " cpu " << row.cpu << " ram " << row.ram;
        EXPECT_EQ(probeCalls, 3);  // every probe, every tick, even when the first decides
    }
}

TEST(ScheduleCalendarTest, LocalWeekdayAndHourAcrossMidnightAndDaylightSaving) {
    testing::ScopedTimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");  // Berlin's rules, no tzdata needed
    const std::tuple<double, int, int> rows[] = {
        {1735513200, 0, 0},  // Monday 2024-12-30 00:00 CET
        {1743296400, 6, 3},  // Sunday 2025-03-30 03:00 CEST, a second after 01:59:59 CET
    };
    for (const auto& [unix, day, hour] : rows) {
        EXPECT_EQ(IdleEligibilityMonitor::localDayAndHour(dateFromUnixSeconds(unix)),
                  std::pair(day, hour))
            << unix;
    }
    Date thursday17 = dateFromUnixSeconds(1735833600), friday9 = dateFromUnixSeconds(1735891200);
    auto grid = ScheduleGrid::recommended();
    EXPECT_FALSE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, friday9));
    EXPECT_TRUE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, thursday17));
    grid.setAllowed(false, 3, 17);
    EXPECT_FALSE(IdleEligibilityMonitor::scheduleAllowsClaim(grid, thursday17));
    // A ragged grid from an old file reads its missing cells from the recommended one.
    EXPECT_FALSE(IdleEligibilityMonitor::scheduleAllowsClaim(ScheduleGrid{{{true}}}, friday9));

    std::optional<ScheduleGrid> stored;  // the settings store is gone: allowed
    auto probes = IdleEligibilityMonitor::Probes::system([&] { return stored; });
    EXPECT_TRUE(probes.isScheduleAllowing(friday9));
    stored = ScheduleGrid::recommended();
    EXPECT_FALSE(probes.isScheduleAllowing(friday9));
}

class PowerSupplyTest : public ::testing::Test {
  protected:
    void supply(const std::string& name, const std::string& type,
                std::vector<std::pair<std::string, std::string>> attributes = {}) {
        tree.write("ps/" + name + "/type", type + "\n");
        for (auto& [key, value] : attributes) tree.write("ps/" + name + "/" + key, value + "\n");
    }
    std::optional<std::string> providing() {
        return PowerSupplyReader(tree.path("ps")).read().providingSourceType;
    }
    bool onAC(const std::string& root = "ps") {
        return IdleEligibilityMonitor::isOnACPower(tree.path(root));
    }

    testing::FixtureTree tree;
    testing::LogCapture logs;
};

TEST_F(PowerSupplyTest, LaptopsDesktopsAndPeripheralBatteries) {
    tree.folder("ps");
    EXPECT_EQ(providing(), "AC Power");  // no supply at all: a desktop or server
    supply("hidpp_battery_0", "Battery", {{"status", "Discharging"}, {"scope", "Device"}});
    EXPECT_EQ(providing(), "AC Power");  // a wireless mouse doesn't power the machine
    supply("AC", "Mains", {{"online", "1"}});
    supply("BAT0", "Battery", {{"status", "Discharging"}});
    EXPECT_EQ(providing(), "AC Power");  // an online adapter wins
    supply("AC", "Mains", {{"online", "0"}});
    EXPECT_EQ(providing(), "Battery Power");
    EXPECT_FALSE(onAC());
    tree.unreadable("ps/AC/online");  // a full battery still means mains
    supply("BAT0", "Battery", {{"status", "Full"}});
    EXPECT_EQ(providing(), "AC Power");
    supply("ucsi-source-psy-USBC000:001", "USB", {{"online", "1"}});
    supply("BAT0", "Battery", {{"status", "Discharging"}});
    EXPECT_EQ(providing(), "AC Power");
    EXPECT_TRUE(logs.lines().empty());
}

TEST_F(PowerSupplyTest, UnknownGarbageAndMissingAssumeACWithAnError) {
    for (const char* status : {"Unknown", "\x01garbage", ""}) {
        supply("BAT0", "Battery", {{"status", status}});
        EXPECT_EQ(providing(), std::nullopt) << status;
        EXPECT_TRUE(onAC());
    }
    EXPECT_TRUE(logs.contains(
        "IdleEligibilityMonitor error: providing power source type unknown \u2014 assuming AC"));
    tree.unreadable("ps/BAT0/status");
    EXPECT_EQ(providing(), std::nullopt);
    supply("ADP1", "Mains", {{"online", "0"}});  // an unknown battery beside an unplugged adapter
    EXPECT_EQ(providing(), "Battery Power");
    tree.unreadable("ps/ADP1/type");  // supplies whose type can't be read are skipped
    tree.write("ps/junk/type", "");
    EXPECT_EQ(providing(), std::nullopt);

    EXPECT_FALSE(PowerSupplyReader(tree.path("nothing")).read().folderReadable);
    EXPECT_TRUE(onAC("nothing"));
    EXPECT_TRUE(onAC("ps/junk/type"));  // a file where the folder should be
    EXPECT_TRUE(
        logs.contains("IdleEligibilityMonitor error: power supply information unavailable \u2014 "
                      "assuming AC to avoid false pauses"));
}

}  // namespace
}  // namespace corvane
