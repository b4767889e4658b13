#include <gtest/gtest.h>

#include <filesystem>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "tests/support/LogCapture.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

using Kind = WorkerHTTPError::Kind;
using dev::ScriptedReply;

// Runs `call` and returns the WorkerHTTPError it throws (failing the test when it throws none).
template <typename Call>
WorkerHTTPError errorOf(Call call) {
    try {
        call();
    } catch (const WorkerHTTPError& error) {
        return error;
    }
    ADD_FAILURE() << "no WorkerHTTPError was thrown";
    return WorkerHTTPError::unauthorized();
}

class WorkerHTTPClientTest : public ::testing::Test {
  protected:
    WorkerHTTPClientTest() : coordinator(dev::DevCoordinator::Options{}) {}

    WorkerHTTPClient client(std::string base = "", std::optional<std::string> version = "1.2.3",
                            http::SessionConfig session = {30, 120, 30}) {
        return WorkerHTTPClient(base.empty() ? coordinator.baseURL() : base, "dev-token",
                                "worker-7", version,
                                std::make_shared<const http::Session>(session));
    }

    static std::string claimJSON(const std::string& job) {
        return R"({"job_id":")" + job +
               R"(","job_type":"transcription","audio_url":"http://x/a.wav"})";
    }

    dev::DevCoordinator coordinator;
    WorkerCapabilities capabilities = [] {
        WorkerCapabilities c;
        c.capabilities = {{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", true, std::nullopt}};
        c.chipTier = "t1";
        c.ramGB = 16;
        return c;
    }();
};

TEST_F(WorkerHTTPClientTest, PollStatusesMapToTheirErrorsWithTheUsersTexts) {
    struct Row {
        const char* name;
        ScriptedReply reply;
        Kind kind;
        std::string text;
    };
    std::vector<Row> rows{
        {"401",
         {401, {}, R"({"detail":"bad token"})"},
         Kind::unauthorized,
         "Worker token rejected by coordinator"},
        {"404 with detail",
         {404, {}, R"({"detail":"no such pool"})"},
         Kind::httpError,
         "HTTP 404: no such pool"},
        {"409 min version",
         {409, {}, R"({"reason":"old","min_version":"2.0","download_url":"https://d"})"},
         Kind::versionTooOld,
         "Worker version too old; minimum required version is 2.0"},
        {"409 undecodable", {409, {}, "<html>"}, Kind::versionTooOld, "Worker version too old"},
        {"429 seconds",
         {429, {{"Retry-After", "120"}}, ""},
         Kind::rateLimited,
         "Worker poll rate-limited; retrying in 120s"},
        {"429 http date",
         {429, {{"Retry-After", "Wed, 21 Oct 2015 07:28:00 GMT"}}, ""},
         Kind::rateLimited,
         "Worker poll rate-limited"},
        {"429 garbage",
         {429, {{"Retry-After", "soon"}}, ""},
         Kind::rateLimited,
         "Worker poll rate-limited"},
        {"503",
         {503, {{"Retry-After", "60"}}, ""},
         Kind::maintenanceMode,
         "Coordinator in maintenance mode; retrying in 60s"},
        {"500 plain", {500, {}, "oops", "text/plain"}, Kind::httpError, "HTTP 500"},
        {"200 html",
         {200, {}, "<html><body>maintenance</body></html>", "text/html"},
         Kind::decodingError,
         ""},
        {"200 truncated",
         {200, {}, R"({"items":[{"job_id":"j","job_type")"},
         Kind::decodingError,
         ""},
        {"200 missing key",
         {200, {}, R"({"items":[{"job_id":"j","audio_url":"u"}]})"},
         Kind::decodingError,
         ""},
        {"200 null items", {200, {}, R"({"items":null})"}, Kind::decodingError, ""},
        // A number beyond a double is a decoding error too, not an exception of the JSON library.
        {"200 number overflow", {200, {}, R"({"items":[],"n":1e400})"}, Kind::decodingError, ""},
    };
    auto worker = client();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        coordinator.enqueueReply("/api/v1/workers/poll", row.reply);
        auto error = errorOf([&] { worker.pollBatch(capabilities, 3, {}); });
        EXPECT_EQ(error.kind(), row.kind);
        if (!row.text.empty()) {
            EXPECT_EQ(*error.errorDescription(), row.text);
        }
    }
    coordinator.enqueueReply("/api/v1/workers/poll", {429, {{"Retry-After", "7"}}, ""});
    EXPECT_EQ(errorOf([&] { worker.pollBatch(capabilities, 1, {}); }).retryAfterSeconds(), 7);
}

TEST_F(WorkerHTTPClientTest, PollBodiesAndHeadersAreReadWhateverTheShardCount) {
    auto worker = client();
    for (std::int64_t maxShards : {1, 4}) {
        SCOPED_TRACE(maxShards);
        coordinator.enqueueReply("/api/v1/workers/poll",
                                 {200, {{"X-Suggested-Max-Shards", "6"}}, claimJSON("bare")});
        auto bare = worker.pollBatch(capabilities, maxShards, {});
        ASSERT_EQ(bare.items.size(), 1u);
        EXPECT_EQ(bare.items[0].jobID, "bare");
        EXPECT_EQ(bare.suggestedMaxShards, 6);

        coordinator.enqueueReply(
            "/api/v1/workers/poll",
            {200,
             {{"X-Strategy-Version", "3"}},
             R"({"api_version":"2","items":[)" + claimJSON("a") + "," + claimJSON("b") + "]}"});
        auto batch = worker.pollBatch(capabilities, maxShards, {});
        ASSERT_EQ(batch.items.size(), 2u);
        EXPECT_EQ(batch.items[1].jobID, "b");
        EXPECT_EQ(batch.suggestedMaxShards, std::nullopt);
        ASSERT_TRUE(batch.strategySuggestion.has_value());
        EXPECT_EQ(batch.strategySuggestion->strategyVersion, 3);
    }
    coordinator.enqueueReply("/api/v1/workers/poll", {200, {}, R"({"items":[]})"});
    EXPECT_TRUE(worker.pollBatch(capabilities, 2, {}).items.empty());
    coordinator.enqueueReply(
        "/api/v1/workers/poll",
        {204, {{"X-Suggested-Max-Shards", "-2"}, {"X-Suggested-Thread-Limit", "3"}}, ""});
    auto empty = worker.pollBatch(capabilities, 2, {});
    EXPECT_TRUE(empty.items.empty());
    EXPECT_EQ(empty.suggestedMaxShards, -2) << "a 204 keeps the header suggestions";
    EXPECT_EQ(empty.strategySuggestion->threadLimit, 3);
    coordinator.enqueueReply("/api/v1/workers/poll", {204, {}, ""});
    EXPECT_EQ(worker.poll(capabilities, {}), std::nullopt);

    auto requests = coordinator.requests();
    ASSERT_FALSE(requests.empty());
    const auto& sent = requests.back();
    EXPECT_EQ(sent.path, "/api/v1/workers/poll");
    EXPECT_EQ(sent.headers.at("authorization"), "Bearer dev-token");
    EXPECT_EQ(sent.headers.at("x-worker-id"), "worker-7");
    EXPECT_EQ(sent.headers.at("x-worker-version"), "1.2.3");
    EXPECT_EQ(sent.headers.at("accept"), "application/json");
    EXPECT_EQ(sent.headers.at("x-worker-capabilities"), capabilities.encode().dump());
    EXPECT_EQ(requests[requests.size() - 2].query, "max_shards=2");
}

// An answer that is no HTTP response (status 0) reads as "HTTP 0: no response" on both poll paths,
// and its headers suggest nothing.
TEST(WorkerHTTPClientReading, AnAnswerThatIsNoHTTPResponseIsAnHTTPErrorOfStatusZero) {
    http::Response none;
    none.headers.add("X-Suggested-Max-Shards", "4");
    for (const auto& error :
         {errorOf([&] { WorkerHTTPClient::readPollBatchResponse(none, 2, "/p"); }),
          errorOf([&] { WorkerHTTPClient::readPollResponse(none, "/p"); })}) {
        EXPECT_EQ(error.kind(), Kind::httpError);
        EXPECT_EQ(error.statusCode(), 0);
        EXPECT_EQ(error.errorDescription(), "HTTP 0: no response");
    }
}

TEST_F(WorkerHTTPClientTest, PathsIgnoreTheBaseURLsPathAndEncodeIDs) {
    auto worker = client(coordinator.baseURL() + "/some/prefix/", std::nullopt);
    coordinator.enqueueReply("/api/v1/workers/poll", {204, {}, ""});
    worker.pollBatch(capabilities, 1, {});
    coordinator.enqueueReply("/api/v1/jobs/", {200, {}, ""});
    worker.heartbeat("a/b c", std::nullopt, {});
    coordinator.enqueueReply("/api/v1/jobs/", {200, {}, ""});
    worker.heartbeat("job", "shard 1", {});
    auto requests = coordinator.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].path, "/api/v1/workers/poll");
    EXPECT_FALSE(requests[0].headers.contains("x-worker-version")) << "no version, no header";
    EXPECT_EQ(requests[1].path, "/api/v1/jobs/a/b%20c/heartbeat");
    EXPECT_EQ(requests[1].query, "");
    EXPECT_EQ(requests[2].query, "shard_id=shard%201");
    EXPECT_EQ(requests[2].headers.at("content-type"), "application/json");
    EXPECT_EQ(
        errorOf([] {
            WorkerHTTPClient("not a url", "t", "w", std::nullopt).heartbeat("j", std::nullopt, {});
        }).kind(),
        Kind::invalidURL);
}

TEST_F(WorkerHTTPClientTest, PerJobStatusesMapByOperation) {
    struct Row {
        int status;
        Kind heartbeat, result, fail;
    };
    auto worker = client();
    SubmitResultBody body{"hello", "en", "m", "b", 1.5, 1, std::nullopt};
    FailReason reason{"handler_error", "boom", false};
    for (const Row& row :
         {Row{401, Kind::unauthorized, Kind::unauthorized, Kind::unauthorized},
          Row{404, Kind::notFoundOrNotOwned, Kind::notFoundOrNotOwned, Kind::notFoundOrNotOwned},
          Row{409, Kind::httpError, Kind::jobCancelled, Kind::httpError},
          Row{429, Kind::httpError, Kind::httpError, Kind::httpError},
          Row{503, Kind::httpError, Kind::httpError, Kind::httpError}}) {
        SCOPED_TRACE(row.status);
        coordinator.enqueueReply("/api/v1/jobs/j/heartbeat", {row.status, {}, ""});
        coordinator.enqueueReply("/api/v1/jobs/j/result", {row.status, {}, ""});
        coordinator.enqueueReply("/api/v1/jobs/j/fail", {row.status, {}, ""});
        EXPECT_EQ(errorOf([&] { worker.heartbeat("j", "s", {}); }).kind(), row.heartbeat);
        EXPECT_EQ(errorOf([&] { worker.submitResult("j", "s", body, {}); }).kind(), row.result);
        EXPECT_EQ(errorOf([&] { worker.submitFail("j", "s", reason, {}); }).kind(), row.fail);
    }
    coordinator.enqueueReply("/api/v1/jobs/j/result", {202, {}, "ignored"});
    EXPECT_NO_THROW(worker.submitResult("j", std::nullopt, body, {}));
    coordinator.enqueueReply("/api/v1/jobs/j/fail", {200, {}, "not json at all"});
    EXPECT_NO_THROW(worker.submitFail("j", std::nullopt, reason, {}));
    auto requests = coordinator.requests();
    EXPECT_EQ(parseJson(requests[requests.size() - 2].body), body.encode());
    EXPECT_EQ(parseJson(requests.back().body),
              (Json{{"error", "code=handler_error; retryable=false; message=boom"}}));
}

TEST_F(WorkerHTTPClientTest, DroppedSilentAndRefusedConnectionsAreNetworkErrors) {
    testing::LogCapture logs;
    auto worker = client("", "1", {1, 2, 1});
    ScriptedReply dropped{200, {}, R"({"items":[)" + claimJSON("cut") + "]}"};
    dropped.dropMidBody = true;
    coordinator.enqueueReply("/api/v1/workers/poll", dropped);
    EXPECT_EQ(errorOf([&] { worker.pollBatch(capabilities, 2, {}); }).kind(), Kind::network);

    ScriptedReply silent{200, {}, "{}"};
    silent.delaySeconds = 3;  // longer than the session lets a reply be silent
    coordinator.enqueueReply("/api/v1/jobs/", silent);
    auto timedOut = errorOf([&] { worker.heartbeat("j", std::nullopt, {}); });
    EXPECT_EQ(timedOut.kind(), Kind::network);
    EXPECT_NE(std::string(timedOut.what()).find("timed out"), std::string::npos) << timedOut.what();

    ScriptedReply closed;
    closed.closeWithoutReply = true;
    coordinator.enqueueReply("/api/v1/jobs/", closed);
    EXPECT_EQ(errorOf([&] {
                  worker.submitFail("j", std::nullopt, {"c", "m", true}, {});
              }).kind(),
              Kind::network);

    auto refused = WorkerHTTPClient("http://127.0.0.1:1", "t", "w", std::nullopt);
    EXPECT_EQ(errorOf([&] { refused.pollBatch(capabilities, 1, {}); }).kind(), Kind::network);
    EXPECT_TRUE(
        logs.contains("WorkerHTTPClient error: network error /api/v1/workers/poll?max_shards=1: "));

    std::stop_source cancelled;
    cancelled.request_stop();
    coordinator.enqueueReply("/api/v1/workers/poll", silent);
    auto stopped = errorOf([&] { worker.pollBatch(capabilities, 1, cancelled.get_token()); });
    EXPECT_TRUE(stopped.isCancellation());
}

}  // namespace
}  // namespace corvane
