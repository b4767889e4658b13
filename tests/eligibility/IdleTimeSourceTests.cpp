#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "CorvaneApp/eligibility/DBusIdleSource.h"
#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/LogindIdleSource.h"
#include "CorvaneApp/eligibility/SdBusClient.h"
#include "CorvaneApp/eligibility/TerminalIdleSource.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/eligibility/PrivateBus.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

using testing::FakeClock;
using testing::FixtureTree;

TEST(TerminalIdleSourceTest, NewestTerminalInputElseTimeSinceBootElseNothing) {
    FixtureTree tree;
    FakeClock clock{dateFromUnixSeconds(2'000'000)};
    auto touch = [&](const std::string& relative, time_t accessedAt) {
        auto path = tree.write(relative, "");
        timespec times[2] = {{accessedAt, 0}, {accessedAt, 0}};
        ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    };
    auto read = [&] {
        return TerminalIdleSource(clock.function(), tree.path("dev"), tree.path("uptime"))
            .idleSeconds();
    };

    tree.folder("dev/pts");
    tree.write("uptime", "35.71 60.20\n");
    EXPECT_EQ(read(), 35.71);  // no terminal at all
    touch("dev/tty1", 1'990'000);
    touch("dev/pts/3", 1'999'880);
    for (const char* other : {"dev/pts/ptmx", "dev/ttyS0", "dev/tty", "dev/video0"})
        touch(other, 1'999'999);
    EXPECT_EQ(read(), 120.0);  // none of the others is a terminal of a login
    touch("dev/tty2", 2'000'100);
    EXPECT_EQ(read(), 0.0);  // an access in the future of a stepped clock

    tree.remove("dev");
    for (const char* garbage : {"", "abc 1", "-4 2", "12x 3"}) {
        tree.write("uptime", garbage);
        EXPECT_EQ(read(), std::nullopt) << garbage;
    }
    tree.unreadable("uptime");
    EXPECT_EQ(read(), std::nullopt);
}

// Answers what the test says and notes that it was asked.
class ScriptedSource final : public IdleTimeSource {
  public:
    ScriptedSource(std::string name, std::map<std::string, std::optional<double>>& answers,
                   std::string& asked)
        : name_(std::move(name)), answers_(answers), asked_(asked) {}
    std::string_view name() const override { return name_; }
    std::optional<double> idleSeconds() override { return asked_ += name_, answers_[name_]; }

  private:
    std::string name_;
    std::map<std::string, std::optional<double>>& answers_;
    std::string& asked_;
};

TEST(IdleTimeChainTest, FirstAnswerInOrderWinsAndLaterSourcesAreNotAsked) {
    testing::LogCapture logs;
    std::map<std::string, std::optional<double>> answers;
    std::string asked;
    std::vector<std::unique_ptr<IdleTimeSource>> sources;
    for (const char* name : {"a", "b", "c"})
        sources.push_back(std::make_unique<ScriptedSource>(name, answers, asked));
    IdleTimeChain chain(std::move(sources));

    EXPECT_EQ(chain.idleSeconds(), std::nullopt);
    EXPECT_EQ(asked, "abc");
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor error: no source of idle time answers"));
    answers = {{"b", 0.0}, {"c", 5.0}};  // zero is an answer, not a failure
    asked.clear();
    EXPECT_EQ(chain.idleSeconds(), 0.0);
    EXPECT_EQ(asked, "ab");
    answers["b"].reset();
    EXPECT_EQ(chain.idleSeconds(), 5.0);
    EXPECT_EQ(chain.lastSourceName(), "c");
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor info: idle time now read from c"));
    // Whatever runs the tests has at least the terminals or the time since boot.
    EXPECT_GE(IdleTimeChain::system().idleSeconds().value_or(-1), 0.0);
}

TEST(SdBusClientTest, DesktopMonitorsAndLogindOnAPrivateBusAndAfterItsLoss) {
    FixtureTree tree;
    std::optional<testing::PrivateBus> bus(std::in_place, tree.path());
    if (bus->address().empty()) GTEST_SKIP() << "dbus-daemon is not installed";
    testing::FakeIdleService service(bus->address());
    ASSERT_TRUE(service.ready());
    service.idleMilliseconds = 42'250;

    auto client = std::make_shared<SdBusClient>(bus->address(), 2.0);
    EXPECT_EQ(DBusIdleSource::mutter(client)->idleSeconds(), 42.25);
    EXPECT_EQ(DBusIdleSource::freedesktopScreenSaver(client)->idleSeconds(), 42.25);
    FakeClock clock(dateFromUnixSeconds(1'000'000));
    LogindIdleSource logind(client, clock.function());
    struct Row {
        bool hint;
        std::uint64_t sinceMicros;
        std::optional<double> seconds;
    };
    const Row rows[] = {
        {true, 0, std::nullopt},            // no session ever gave a time: the terminals answer
        {true, 999'400'000'000ull, 600.0},  // idle for ten minutes
        {true, 1'000'500'000'000ull, 0.0},  // a clock stepped backwards
        {false, 999'000'000'000ull, 0.0},   // someone is active now
    };
    for (const auto& row : rows) {
        service.idleHint = row.hint;
        service.idleSinceMicros = row.sinceMicros;
        EXPECT_EQ(logind.idleSeconds(), row.seconds) << row.hint << " " << row.sinceMicros;
    }
    bus.reset();  // the daemon goes away
    EXPECT_EQ(DBusIdleSource::mutter(client)->idleSeconds(), std::nullopt);
    EXPECT_EQ(SdBusClient("unix:path=" + tree.path("nobody").string())
                  .callUnsigned({"a.b", "/a", "a.b"}, "M"),
              std::nullopt);
}

}  // namespace
}  // namespace corvane
