// The real `corvane --headless` process in a temp home, enrolled against the local coordinator,
// transcribing with the generated model, stopped by a signal.

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <thread>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/SpawnInHome.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Speech, made once per test binary (other suites cover the other containers).
const fs::path& speechFolder() {
    static const fs::path folder = [] {
        fs::path dir =
            fs::temp_directory_path() / ("corvane-app-audio-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        const std::string wav = (dir / "speech.wav").string();
        if (std::system(("espeak-ng -w '" + wav +
                         "' 'The quick brown fox jumps over the lazy dog.' >/dev/null 2>&1")
                            .c_str()) != 0) {
            throw std::runtime_error("espeak-ng could not speak");
        }
        return dir;
    }();
    return folder;
}

class HeadlessProcess : public ::testing::Test {
  protected:
    void SetUp() override {
        dev::DevCoordinator::Options options;
        options.audioDir = speechFolder();
        coordinator = std::make_unique<dev::DevCoordinator>(options);
        fs::create_directories(home.path() / "tmp");
    }

    void TearDown() override {
        if (child > 0) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
        }
    }

    fs::path varnix() const { return home.path() / ".varnix-compute"; }
    fs::path shardFolder() const { return home.path() / "cache" / "Corvane" / "shards"; }
    std::set<std::string> entries(const fs::path& folder) const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder))
            names.insert(entry.path().filename().string());
        return names;
    }
    std::size_t polls() const {
        return static_cast<std::size_t>(std::ranges::count_if(
            coordinator->requests(),
            [](const auto& r) { return r.path.starts_with("/api/v1/workers/poll"); }));
    }
    std::string log() const {
        return readFile(home.path() / "state" / "Corvane" / "logs" / "corvane-app.log")
            .value_or("");
    }
    // Only the child's log file shows these: looks again every 20 ms up to a minute.
    bool logShows(const std::string& text) const {
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        while (log().find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }

    static std::string weeklyGrid(const std::string& cell) {
        std::string row = cell;
        for (int hour = 1; hour < 24; ++hour) row += ", " + cell;
        std::string grid = "schedule:\n  weekly_grid:\n";
        for (int day = 0; day < 7; ++day) grid += "    - [" + row + "]\n";
        return grid;
    }
    void writeConfig(const std::string& coordinatorURL, const std::string& more = "") {
        fs::create_directories(varnix());
        writeFileAtomically(
            varnix() / "config.yaml",
            "coordinator_url: \"" + coordinatorURL + "\"\nworker_id: \"worker-e2e\"\n" + more,
            0600);
    }
    void storeToken(const std::string& coordinatorURL) {
        KeychainStore store(std::make_shared<FileCredentialBackend>(varnix() / "credentials"));
        store.storePythonWorkerToken("dev-token", coordinatorURL, "worker-e2e");
    }
    // Enrolled with every hour of the week allowed, so the worker's chance to work does not hang
    // on the hour the test runs at.
    void enroll() {
        writeConfig(coordinator->baseURL(), weeklyGrid("true"));
        storeToken(coordinator->baseURL());
    }
    // The generated model where the model cache keeps the Whisper weights under XDG_DATA_HOME.
    void installModel() {
        fs::path dir = home.path() / "data" / "VarnixCompute" / "models" /
                       "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
        fs::create_directories(dir);
        fs::copy_file(whisperTestModelFile(), dir / WhisperImpl::defaultModelFilename,
                      fs::copy_options::overwrite_existing);
    }

    // Runs `corvane <arguments>` in the test's home, its stdout going to `output`.
    pid_t spawn(std::vector<std::string> arguments, const fs::path& output,
                std::vector<std::string> env = {}) {
        return SpawnInHome{CORVANE_BINARY, home.path(), std::move(arguments), output,
                           std::move(env)}();
    }

    // `corvane status` in the test's home: its exit status and what it printed.
    std::pair<int, std::string> status() {
        const fs::path output = home.path() / "status.txt";
        pid_t pid = spawn({"status"}, output);
        int code = 0;
        ::waitpid(pid, &code, 0);
        return {WIFEXITED(code) ? WEXITSTATUS(code) : -1, readFile(output).value_or("")};
    }

    // Waits for the child to end, at most `limit`; gives its exit status, or -1 when it did not
    // end.
    int waitForExit(std::chrono::milliseconds limit) {
        int fd = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
        if (fd >= 0) {
            pollfd entry{fd, POLLIN, 0};
            ::poll(&entry, 1, static_cast<int>(limit.count()));
            ::close(fd);
        }
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) != child) return -1;
        child = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    void start(std::vector<std::string> env = {}) {
        child = spawn({"--headless"}, home.path() / "stdout.txt", std::move(env));
    }
    int stop() {
        EXPECT_EQ(::kill(child, SIGTERM), 0);
        return waitForExit(5000ms);
    }

    ScratchFolder home;
    std::unique_ptr<dev::DevCoordinator> coordinator;
    pid_t child = -1;
};

TEST_F(HeadlessProcess, TranscribesEveryShardOnceAndStopsCleanlyOnSigterm) {
    coordinator->addShard({"job-1", "s1", "speech.wav", 0.0, 3.0, std::nullopt});
    coordinator->addShard({"job-1", "s2", "speech.wav", 3.0, 6.0, std::nullopt});
    coordinator->addShard(
        {"job-2", std::nullopt, "speech.wav", std::nullopt, std::nullopt, std::nullopt});
    enroll();
    installModel();
    start();
    ASSERT_TRUE(coordinator->waitUntil(
        [](const dev::DevCoordinator& c) { return c.results().size() >= 3; }, 180s))
        << log();
    EXPECT_EQ(stop(), 0) << "exits 0 within 5 s of SIGTERM";
    auto results = coordinator->results();
    EXPECT_EQ(results.size(), 3u);
    std::set<std::string> shards;
    for (const auto& r : results) {
        shards.insert(r.jobID + "/" + r.shardID.value_or("-"));
        EXPECT_TRUE(r.body.contains("transcript")) << r.body.dump();
    }
    EXPECT_EQ(shards.size(), 3u) << "no duplicates";
    EXPECT_TRUE(coordinator->failures().empty());
    // The audio went to Corvane's own folder, owner-only, and left with each shard.
    EXPECT_EQ(entries(shardFolder()), std::set<std::string>{});
    struct stat status {};
    ASSERT_EQ(::stat(shardFolder().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_EQ(entries(home.path() / "tmp"), std::set<std::string>{}) << "TMPDIR is untouched";
}

TEST_F(HeadlessProcess, AWorkerKilledMidShardFindsItsLeftoversGoneBeforeItsFirstPoll) {
    dev::ScriptedReply stalled;
    stalled.delaySeconds = 120;  // the result never arrives while the test runs
    coordinator->enqueueReply("/api/v1/jobs/job-k/result", stalled);
    coordinator->addShard({"job-k", "k1", "speech.wav", std::nullopt, std::nullopt, std::nullopt});
    enroll();
    installModel();
    start();
    ASSERT_TRUE(coordinator->waitUntil(
        [](const dev::DevCoordinator& c) {
            return std::ranges::any_of(c.requests(), [](const auto& r) {
                return r.path.starts_with("/api/v1/jobs/job-k/result");
            });
        },
        180s))
        << log();
    ::kill(child, SIGKILL);
    EXPECT_EQ(waitForExit(5000ms), 128 + SIGKILL);
    EXPECT_EQ(entries(shardFolder()), std::set<std::string>{"varnix-shard-job-k-k1.wav"})
        << "a kill leaves the shard's audio";
    fs::create_directories(shardFolder() / "varnix-shard-job-k-k2.flac");  // made by hand
    writeFileAtomically(shardFolder() / "varnix-shard-job-k-k2.flac" / "x", "x");

    dev::ScriptedReply heldPoll;
    heldPoll.delaySeconds = 120;  // the next start's first poll stays open while we look
    coordinator->enqueueReply("/api/v1/workers/poll", heldPoll);
    const auto pollsBefore = polls();
    start();
    ASSERT_TRUE(coordinator->waitUntil(
        [&](const dev::DevCoordinator&) { return polls() > pollsBefore; }, 180s))
        << log();
    EXPECT_EQ(entries(shardFolder()), std::set<std::string>{});
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(entries(home.path() / "tmp"), std::set<std::string>{}) << "TMPDIR is untouched";
}

TEST_F(HeadlessProcess, AShardFolderThatCannotBeMadeIsWhatTheStatusSays) {
    writeFileAtomically(home.path() / "cache", "a file where the cache folder goes");
    enroll();
    installModel();
    start();
    const std::string why = "Cannot create the shard folder " + shardFolder().string() +
                            ": Not a directory (at " +
                            (home.path() / "cache" / "Corvane").string() + ")";
    ASSERT_TRUE(logShows("status: Paused — " + why)) << log();
    ASSERT_TRUE(logShows("WorkerController.runLoop paused: ineligible")) << log();
    auto [code, printed] = status();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(printed.substr(0, printed.find('\n')), "Paused — " + why);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(polls(), 0u) << "no shard is claimed only to fail";
}

TEST_F(HeadlessProcess, SigtermDuringAShardSendsExactlyOneShutdownReport) {
    dev::ScriptedReply stalled;
    stalled.delaySeconds = 60;  // the shard's audio never arrives while the test runs
    coordinator->enqueueReply("/audio/", stalled);
    coordinator->addShard(
        {"job-slow", "slow", "speech.wav", std::nullopt, std::nullopt, std::nullopt});
    enroll();
    installModel();
    start();
    ASSERT_TRUE(coordinator->waitUntil(
        [](const dev::DevCoordinator& c) {
            return std::ranges::any_of(c.requests(),
                                       [](const auto& r) { return r.path.starts_with("/audio/"); });
        },
        180s));
    EXPECT_EQ(stop(), 0);
    auto failures = coordinator->failures();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].shardID, "slow");
    EXPECT_EQ(
        failures[0].error,
        "code=worker_shutdown; retryable=true; message=worker stopped while job was in flight");
    EXPECT_TRUE(coordinator->results().empty());
}

TEST_F(HeadlessProcess, AComputerThatIsNotEnrolledIsToldHowToEnrolAndExitsWithStatusTwo) {
    for (bool config : {true, false}) {  // only one half of an enrolment each time
        SCOPED_TRACE(config ? "config without credential" : "credential without config");
        fs::remove_all(varnix());
        if (config)
            writeConfig(coordinator->baseURL());
        else
            storeToken(coordinator->baseURL());
        // Without --headless, but the display named has no server: the worker runs headless.
        child =
            spawn({}, home.path() / "stdout.txt", {"DISPLAY=:97", "WAYLAND_DISPLAY=wayland-97"});
        EXPECT_EQ(waitForExit(30000ms), 2);
        const auto printed = readFile(home.path() / "stdout.txt").value_or("");
        EXPECT_NE(printed.find("corvane enroll"), std::string::npos) << printed;
    }
    EXPECT_TRUE(coordinator->requests().empty()) << "nothing reaches the coordinator";
}

TEST_F(HeadlessProcess, AnInvalidCoordinatorURLBuildsNoWorker) {
    writeConfig("not a url");
    storeToken("not a url");
    installModel();
    start();
    ASSERT_TRUE(logShows("buildAndStartWorkerIfPossible: invalid coordinator URL not a url"))
        << log();
    EXPECT_EQ(stop(), 0);
    EXPECT_TRUE(coordinator->requests().empty());
}

TEST_F(HeadlessProcess, AFailedModelDownloadKeepsTheWorkerStoppedUntilARetrySucceeds) {
    enroll();
    coordinator->addShard(
        {"job-after-retry", "r1", "speech.wav", std::nullopt, std::nullopt, std::nullopt});
    // The weights come from the coordinator's address, which has no such file: 404.
    start({"REGISTRY_URL=" + coordinator->baseURL(), "CORVANE_MODEL_RETRY_SECONDS=1"});
    ASSERT_TRUE(logShows("Whisper model cache/init failed")) << log();
    for (const auto& r : coordinator->requests())
        EXPECT_FALSE(r.path.starts_with("/api/v1/workers/poll")) << "not started";
    installModel();  // the next retry finds the weights in place
    ASSERT_TRUE(coordinator->waitUntil(
        [](const dev::DevCoordinator& c) { return c.results().size() == 1; }, 120s))
        << log();
    EXPECT_EQ(stop(), 0);
}

TEST_F(HeadlessProcess, StatusPrintsTheLineTheWorkerLoggedLast) {
    EXPECT_EQ(status(), (std::pair<int, std::string>{3, "Corvane is not running.\n"}));
    // Every hour of the week switched off: the worker starts and stays outside its schedule.
    writeConfig(coordinator->baseURL(), weeklyGrid("false"));
    storeToken(coordinator->baseURL());
    installModel();
    start();
    ASSERT_TRUE(logShows("status: Outside schedule window — Outside schedule window")) << log();
    // The last status line the worker logged is the one `corvane status` prints first.
    const auto logged = log();
    const auto last = logged.rfind("status: ") + 8;
    auto [code, printed] = status();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(printed.substr(0, printed.find('\n')),
              logged.substr(last, logged.find('\n', last) - last))
        << printed;
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(status().first, 3) << "a clean stop takes the status file with it";
}

}  // namespace
}  // namespace corvane::testing
