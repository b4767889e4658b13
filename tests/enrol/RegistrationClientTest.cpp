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
    return request;
}

class RegistrationClient : public ::testing::Test {
  protected:
    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    CoordinatorRegistrationClient client{std::string("0.1.0 sha256:abc")};
};

// The refusals the enrol command's table doesn't already run, with the sentence the owner reads.
TEST_F(RegistrationClient, EachRefusalGivesItsKindAndText) {
    struct Row {
        const char* what;
        dev::ScriptedReply reply;
        std::optional<std::string> token;
        Kind kind;
        std::string text;
    };
    const std::vector<Row> rows = {
        {"401, blank code",
         {401, {}, R"({"error":"invitation required"})"},
         " \n ",
         Kind::invitationRequired,
         ""},
        {"403 rotate, with a code",
         {403, {}, R"({"error":"please ROTATE your token"})"},
         kInvitation,
         Kind::existingWorkerTokenRequired,
         ""},
        {"403 other", {403, {}, R"({"error":"banned"})"}, kInvitation, Kind::invalidInvitation, ""},
        {"418 unparsable",
         {418, {}, "{"},
         std::nullopt,
         Kind::httpError,
         "Corvane setup failed with HTTP 418. Try again in a moment."},
        {"429 empty Retry-After",
         {429, {{"Retry-After", ""}}, ""},
         std::nullopt,
         Kind::rateLimited,
         "Too many registration attempts. Try again later."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        coordinator.enqueueReply(kRegisterPath, row.reply);
        try {
            client.registerWorker(coordinator.baseURL(), row.token, sampleRequest());
            ADD_FAILURE() << "should have failed";
        } catch (const CoordinatorRegistrationError& error) {
            EXPECT_EQ(error.kind(), row.kind);
            if (!row.text.empty()) {
                EXPECT_EQ(error.errorDescription(), row.text);
            }
            EXPECT_EQ(std::string(error.what()).find(kInvitation), std::string::npos)
                << "the code never shows";
        }
        const bool sent = row.token && row.token->find_first_not_of(" \n") != std::string::npos;
        EXPECT_EQ(coordinator.requests().back().headers.count("x-enrollment-token"),
                  sent ? 1u : 0u);
    }
}

TEST(RegistrationURL, KeepsPrefixesAndRefusesWhatIsNotAnHTTPURL) {
    EXPECT_EQ(CoordinatorRegistrationClient::registrationURL("https://example/base/"),
              "https://example/base/api/v1/workers/register");
    EXPECT_EQ(CoordinatorRegistrationClient::registrationURL("http://h//a//b?x=1"),
              "http://h/a/b/api/v1/workers/register?x=1");
    for (const char* bad :
         {"   ", "ftp://example.com", "http://", "http://exa mple.com", "example.com"}) {
        EXPECT_EQ(CoordinatorRegistrationClient::registrationURL(bad), std::nullopt) << bad;
    }
}

}  // namespace
}  // namespace corvane::testing
