#include <gtest/gtest.h>

#include <sstream>

#include "CorvaneApp/app/EnrollCommand.h"
#include "CorvaneApp/app/SignOutCommand.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

constexpr const char* kSecret = "inv-s3cr3t-ab12";

class Enroll : public ::testing::Test {
  protected:
    ScratchFolder home;
    std::shared_ptr<FakeRegistration> registration = std::make_shared<FakeRegistration>();
    std::shared_ptr<FakeCredentialStore> credentials = std::make_shared<FakeCredentialStore>();
    std::filesystem::path configPath = home.path() / ".varnix-compute" / "config.yaml";
    std::string out, err;

    int run(std::vector<std::string> arguments, const std::string& input = "",
            std::shared_ptr<CoordinatorRegistering> client = nullptr) {
        EnrollDependencies dependencies;
        dependencies.registrationClient = client ? client : registration;
        dependencies.credentialStore = credentials;
        dependencies.configPath = configPath;
        dependencies.machineFacts = [] {
            return OnboardingMachineFacts{"wk_feedfacecafebeef", "rack-7", "Xeon", 8ull << 30,
                                          "0.1.0"};
        };
        std::istringstream in(input);
        std::ostringstream o, e;
        const int status = runEnrollCommand(arguments, in, o, e, dependencies);
        out = o.str();
        err = e.str();
        return status;
    }
    void expectNothingWritten() {
        EXPECT_FALSE(std::filesystem::exists(configPath));
        EXPECT_TRUE(credentials->tokens.empty());
    }
};

TEST_F(Enroll, TheTokenComesFromStandardInputOrAFileAndTheWorkerIDIsPrinted) {
    ASSERT_EQ(
        run({"--coordinator", "http://coord.test", "--token-stdin", "--schedule", "22:30-06:00"},
            "  " + std::string(kSecret) + "  \r\nignored second line\n"),
        0)
        << err;
    EXPECT_EQ(out, "wk_feedfacecafebeef\n") << "stdout holds the id alone, for scripts";
    ASSERT_EQ(registration->calls.size(), 1u);
    EXPECT_EQ(registration->calls[0].enrollmentToken, kSecret);
    EXPECT_NE(readFile(configPath).value().find("start_time: '22:30'"), std::string::npos);

    std::filesystem::remove(configPath);
    auto tokenFile = home.write("token.txt", std::string(kSecret) + "\n");
    ASSERT_EQ(run({"--coordinator", "http://c", "--token-file", tokenFile.string(), "--schedule",
                   "business-hours"}),
              0)
        << err;
    EXPECT_EQ(registration->calls.at(1).enrollmentToken, kSecret);
    EXPECT_NE(readFile(configPath).value().find("run_schedule:\n  enabled: true"),
              std::string::npos);
    std::filesystem::remove(configPath);
    ASSERT_EQ(run({"--coordinator", "http://c"}), 0) << err;
    EXPECT_EQ(registration->calls.at(2).enrollmentToken, std::nullopt)
        << "no token option, public registration";
    EXPECT_NE(readFile(configPath).value().find("run_schedule:\n  enabled: false"),
              std::string::npos)
        << "always-on by default";
}

TEST_F(Enroll, BadUsageIsRefusedBeforeAnythingIsSent) {
    struct Row {
        std::vector<std::string> arguments;
        std::string input;
        int status;
        std::string says;
    };
    auto missingFile = (home.path() / "nope.txt").string();
    auto emptyFile = home.write("empty.txt", " \n").string();
    auto binaryFile = home.write("bin.txt", std::string("abc\x01"
                                                        "def",
                                                        7))
                          .string();
    const std::vector<Row> rows = {
        {{}, "", 2, "--coordinator URL is required"},
        {{"--coordinator"}, "", 2, "--coordinator needs a value"},
        {{"--coordinator", "http://c", std::string("--token=") + kSecret},
         "",
         2,
         "use --token-stdin or --token-file"},
        {{"--coordinator", "http://c", "--frobnicate"}, "", 2, "unknown option --frobnicate"},
        {{"--coordinator", "http://c", "--token-stdin", "--token-file", emptyFile},
         "",
         2,
         "either"},
        {{"--coordinator", "http://c", "--schedule", "25:00-06:00"}, "", 2, "--schedule must be"},
        {{"--coordinator", "http://c", "--token-stdin"},
         "",
         1,
         "no invitation token on standard input"},
        {{"--coordinator", "http://c", "--token-stdin"}, std::string(5000, 'x'), 1, "too long"},
        {{"--coordinator", "http://c", "--token-file", missingFile}, "", 1, "cannot read"},
        {{"--coordinator", "http://c", "--token-file", emptyFile}, "", 1, "is empty"},
        {{"--coordinator", "http://c", "--token-file", binaryFile}, "", 1, "control characters"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.says);
        EXPECT_EQ(run(row.arguments, row.input), row.status);
        EXPECT_NE(err.find(row.says), std::string::npos) << err;
        EXPECT_EQ(err.find(kSecret), std::string::npos)
            << "a token given the wrong way is not echoed";
        EXPECT_TRUE(out.empty());
    }
    EXPECT_TRUE(registration->calls.empty());
    expectNothingWritten();

    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_NE(out.find("usage: corvane enroll"), std::string::npos);
    EXPECT_NE(out.find("--token-stdin"), std::string::npos);
}

TEST_F(Enroll, EveryFailedRegistrationLeavesTheMachineUnenrolled) {
    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    auto client = std::make_shared<CoordinatorRegistrationClient>(std::nullopt);
    struct Row {
        const char* what;
        dev::ScriptedReply reply;
        std::string says;
    };
    const std::string network =
        "Corvane could not reach the service. Check your internet connection and try again.";
    const std::vector<Row> rows = {
        {"401",
         {401, {}, R"({"error":"bad code"})"},
         "That invitation code wasn't accepted. Check Advanced and try again."},
        {"403",
         {403, {}, R"({"error":"worker already registered"})"},
         "This computer is already registered."},
        {"409",
         {409, {}, R"({"error":"Worker id taken by another account"})"},
         "Worker id taken by another account"},
        {"429", {429, {{"Retry-After", "120"}}, ""}, "Try again in 120 seconds."},
        {"500",
         {500, {}, "oops"},
         "Corvane couldn't reach the service right now. Wait a moment and try again."},
        {"not JSON", {200, {}, "<html>hi</html>"}, network},
        {"no token", {200, {}, R"({"worker_id":"wk","message":"ok"})"}, network},
        {"dropped", {.closeWithoutReply = true}, network},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        coordinator.enqueueReply("/api/v1/workers/register", row.reply);
        EXPECT_EQ(run({"--coordinator", coordinator.baseURL(), "--token-stdin"}, kSecret, client),
                  1);
        EXPECT_NE(err.find(row.says), std::string::npos) << err;
        EXPECT_EQ(err.find(kSecret), std::string::npos);
        EXPECT_TRUE(out.empty());
        expectNothingWritten();
    }
}

// Sign-out takes the enrolment away for good, on disk too, and never from under a running worker.
TEST(SignOut, RemovesTheEnrolmentOnceAndNeverUnderARunningWorker) {
    ScratchFolder home;
    const auto credentials = home.path() / "credentials";
    auto keychain =
        std::make_shared<KeychainStore>(std::make_shared<FileCredentialBackend>(credentials));
    home.write(".varnix-compute/config.yaml",
               "coordinator_url: \"http://coord.test\"\nworker_id: \"wk_1\"\n");
    keychain->storePythonWorkerToken("wt-secret", "http://coord.test", "wk_1");
    std::optional<long> running = 4242;
    const SignOutDependencies dependencies{home.path() / ".varnix-compute" / "config.yaml",
                                           keychain, [&] { return running; }};
    auto run = [&](std::vector<std::string> arguments = {}) {
        std::ostringstream out, err;
        const int status = runSignOutCommand(arguments, out, err, dependencies);
        return std::pair{status, out.str() + err.str()};
    };

    const auto [refused, why] = run();
    EXPECT_EQ(refused, 1);
    EXPECT_NE(why.find("Corvane is running (process 4242)"), std::string::npos) << why;
    EXPECT_TRUE(std::filesystem::exists(dependencies.configPath));
    EXPECT_EQ(keychain->pythonWorkerToken("http://coord.test", "wk_1"), "wt-secret");

    running.reset();
    EXPECT_EQ(run(),
              (std::pair{0, std::string("Signed out: this computer is no longer enrolled.\n")}));
    EXPECT_FALSE(std::filesystem::exists(dependencies.configPath));
    EXPECT_EQ(KeychainStore(std::make_shared<FileCredentialBackend>(credentials))
                  .pythonWorkerToken("http://coord.test", "wk_1"),
              std::nullopt);
    EXPECT_EQ(run(), (std::pair{0, std::string("This computer is not enrolled.\n")}));
    EXPECT_EQ(run({"--all"}).first, 2);
}

}  // namespace
}  // namespace corvane::testing
