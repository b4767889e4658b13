// The shard folder around a worker: each shard's audio gone once its terminal report has been
// sent (a report that fails, a report sent while the download still runs, a shutdown report),
// leftovers cleared only when no other Corvane runs, and downloads that meet a full disk or
// something in their way. The whole road is in tests/e2e and the headless process tests.

#include "CorvaneApp/app/ShardAudioFolder.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "tests/support/ScratchFolder.h"
#include "tests/worker/WorkerTestSupport.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

Names namesIn(const fs::path& directory) {
    Names names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename().string());
    return names;
}

// A download as the materialiser makes it: the claim's file in the folder.
WorkerController::Materialiser writer(const fs::path& dir) {
    return [dir](const ShardClaim& claim, std::stop_token) {
        ClaimedJob job;
        job.id = claim.jobID;
        job.shardID = claim.shardID;
        job.inputPath = (dir / (shardAudioStem(claim) + ".wav")).string();
        std::ofstream(job.inputPath) << "audio";
        return job;
    };
}

class ShardAudioFolderTest : public ::testing::Test {
  protected:
    void SetUp() override { folder->prepare(); }
    void touch(const std::string& name) const {
        fs::create_directories((dir / name).parent_path());
        std::ofstream(dir / name) << "x";
    }
    // Audio on a local server, and its download into the folder as the application wraps it.
    void serve(const std::string& bytes) {
        fs::create_directories(root / "served");
        std::ofstream(root / "served" / "clip.flac") << bytes;
        server = std::make_unique<dev::DevCoordinator>(
            dev::DevCoordinator::Options{.audioDir = root / "served"});
    }
    ClaimedJob fetch() {
        ShardClaim claim = makeClaim("job-1", "s-1");
        claim.audioURL = server->baseURL() + "/audio/clip.flac";
        return folder->tracking(ClaimMaterialiser(std::make_shared<const http::Session>(), dir))(
            claim, {});
    }

    ScratchFolder root;
    fs::path dir = root / "cache" / "Corvane" / "shards";
    std::shared_ptr<ShardAudioFolder> folder = ShardAudioFolder::create(dir);
    std::unique_ptr<dev::DevCoordinator> server;
};

TEST_F(ShardAudioFolderTest, AShardsAudioGoesWithItsOwnReportHoweverThatEnds) {
    auto fake = std::make_shared<FakeWorkerHTTP>();
    fake->onSubmitFail([](const FakeWorkerHTTP::Report& report) {
        if (report.shardID == "s2") throw WorkerHTTPError::notFoundOrNotOwned();
    });
    auto http = folder->clearingAfterReports(fake);
    auto materialise = folder->tracking(writer(dir));
    for (const char* shard : {"s1", "s2", "s3"}) materialise(makeClaim("job", shard), {});
    http->heartbeat("job", "s1", {});
    http->submitFail("other-job", "s1", {"handler_error", "x", true}, {});
    EXPECT_EQ(namesIn(dir).size(), 3u) << "only a shard's own report frees its audio";
    http->submitResult("job", "s1", {}, {});
    EXPECT_THROW(http->submitFail("job", "s2", {"handler_error", "x", true}, {}), WorkerHTTPError);
    EXPECT_EQ(namesIn(dir), Names{"varnix-shard-job-s3.wav"});
    EXPECT_EQ(fake->results().size() + fake->failures().size(), 3u) << "reports pass unchanged";

    // stop() may report a shard whose download still runs: the file goes when it is made.
    Gate reached, release;
    auto slow = folder->tracking([&, inner = writer(dir)](const ShardClaim& c, std::stop_token s) {
        reached.markReached();
        release.wait();
        return inner(c, s);
    });
    std::thread downloading([&] { slow(makeClaim("job", "s4"), {}); });
    ASSERT_TRUE(reached.waitReached());
    http->submitFail("job", "s4", {"worker_shutdown", "x", true}, {});
    release.open();
    downloading.join();
    EXPECT_EQ(namesIn(dir), Names{"varnix-shard-job-s3.wav"});
    materialise(makeClaim("job", "s4"), {});  // a later claim of it starts afresh
    EXPECT_EQ(namesIn(dir).size(), 2u);

    fs::remove_all(root / "cache");  // the owner clears the cache under a running worker
    materialise(makeClaim("job", "s5"), {});
    EXPECT_EQ(fs::status(dir).permissions(), fs::perms::owner_all);
}

TEST_F(ShardAudioFolderTest, StartingClearsOnlyShardLeftoversAndOnlyWhenNoOtherCorvaneRuns) {
    touch("varnix-shard-job-a-1.wav");
    touch("varnix-shard-job-b-2.flac/inner/placed.txt");
    touch("notes.txt");
    auto second = ShardAudioFolder::create(dir);
    EXPECT_EQ(second->prepare(), 0u) << "the first one runs: its files stay";
    fs::permissions(dir, fs::perms::all);
    EXPECT_EQ(folder->prepare(), 2u);
    EXPECT_EQ(namesIn(dir), Names{"notes.txt"});
    EXPECT_EQ(fs::status(dir).permissions(), fs::perms::owner_all) << "narrowed again";
    touch("varnix-shard-job-a-2.wav");
    folder.reset();
    EXPECT_EQ(second->prepare(), 1u);
}

TEST_F(ShardAudioFolderTest, WhatSitsWhereAShardsAudioGoesIsClearedBeforeItsDownload) {
    touch("varnix-shard-job-1-s-1.flac/placed/by-hand.txt");
    touch("varnix-shard-job-1-s-1.mp3");
    touch("varnix-shard-job-1-s-10.flac");  // another shard's, though its name starts alike
    serve(std::string(4096, 'a'));
    const auto job = fetch();
    EXPECT_EQ(fs::file_size(job.inputPath), 4096u);
    EXPECT_EQ(namesIn(dir), (Names{"varnix-shard-job-1-s-1.flac", "varnix-shard-job-1-s-10.flac"}));
}

// In a child whose files may not grow past 16 KiB, writes fail with EFBIG, as on a full disk.
TEST_F(ShardAudioFolderTest, ADiskThatFillsDuringADownloadFailsTheShardAndLeavesNoPart) {
    serve(std::string(300000, 'a'));
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{16384, 16384};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            fetch();
        } catch (const ClaimMaterialiserError& error) {
            std::ofstream(root / "said.txt") << error.description();
            ::_exit(0);
        }
        ::_exit(1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    std::string said;
    std::getline(std::ifstream(root / "said.txt"), said);
    EXPECT_TRUE(said.starts_with("shard audio write failed at " + dir.string() + "/varnix-shard-"));
    EXPECT_TRUE(said.ends_with(": File too large")) << said;
    EXPECT_EQ(namesIn(dir), Names{});
}

TEST_F(ShardAudioFolderTest, AnotherUsersFolderIsRefusedByName) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
    ASSERT_EQ(::chown(dir.c_str(), 65534, 65534), 0);
    try {
        folder->prepare();
        ADD_FAILURE() << "prepared";
    } catch (const ShardAudioFolder::Unavailable& error) {
        EXPECT_EQ(std::string(error.what()), "Cannot create the shard folder " + dir.string() +
                                                 ": it belongs to another user");
    }
}

// stop() reports a shard in the middle of its inference: the shutdown report takes its audio.
class ShardAudioFolderWorker : public WorkerFixture {};

TEST_F(ShardAudioFolderWorker, StoppingMidShardRemovesItsAudioWithTheShutdownReport) {
    ScratchFolder dir;
    auto folder = ShardAudioFolder::create(dir.path());
    Gate& inferring = newGate();
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token stop) {
            inferring.markReached();
            inferring.wait(stop);
            return ScriptedHandler::transcript(job, "late");
        }));
    http->queueClaims({makeClaim("job", "s1")});
    start([&](WorkerController::Dependencies& d) {
        d.http = folder->clearingAfterReports(d.http);
        d.materialiser = folder->tracking(writer(dir.path()));
    });
    ASSERT_TRUE(inferring.waitReached());
    EXPECT_EQ(namesIn(dir.path()), Names{"varnix-shard-job-s1.wav"});
    controller->stop();
    ASSERT_EQ(http->failures().size(), 1u);
    EXPECT_EQ(http->failures()[0].reason.code, "worker_shutdown");
    EXPECT_EQ(namesIn(dir.path()), Names{});
}

}  // namespace
}  // namespace corvane::testing
