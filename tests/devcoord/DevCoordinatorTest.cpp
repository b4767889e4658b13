// The local coordinator over real loopback HTTP: token, poll and report bookkeeping, audio ranges
// and every scripted fault, seen through the worker's own HTTP session and client.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/platform/Http.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::dev {
namespace {

using namespace std::chrono_literals;
using Kind = http::TransportError::Kind;

class DevCoordinatorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = std::filesystem::temp_directory_path() /
               ("devcoord-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(dir_);
        for (int i = 0; i < 100; ++i) audio_ += static_cast<char>('A' + i % 26);
        std::ofstream(dir_ / "clip.wav", std::ios::binary) << audio_;
    }
    void TearDown() override {
        coordinator_.reset();
        std::filesystem::remove_all(dir_);
    }
    DevCoordinator& start(std::vector<ShardSpec> shards = {}, std::optional<int> suggested = {}) {
        coordinator_ = std::make_unique<DevCoordinator>(DevCoordinator::Options{
            .audioDir = dir_, .shards = std::move(shards), .suggestedMaxShards = suggested});
        return *coordinator_;
    }
    http::Response send(const std::string& method, const std::string& path,
                        std::vector<std::pair<std::string, std::string>> headers = {},
                        std::string body = {}, const http::Session* session = nullptr) {
        http::Request request;
        request.method = method;
        request.url = coordinator_->baseURL() + path;
        request.body = std::move(body);
        for (auto& [name, value] : headers) request.headers.add(name, value);
        return (session ? *session : session_).send(request);
    }
    http::Response authed(const std::string& method, const std::string& path, std::string body = {},
                          std::string worker = "w1") {
        return send(method, path, {{"Authorization", "Bearer dev-token"}, {"X-Worker-ID", worker}},
                    std::move(body));
    }
    Kind transportFailure(const std::string& path, const http::Session& session) {
        try {
            send("GET", path, {}, {}, &session);
        } catch (const http::TransportError& error) {
            return error.kind();
        }
        ADD_FAILURE() << "the request succeeded";
        return Kind::other;
    }

    std::filesystem::path dir_;
    std::string audio_;
    http::Session session_;
    std::unique_ptr<DevCoordinator> coordinator_;
};

TEST_F(DevCoordinatorTest, TokenGuardsWorkerEndpointsButNotAudio) {
    start();
    const std::vector<std::vector<std::pair<std::string, std::string>>> refused = {
        {},
        {{"Authorization", "Bearer wrong"}},
        {{"Authorization", "dev-token"}},
        {{"Authorization", "Bearer dev-token-2"}}};
    for (const auto& headers : refused) {
        auto response = send("GET", "/api/v1/workers/poll?max_shards=1", headers);
        EXPECT_EQ(response.status, 401);
        EXPECT_TRUE(parseJson(response.body).at("detail").is_string()) << response.body;
        EXPECT_EQ(send("POST", "/api/v1/jobs/j/heartbeat", headers).status, 401);
    }
    EXPECT_EQ(authed("GET", "/api/v1/workers/poll").status, 204);
    EXPECT_EQ(send("GET", "/audio/clip.wav").status, 200);
    EXPECT_EQ(authed("GET", "/api/v1/nothing").status, 404);
}

TEST_F(DevCoordinatorTest, PollHandsOutClaimsOnceAndRecordsCapabilities) {
    ModelIdentifier parakeet{"speech-engine-native", "parakeet-tdt-0.6b-v2", "1"};
    auto& coordinator =
        start({{"j1", "s1", "clip.wav", 1.5, 9.0, parakeet}, {"j2", {}, "a b.wav"}}, 3);
    auto first = send(
        "GET", "/api/v1/workers/poll?max_shards=1",
        {{"Authorization", "Bearer dev-token"}, {"X-Worker-Capabilities", R"({"ram_gb":16})"}});
    ASSERT_EQ(first.status, 200);
    EXPECT_EQ(first.headers.find("X-Suggested-Max-Shards"), "3");
    auto items = parseJson(first.body).at("items");
    ASSERT_EQ(items.size(), 1u);
    ShardClaim claim = ShardClaim::decode(items[0]);
    EXPECT_EQ(claim.jobID, "j1");
    EXPECT_EQ(claim.shardID, "s1");
    EXPECT_EQ(claim.jobType, "transcription");
    EXPECT_EQ(claim.audioURL, coordinator.baseURL() + "/audio/clip.wav");
    EXPECT_EQ(claim.startSeconds, 1.5);
    EXPECT_EQ(claim.endSeconds, 9.0);
    EXPECT_EQ(claim.modelIdentifier, parakeet);
    EXPECT_EQ(coordinator.requests().back().headers.at("x-worker-capabilities"),
              R"({"ram_gb":16})");

    auto second = parseJson(authed("GET", "/api/v1/workers/poll?max_shards=5").body).at("items");
    ASSERT_EQ(second.size(), 1u);
    EXPECT_FALSE(second[0].contains("shard_id"));
    EXPECT_EQ(second[0].at("audio_url"), coordinator.baseURL() + "/audio/a%20b.wav");
    auto empty = authed("GET", "/api/v1/workers/poll?max_shards=5");
    EXPECT_EQ(empty.status, 204);
    EXPECT_EQ(empty.headers.find("X-Suggested-Max-Shards"), "3");
    EXPECT_EQ(coordinator.pendingShardCount(), 0u);
    for (const char* bad : {"0", "-1", "two", "1.5", ""}) {
        EXPECT_EQ(authed("GET", std::string("/api/v1/workers/poll?max_shards=") + bad).status, 422)
            << bad;
    }
}

TEST_F(DevCoordinatorTest, ReportsFollowTheShardThroughItsLife) {
    auto& coordinator = start({{"j1", "s1", "clip.wav"}, {"j2", {}, "clip.wav"}});
    ASSERT_EQ(authed("GET", "/api/v1/workers/poll?max_shards=2").status, 200);
    const std::string s1 = "/api/v1/jobs/j1/";
    const std::string longText(200'000, 'w');  // large enough for "Expect: 100-continue"
    struct Row {
        std::string method, path, body, worker;
        int status;
    };
    const std::vector<Row> rows = {
        {"POST", s1 + "heartbeat?shard_id=s1", "", "w1", 200},
        {"POST", s1 + "heartbeat?shard_id=s1", "", "w2", 404},               // another worker
        {"POST", s1 + "heartbeat", "", "w1", 404},                           // shard id missing
        {"POST", s1 + "result?shard_id=s1", "{\"transcript\":", "w1", 422},  // truncated JSON
        {"POST", s1 + "result?shard_id=s1", "[1]", "w1", 422},
        {"POST", s1 + "result?shard_id=s1", "{\"transcript\":\"" + longText + "\"}", "w1", 200},
        {"POST", s1 + "result?shard_id=s1", R"({"transcript":"again"})", "w1", 409},
        {"POST", s1 + "heartbeat?shard_id=s1", "", "w1", 404},  // ended
        {"POST", "/api/v1/jobs/j2/fail", R"({"reason":"x"})", "w1", 422},
        {"POST", "/api/v1/jobs/j2/fail", R"({"error":"code=handler_error"})", "w1", 200},
        {"POST", "/api/v1/jobs/j3/fail", R"({"error":"e"})", "w1", 404},  // never handed out
    };
    for (const Row& row : rows) {
        EXPECT_EQ(authed(row.method, row.path, row.body, row.worker).status, row.status)
            << row.path;
    }
    ASSERT_EQ(coordinator.heartbeats().size(), 1u);
    EXPECT_EQ(coordinator.heartbeats()[0].shardID, "s1");
    ASSERT_EQ(coordinator.results().size(), 2u);
    EXPECT_EQ(coordinator.results()[0].body.at("transcript"), longText);
    EXPECT_EQ(coordinator.results()[1].body.at("transcript"), "again");
    ASSERT_EQ(coordinator.failures().size(), 1u);
    EXPECT_EQ(coordinator.failures()[0].jobID, "j2");
    EXPECT_EQ(coordinator.failures()[0].shardID, std::nullopt);
    EXPECT_EQ(coordinator.failures()[0].error, "code=handler_error");
    EXPECT_EQ(coordinator.requests().size(), rows.size() + 1);
}

TEST_F(DevCoordinatorTest, WorkerClientRoundTripsIdsWithSlashesAndSpaces) {
    auto& coordinator = start({{"job/with space", "shard 1", "clip.wav"}}, 2);
    WorkerHTTPClient client(coordinator.baseURL(), "dev-token", "worker-7", "1.0");
    auto outcome = client.pollBatch({}, 4, {});
    ASSERT_EQ(outcome.items.size(), 1u);
    EXPECT_EQ(outcome.suggestedMaxShards, 2);
    const ShardClaim& claim = outcome.items[0];
    client.heartbeat(claim.jobID, claim.shardID, {});
    SubmitResultBody result;
    result.transcript = "hello";
    client.submitResult(claim.jobID, claim.shardID, result, {});
    EXPECT_THROW(client.submitFail(claim.jobID, claim.shardID, {"handler_error", "late", true}, {}),
                 WorkerHTTPError);  // 409 after the result
    EXPECT_EQ(coordinator.requests()[1].path, "/api/v1/jobs/job/with%20space/heartbeat");
    EXPECT_EQ(coordinator.requests()[1].query, "shard_id=shard%201");
    ASSERT_EQ(coordinator.results().size(), 1u);
    EXPECT_EQ(coordinator.results()[0].jobID, "job/with space");
    EXPECT_EQ(coordinator.results()[0].body.at("transcript"), "hello");
    EXPECT_EQ(coordinator.failures().at(0).error,
              "code=handler_error; retryable=true; message=late");
}

TEST_F(DevCoordinatorTest, AudioAnswersRangesAndMissingFiles) {
    start();
    struct Row {
        std::optional<std::string> range;
        long status;
        std::string body, contentRange;
    };
    const std::vector<Row> rows = {
        {{}, 200, audio_, ""},
        {"bytes=2-4", 206, audio_.substr(2, 3), "bytes 2-4/100"},
        {"bytes=95-", 206, audio_.substr(95), "bytes 95-99/100"},
        {"bytes=-3", 206, audio_.substr(97), "bytes 97-99/100"},
        {"bytes=90-500", 206, audio_.substr(90), "bytes 90-99/100"},
        {"bytes=100-", 416, "", "bytes */100"},
        {"bytes=1-2,5-6", 200, audio_, ""},  // several ranges: served whole
    };
    for (const Row& row : rows) {
        std::vector<std::pair<std::string, std::string>> headers;
        if (row.range) headers.emplace_back("Range", *row.range);
        auto response = send("GET", "/audio/clip.wav", headers);
        EXPECT_EQ(response.status, row.status) << row.range.value_or("none");
        EXPECT_EQ(response.body, row.body) << row.range.value_or("none");
        EXPECT_EQ(response.headers.find("Content-Range").value_or(""), row.contentRange);
    }
    for (const char* missing : {"/audio/none.wav", "/audio/..%2Fclip.wav", "/audio/%2E%2E"}) {
        EXPECT_EQ(send("GET", missing).status, 404) << missing;
    }
}

TEST_F(DevCoordinatorTest, AudioFaultsIgnoreRangesDropAndReplace) {
    auto& coordinator = start();
    coordinator.setAudioFaults({.ignoreRange = true});
    auto whole = send("GET", "/audio/clip.wav", {{"Range", "bytes=2-4"}});
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.body, audio_);

    coordinator.setAudioFaults({.replaceBody = std::string("not audio")});
    auto replaced = send("GET", "/audio/never-written.mp3", {{"Range", "bytes=4-"}});
    EXPECT_EQ(replaced.status, 206);
    EXPECT_EQ(replaced.body, "audio");

    coordinator.setAudioFaults({.dropAfterBytes = 40});
    size_t received = 0;
    http::StreamCallbacks callbacks;
    callbacks.onData = [&](std::string_view chunk) {
        received += chunk.size();
        return true;
    };
    http::Request request;
    request.url = coordinator.baseURL() + "/audio/clip.wav";
    try {
        session_.stream(request, callbacks);
        ADD_FAILURE() << "a dropped body was taken as whole";
    } catch (const http::TransportError& error) {
        EXPECT_EQ(error.kind(), Kind::connectionLost);
    }
    EXPECT_EQ(received, 40u);
}

TEST_F(DevCoordinatorTest, ScriptedRepliesReplaceHandlingOncePerPrefixInOrder) {
    auto& coordinator = start({{"j1", {}, "clip.wav"}});
    coordinator.enqueueReply("/api/v1/", {.status = 503, .headers = {{"Retry-After", "7"}}});
    coordinator.enqueueReply("/api/v1/workers/poll",
                             {.status = 429, .body = R"({"detail":"slow"})"});
    coordinator.enqueueReply("/api/v1/workers/poll", {.status = 409});
    EXPECT_EQ(send("GET", "/api/v1/workers/poll").status, 429);  // longest prefix, before the token
    EXPECT_EQ(send("GET", "/api/v1/workers/poll").status, 409);
    auto maintenance = send("GET", "/api/v1/workers/poll");
    EXPECT_EQ(maintenance.status, 503);
    EXPECT_EQ(maintenance.headers.find("Retry-After"), "7");
    EXPECT_EQ(send("GET", "/api/v1/workers/poll").status, 401);  // normal handling again
    EXPECT_EQ(coordinator.pendingShardCount(), 1u);
}

TEST_F(DevCoordinatorTest, ScriptedFaultsBreakTheTransport) {
    auto& coordinator = start();
    http::Session impatient(http::SessionConfig{1, 2, 1});
    coordinator.enqueueReply("/slow", {.delaySeconds = 1.6});
    EXPECT_EQ(transportFailure("/slow", impatient), Kind::timedOut);
    coordinator.enqueueReply("/half", {.body = std::string(1000, 'x'), .dropMidBody = true});
    EXPECT_EQ(transportFailure("/half", session_), Kind::connectionLost);
    coordinator.enqueueReply("/mute", {.closeWithoutReply = true});
    EXPECT_EQ(transportFailure("/mute", session_), Kind::connectionLost);
    EXPECT_EQ(send("GET", "/audio/clip.wav").status, 200);  // the server lives on
}

TEST_F(DevCoordinatorTest, StopsPromptlyWithADelayedReplyPendingAndWaitUntilSeesReports) {
    auto& coordinator = start({{"j1", {}, "clip.wav"}});
    EXPECT_FALSE(coordinator.waitUntil([](const auto& c) { return !c.results().empty(); }, 20ms));
    auto reporter = std::async(std::launch::async, [&] {
        authed("GET", "/api/v1/workers/poll");
        authed("POST", "/api/v1/jobs/j1/result", R"({"transcript":"t"})");
    });
    EXPECT_TRUE(coordinator.waitUntil([](const auto& c) { return c.results().size() == 1; }, 10s));
    reporter.get();

    coordinator.enqueueReply("/hang", {.delaySeconds = 600});
    auto waiter = std::async(std::launch::async, [&] {
        try {
            send("GET", "/hang");
        } catch (const http::TransportError&) {
        }
    });
    ASSERT_TRUE(coordinator.waitUntil([](const auto& c) { return c.requests().size() == 3; }, 10s));
    const auto before = std::chrono::steady_clock::now();
    coordinator_.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    EXPECT_EQ(waiter.wait_for(10s), std::future_status::ready);
}

}  // namespace
}  // namespace corvane::dev
