#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

using Kind = CoordinatorRegistrationError::Kind;
constexpr const char* kRegisterPath = "/api/v1/workers/register";
constexpr const char* kInvitation = "inv-7f3a-secret";

WorkerRegistrationRequest sampleRequest() {
    WorkerRegistrationRequest request;
    request.workerID = "wk_0123456789abcdef";
    request.displayName = "build-box";
    request.memoryGB = 16;
    request.availableHandlers = {"whisper-cpp-swift"};
    return request;
}

class RegistrationClient : public ::testing::Test {
protected:
    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    CoordinatorRegistrationClient client{std::string("0.1.0 sha256:abc")};

    // Registers against a scripted answer and returns the error it threw.
    std::optional<CoordinatorRegistrationError> failureFor(dev::ScriptedReply reply,
                                                           std::optional<std::string> token = std::nullopt) {
        coordinator.enqueueReply(kRegisterPath, std::move(reply));
        try {
            client.registerWorker(coordinator.baseURL(), token, sampleRequest());
        } catch (const CoordinatorRegistrationError& error) {
            return error;
        }
        return std::nullopt;
    }
};

TEST_F(RegistrationClient, SuccessDecodesTheAnswerAndSendsTheMachineWithTrimmedToken) {
    coordinator.enqueueReply(std::string("/base") + kRegisterPath,
                             {200, {}, R"({"worker_id":"wk_1","worker_token":"wt","message":"ok"})"});
    auto response = client.registerWorker("  " + coordinator.baseURL() + "/base/ \n", "  " + std::string(kInvitation) + "\t",
                                          sampleRequest());
    EXPECT_EQ(response, (WorkerRegistrationResponse{"wk_1", "wt", "ok"}));

    auto requests = coordinator.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].path, "/base/api/v1/workers/register") << "a base path is kept as a prefix";
    EXPECT_EQ(requests[0].headers["x-enrollment-token"], kInvitation);
    EXPECT_EQ(requests[0].headers["x-worker-version"], "0.1.0 sha256:abc");
    EXPECT_EQ(requests[0].headers["content-type"], "application/json");
    EXPECT_EQ(requests[0].headers["accept"], "application/json");
    auto body = Json::parse(requests[0].body);
    EXPECT_EQ(body["worker_id"], "wk_0123456789abcdef");
    EXPECT_EQ(body["memory_gb"], 16);
    EXPECT_EQ(body["available_models"], Json::array()) << "always sent, even empty";
    EXPECT_FALSE(body.contains("chip")) << "absent fields are left out, not null";
}

TEST_F(RegistrationClient, BlankTokenSendsNoHeaderAndA401ThenAsksNeutrally) {
    auto error = failureFor({401, {}, R"({"error":"invitation required"})"}, std::string(" \n "));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), Kind::invitationRequired);
    EXPECT_EQ(coordinator.requests().at(0).headers.count("x-enrollment-token"), 0u);
}

// The refusals the enrol command's own table doesn't already run, with the sentence the owner reads.
TEST_F(RegistrationClient, EachRefusalGivesItsText) {
    const std::string network = "Corvane could not reach the service. Check your internet connection and try again.";
    struct Row {
        const char* what;
        dev::ScriptedReply reply;
        std::optional<std::string> token;
        Kind kind;
        std::string text;
    };
    const std::vector<Row> rows = {
        {"401 with a code", {401, {}, "{}"}, kInvitation, Kind::invalidInvitation,
         "That invitation code is invalid or expired. Try again with a fresh code."},
        {"403 already registered", {403, {}, R"({"error":"Worker Already Registered"})"}, std::nullopt,
         Kind::existingWorkerTokenRequired,
         "This computer is already registered. Use the existing worker credential to rotate it instead of retrying "
         "public setup."},
        {"403 rotate, with a code", {403, {}, R"({"error":"please ROTATE your token"})"}, kInvitation,
         Kind::existingWorkerTokenRequired, ""},
        {"403 other", {403, {}, R"({"error":"banned"})"}, kInvitation, Kind::invalidInvitation, ""},
        {"418 unparsable", {418, {}, "{"}, std::nullopt, Kind::httpError,
         "Corvane setup failed with HTTP 418. Try again in a moment."},
        {"429 empty Retry-After", {429, {{"Retry-After", ""}}, ""}, std::nullopt, Kind::rateLimited,
         "Too many registration attempts. Try again later."},
        {"429 without", {429, {}, ""}, std::nullopt, Kind::rateLimited, "Too many registration attempts. Try again later."},
        {"503", {503, {}, ""}, std::nullopt, Kind::coordinatorUnavailable, ""},
        {"200 without message", {200, {}, R"({"worker_id":"wk","worker_token":"t"})"}, std::nullopt, Kind::networkFailure,
         network},
        {"200 token not a string", {200, {}, R"({"worker_id":"wk","worker_token":5,"message":"m"})"}, std::nullopt,
         Kind::networkFailure, network},
        {"body cut short", {200, {}, R"({"worker_id":"wk","worker_token":"t","message":"m"})", "application/json", 0, true},
         std::nullopt, Kind::networkFailure, network},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        auto error = failureFor(row.reply, row.token);
        ASSERT_TRUE(error) << "should have failed";
        EXPECT_EQ(error->kind(), row.kind);
        if (!row.text.empty()) {
            EXPECT_EQ(error->errorDescription(), row.text);
        }
        EXPECT_EQ(std::string(error->what()).find(kInvitation), std::string::npos) << "the code never shows";
    }
}

TEST(RegistrationClientNetwork, NothingListeningIsANetworkFailure) {
    std::string deadURL;
    {
        dev::DevCoordinator stopped{dev::DevCoordinator::Options{}};
        deadURL = stopped.baseURL();
    }  // its port refuses connections from here on
    CoordinatorRegistrationClient client(std::nullopt);
    try {
        client.registerWorker(deadURL, std::nullopt, sampleRequest());
        FAIL() << "registered with nobody";
    } catch (const CoordinatorRegistrationError& error) {
        EXPECT_EQ(error.kind(), Kind::networkFailure);
    }
}

TEST(RegistrationURL, KeepsPrefixesAndRefusesWhatIsNotAnHTTPURL) {
    EXPECT_EQ(CoordinatorRegistrationClient::registrationURL("https://example/base/"),
              "https://example/base/api/v1/workers/register");
    EXPECT_EQ(CoordinatorRegistrationClient::registrationURL("http://h:8080"), "http://h:8080/api/v1/workers/register");
    EXPECT_EQ(CoordinatorRegistrationClient::registrationURL("http://h//a//b?x=1"),
              "http://h/a/b/api/v1/workers/register?x=1");
    for (const char* bad : {"", "   ", "not a url", "ftp://example.com", "http://", "http:///path", "http://exa mple.com",
                            "example.com", "http://user@:80"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(CoordinatorRegistrationClient::registrationURL(bad), std::nullopt);
        CoordinatorRegistrationClient client(std::nullopt);
        try {
            client.makeRequest(bad, std::nullopt, sampleRequest());
            ADD_FAILURE() << "accepted";
        } catch (const CoordinatorRegistrationError& error) {
            EXPECT_EQ(error.kind(), Kind::invalidCoordinatorURL);
            EXPECT_STREQ(error.what(), "Enter a valid URL.");
        }
    }
    CoordinatorRegistrationClient anonymous(std::nullopt);
    auto request = anonymous.makeRequest("http://h", std::nullopt, sampleRequest());
    EXPECT_FALSE(request.headers.find("X-Worker-Version")) << "no build identity, no header";
    EXPECT_EQ(request.timeoutSeconds, 15.0);
}

}  // namespace
}  // namespace corvane::testing
