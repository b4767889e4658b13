#include <gtest/gtest.h>

#include <cstdio>

#include "CorvaneApp/eligibility/HeavyAppDetector.h"
#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"
#include "CorvaneApp/eligibility/MeetingDetector.h"
#include "tests/eligibility/ScopedTimeZone.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using testing::FakeClock;
using testing::ManualExecutor;

constexpr double kMonday = 1736121600;  // 2025-01-06 00:00 UTC

double at(int hours, int minutes = 0, int seconds = 0) {
    return hours * 3600.0 + minutes * 60.0 + seconds;
}

std::string clockText(double secondsOfDay) {
    int s = static_cast<int>(secondsOfDay);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", s / 3600, s / 60 % 60, s % 60);
    return text;
}

struct Interval {
    double from, to;
    bool contains(double t) const { return t >= from && t < to; }
};

struct Transition {
    std::string time;
    bool eligible;
    std::optional<std::string> reason;
    bool operator==(const Transition&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Transition& t) {
    return out << t.time << (t.eligible ? " eligible " : " paused ") << t.reason.value_or("-");
}

// A day of one computer, driven by the fake clock: every watcher runs on its own timer against
// fake probes whose answers follow the time of day.
class EligibilityDayTest : public ::testing::Test {
  protected:
    double secondsOfDay() const {
        return secondsBetween(dateFromUnixSeconds(kMonday), clock.now());
    }
    static bool inAny(const std::vector<Interval>& intervals, double t) {
        for (const auto& i : intervals) {
            if (i.contains(t)) return true;
        }
        return false;
    }
    double idleSeconds() const {
        double t = secondsOfDay();
        double lastInput = -3600;  // nobody touched it since before midnight
        for (const auto& i : userActive) {
            if (i.contains(t)) return 0;
            if (t >= i.to) lastInput = std::max(lastInput, i.to);
        }
        return t - lastInput;
    }

    testing::ScopedTimeZone utc{"UTC"};
    FakeClock clock{dateFromUnixSeconds(kMonday)};
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);

    const std::vector<Interval> userActive{{at(1), at(1, 30)}, {at(20), at(21)}};
    const std::vector<Interval> unplugged{{at(2), at(2, 30)}, {at(22, 10), at(22, 40)}};
    const std::vector<Interval> inCall{{at(18), at(18, 45)}, {at(22), at(22, 20)}};
    const Interval blenderHeavy{at(20), at(20, 30)};
    const Interval blenderLight{at(20, 30), at(21)};
    const double inUseModeFrom = at(17);

    IdleEligibilityMonitor monitor{
        gate,
        executor,
        {[] { return 3.0; }, [this] { return secondsOfDay() >= inUseModeFrom ? 20.0 : 0.0; },
         [this] { return secondsOfDay() >= inUseModeFrom ? 10.0 : 0.0; }},
        {[](Date date) {
             return IdleEligibilityMonitor::scheduleAllowsClaim(ScheduleGrid::recommended(), date);
         },
         [this] { return idleSeconds(); }, [this] { return !inAny(unplugged, secondsOfDay()); },
         clock.function()}};
    MeetingDetector meetings{gate, executor, [] { return true; },
                             [this] {
                                 bool call = inAny(inCall, secondsOfDay());
                                 return MeetingDetector::Snapshot{call, call, false};
                             },
                             [] { return true; }};

    using Sample = HeavyAppDetector::ForegroundAppSample;
    struct DaySampler final : HeavyAppDetector::Sampling {
        explicit DaySampler(std::function<std::optional<Sample>()> f) : sample(std::move(f)) {}
        std::optional<Sample> sampleForegroundApp() override { return sample(); }
        std::function<std::optional<Sample>()> sample;
    };
    std::shared_ptr<DaySampler> blender =
        std::make_shared<DaySampler>([this]() -> std::optional<Sample> {
            double t = secondsOfDay();
            if (!blenderHeavy.contains(t) && !blenderLight.contains(t)) return std::nullopt;
            return Sample{4242,      "blender",
                          "Blender", blenderHeavy.contains(t) ? 80.0 : 10.0,
                          12,        HeavyAppDetector::TriggerStrategy::sustainedEverySample};
        });
    HeavyAppDetector heavy{gate, executor, [] { return true; }, blender, nullptr};
};

TEST_F(EligibilityDayTest, EveryPauseAndResumeOfTheDayInOrder) {
    const std::vector<Transition> expected = {
        {"00:00:00", true, std::nullopt},
        {"01:00:00", false, "waiting for idle"},
        {"01:33:00", true, std::nullopt},  // three idle minutes after the last input
        {"02:00:00", false, "on battery"},
        {"02:30:00", true, std::nullopt},
        {"09:00:00", false, "schedule off"},
        {"17:00:00", true, std::nullopt},
        {"18:00:00", false, "meeting in progress"},
        {"18:45:30", true, std::nullopt},                               // the resume grace
        {"20:04:30", false, "Paused \u2014 Blender is using 80% CPU"},  // the tenth heavy sample
        {"20:30:00", true, std::nullopt},                               // the first light sample
        {"22:00:00", false, "meeting in progress"},
        {"22:20:30", false, "on battery"},  // unplugged during the call: uncovered when it ends
        {"22:40:00", true, std::nullopt},
    };

    monitor.start();
    meetings.start();
    heavy.start();
    std::vector<Transition> seen;
    auto record = [&] {
        Transition now{clockText(secondsOfDay()), gate->isEligible(), gate->reason()};
        if (seen.empty() || seen.back().eligible != now.eligible ||
            seen.back().reason != now.reason) {
            seen.push_back(now);
        }
        EXPECT_EQ(gate->currentEligibilitySnapshot(), gate->isEligible()) << now;
    };
    record();
    // Every watcher ticks on a multiple of five seconds, so five-second steps see every change
    // at its own time.
    while (secondsOfDay() < at(24) - 5) {
        executor.advance(5);
        record();
    }
    EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace corvane
