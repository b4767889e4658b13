#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <map>

#include "CorvaneApp/eligibility/DBusIdleSource.h"
#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/LogindIdleSource.h"
#include "CorvaneApp/eligibility/SdBusClient.h"
#include "CorvaneApp/eligibility/TerminalIdleSource.h"
#include "CorvaneApp/eligibility/XScreenSaverIdleSource.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/eligibility/PrivateBus.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

using testing::FakeClock;
using testing::FixtureTree;

// Answers what a test put in its tables, keyed by "destination path interface member".
class FakeDBusClient final : public DBusClient {
public:
    std::map<std::string, std::uint64_t> numbers;
    std::map<std::string, bool> booleans;
    std::vector<std::string> asked;

    static std::string key(const DBusObject& o, const std::string& member) {
        return o.destination + " " + o.path + " " + o.interface + " " + member;
    }
    std::optional<std::uint64_t> callUnsigned(const DBusObject& o, const std::string& m) override {
        return find(numbers, key(o, m));
    }
    std::optional<std::uint64_t> unsignedProperty(const DBusObject& o, const std::string& p) override {
        return find(numbers, key(o, p));
    }
    std::optional<bool> boolProperty(const DBusObject& o, const std::string& p) override {
        return find(booleans, key(o, p));
    }

private:
    template <typename T>
    std::optional<T> find(const std::map<std::string, T>& table, const std::string& k) {
        asked.push_back(k);
        auto it = table.find(k);
        if (it == table.end()) return std::nullopt;
        return it->second;
    }
};

const std::string kMutter =
    "org.gnome.Mutter.IdleMonitor /org/gnome/Mutter/IdleMonitor/Core org.gnome.Mutter.IdleMonitor GetIdletime";
const std::string kScreenSaver =
    "org.freedesktop.ScreenSaver /org/freedesktop/ScreenSaver org.freedesktop.ScreenSaver GetSessionIdleTime";
const std::string kLogind = "org.freedesktop.login1 /org/freedesktop/login1 org.freedesktop.login1.Manager ";

TEST(DBusIdleSourceTest, DesktopMonitorsAnswerInMilliseconds) {
    auto bus = std::make_shared<FakeDBusClient>();
    auto mutter = DBusIdleSource::mutter(bus);
    auto screenSaver = DBusIdleSource::freedesktopScreenSaver(bus);
    EXPECT_EQ(mutter->idleSeconds(), std::nullopt);  // no GNOME on this bus
    bus->numbers[kMutter] = 183'500;
    bus->numbers[kScreenSaver] = 2'000;
    EXPECT_EQ(mutter->idleSeconds(), 183.5);
    EXPECT_EQ(screenSaver->idleSeconds(), 2.0);
}

TEST(LogindIdleSourceTest, HintOffIsActiveHintOnCountsFromItsTime) {
    FakeClock clock(dateFromUnixSeconds(1'000'000));
    auto bus = std::make_shared<FakeDBusClient>();
    LogindIdleSource source(bus, clock.function());
    EXPECT_EQ(source.idleSeconds(), std::nullopt);  // logind unreachable

    bus->booleans[kLogind + "IdleHint"] = true;
    bus->numbers[kLogind + "IdleSinceHint"] = 0;
    EXPECT_EQ(source.idleSeconds(), std::nullopt);  // no session ever reported a time
    bus->numbers[kLogind + "IdleSinceHint"] = 999'400'000'000ull;
    EXPECT_DOUBLE_EQ(*source.idleSeconds(), 600.0);
    bus->numbers[kLogind + "IdleSinceHint"] = 1'000'500'000'000ull;  // a clock step backwards
    EXPECT_EQ(source.idleSeconds(), 0.0);
    bus->booleans[kLogind + "IdleHint"] = false;
    bus->numbers[kLogind + "IdleSinceHint"] = 999'000'000'000ull;
    EXPECT_EQ(source.idleSeconds(), 0.0);
    bus->numbers.clear();
    EXPECT_EQ(source.idleSeconds(), std::nullopt);
}

class TerminalIdleSourceTest : public ::testing::Test {
protected:
    void touch(const std::string& relative, double accessedAt) {
        auto path = tree.write(relative, "");
        timespec times[2] = {{static_cast<time_t>(accessedAt), 0}, {static_cast<time_t>(accessedAt), 0}};
        ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    }
    std::optional<double> read() {
        return TerminalIdleSource(clock.function(), tree.path("dev"), tree.path("uptime")).idleSeconds();
    }
    FixtureTree tree;
    FakeClock clock{dateFromUnixSeconds(2'000'000)};
};

TEST_F(TerminalIdleSourceTest, NewestTerminalInputWins) {
    touch("dev/tty1", 1'990'000);
    touch("dev/pts/3", 1'999'880);
    touch("dev/pts/ptmx", 1'999'999);   // the multiplexer isn't a terminal
    touch("dev/ttyS0", 1'999'999);      // nor is a serial line here
    touch("dev/tty", 1'999'999);        // nor the alias of one's own terminal
    touch("dev/video0", 1'999'999);
    EXPECT_DOUBLE_EQ(*read(), 120.0);
    touch("dev/tty2", 2'000'100);       // in the future of a stepped clock
    EXPECT_EQ(read(), 0.0);
}

TEST_F(TerminalIdleSourceTest, NoTerminalsMeansTimeSinceBootElseNoAnswer) {
    tree.folder("dev/pts");
    tree.write("uptime", "35.71 60.20\n");
    EXPECT_EQ(read(), 35.71);
    for (const char* garbage : {"", "abc 1", "-4 2", "12x 3"}) {
        tree.write("uptime", garbage);
        EXPECT_EQ(read(), std::nullopt) << garbage;
    }
    tree.unreadable("uptime");
    EXPECT_EQ(read(), std::nullopt);
    tree.remove("dev");
    tree.remove("uptime");
    EXPECT_EQ(read(), std::nullopt);
}

// A source that answers what the test says and counts its calls.
class ScriptedSource final : public IdleTimeSource {
public:
    ScriptedSource(std::string name, std::optional<double>* answer, std::vector<std::string>* calls)
        : name_(std::move(name)), answer_(answer), calls_(calls) {}
    std::string_view name() const override { return name_; }
    std::optional<double> idleSeconds() override {
        calls_->push_back(name_);
        return *answer_;
    }

private:
    std::string name_;
    std::optional<double>* answer_;
    std::vector<std::string>* calls_;
};

TEST(IdleTimeChainTest, FirstAnswerWinsLaterSourcesAreNotAsked) {
    testing::LogCapture logs;
    std::optional<double> a, b, c;
    std::vector<std::string> calls;
    std::vector<std::unique_ptr<IdleTimeSource>> sources;
    sources.push_back(std::make_unique<ScriptedSource>("a", &a, &calls));
    sources.push_back(std::make_unique<ScriptedSource>("b", &b, &calls));
    sources.push_back(std::make_unique<ScriptedSource>("c", &c, &calls));
    IdleTimeChain chain(std::move(sources));

    EXPECT_EQ(chain.idleSeconds(), std::nullopt);
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor error: no source of idle time answers"));

    c = 5;
    b = 0;  // zero is an answer, not a failure
    calls.clear();
    EXPECT_EQ(chain.idleSeconds(), 0.0);
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(chain.lastSourceName(), "b");
    b.reset();
    EXPECT_EQ(chain.idleSeconds(), 5.0);
    EXPECT_EQ(chain.lastSourceName(), "c");
    a = 7;
    EXPECT_EQ(chain.idleSeconds(), 7.0);
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor info: idle time now read from c"));
    EXPECT_TRUE(logs.contains("IdleEligibilityMonitor info: idle time now read from a"));
}

TEST(XScreenSaverIdleSourceTest, NoDisplayOrWaylandMeansNoAnswerNotACrash) {
    auto noServer = std::make_shared<X11Display>(":9876");
    XScreenSaverIdleSource source(noServer, false);
    EXPECT_EQ(source.idleSeconds(), std::nullopt);
    EXPECT_EQ(noServer->get(), nullptr);

    const char* display = std::getenv("DISPLAY");
    std::string saved = display ? display : "";
    ::unsetenv("DISPLAY");
    XScreenSaverIdleSource fromEnvironment(std::make_shared<X11Display>(), false);
    EXPECT_EQ(fromEnvironment.idleSeconds(), std::nullopt);
    if (display) ::setenv("DISPLAY", saved.c_str(), 1);
}

TEST(SdBusClientTest, RealClientReadsAPrivateBusAndSurvivesItsLoss) {
    FixtureTree tree;
    std::optional<testing::PrivateBus> bus(std::in_place, tree.root());
    if (bus->address().empty()) GTEST_SKIP() << "dbus-daemon is not installed";
    testing::FakeIdleService service(bus->address());
    ASSERT_TRUE(service.ready());
    service.idleMilliseconds = 42'250;
    service.idleHint = true;
    service.idleSinceMicros = 1'000'000'000;

    auto client = std::make_shared<SdBusClient>(bus->address(), 2.0);
    EXPECT_EQ(DBusIdleSource::mutter(client)->idleSeconds(), 42.25);
    // Nobody owns the screen-saver name: an error reply, no answer.
    EXPECT_EQ(DBusIdleSource::freedesktopScreenSaver(client)->idleSeconds(), std::nullopt);
    FakeClock clock(dateFromUnixSeconds(1'030));
    EXPECT_EQ(LogindIdleSource(client, clock.function()).idleSeconds(), 30.0);

    bus.reset();  // the daemon goes away
    EXPECT_EQ(DBusIdleSource::mutter(client)->idleSeconds(), std::nullopt);
    EXPECT_EQ(SdBusClient("unix:path=" + tree.path("nobody-here").string()).callUnsigned(
                  {"a.b", "/a", "a.b"}, "M"),
              std::nullopt);
}

TEST(IdleTimeChainTest, ThisMachineGivesSomeReading) {
    // Whatever runs the tests (a desktop, a container, a server) has at least the terminals or the
    // time since boot.
    auto seconds = IdleTimeChain::system().idleSeconds();
    ASSERT_TRUE(seconds);
    EXPECT_GE(*seconds, 0.0);
}

}  // namespace
}  // namespace corvane
