#include "CorvaneApp/config/KeychainStore.h"

#include <sys/stat.h>
#include <csignal>
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/SecretServiceBackend.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

const std::string kToken = "tok_live_SECRET_1234567890";
const std::string kURL = "https://coordinator.example:8443/api";
const std::string kService = "VarnixCompute Worker (coordinator.example:8443)";

std::vector<std::string> outputOf(const std::string& command) {
    std::vector<std::string> lines;
    FILE* pipe = ::popen(command.c_str(), "r");
    char buffer[512];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe)) {
        lines.emplace_back(buffer);
        if (lines.back().ends_with('\n')) lines.back().pop_back();
    }
    if (pipe) ::pclose(pipe);
    return lines;
}

class ScopedBusAddress {
  public:
    explicit ScopedBusAddress(const char* value) {
        if (const char* old = std::getenv(kName)) previous_ = old;
        value ? ::setenv(kName, value, 1) : ::unsetenv(kName);
    }
    ~ScopedBusAddress() { previous_ ? ::setenv(kName, previous_->c_str(), 1) : ::unsetenv(kName); }

  private:
    static constexpr const char* kName = "DBUS_SESSION_BUS_ADDRESS";
    std::optional<std::string> previous_;
};

// A Secret Service of the tests' own: a private session bus and a gnome-keyring-daemon with an
// unlocked keyring in a temp home (so nothing touches the real keyrings), ended by their pids.
struct PrivateSecretService {
    // Null, with `reason` saying why, when the daemons are missing or don't come up.
    static std::unique_ptr<PrivateSecretService> start(std::string& reason) {
        if (outputOf("command -v dbus-daemon; command -v gnome-keyring-daemon").size() < 2) {
            reason =
                "dbus-daemon or gnome-keyring-daemon is not installed (the test script installs "
                "them)";
            return nullptr;
        }
        auto service = std::make_unique<PrivateSecretService>();
        const auto home = service->home.path();
        const auto log = (home / "daemons.log").string();
        auto fail = [&](const std::string& why) {
            auto said = readFile(log).value_or("");
            reason = why + "; daemons said: " +
                     (said.size() > 400 ? said.substr(said.size() - 400) : said);
            return nullptr;
        };
        std::filesystem::create_directories(home / "run");
        ::chmod((home / "run").c_str(), 0700);
        const std::string env = "env HOME='" + home.string() + "' XDG_DATA_HOME='" +
                                (home / "data").string() + "' XDG_RUNTIME_DIR='" +
                                (home / "run").string() + "' ";
        auto bus = outputOf(
            env + "dbus-daemon --session --fork --print-address=1 --print-pid=1 2>>'" + log + "'");
        if (bus.size() < 2) return fail("dbus-daemon did not start");
        service->pids[0] = std::atoi(bus[1].c_str());
        // --unlock reads the new login keyring's password from stdin; $! is the daemon's own pid.
        auto keyring = outputOf(
            "printf corvane-test | " + env + "DBUS_SESSION_BUS_ADDRESS='" + bus[0] +
            "' gnome-keyring-daemon --foreground --unlock --components=secrets >/dev/null 2>>'" +
            log + "' & echo $!");
        if (keyring.empty()) return fail("gnome-keyring-daemon did not start");
        service->pids[1] = std::atoi(keyring[0].c_str());
        service->address.emplace(bus[0].c_str());
        // The keyring registers on the bus shortly after it starts: a bounded wait for an outside
        // process, not for our own code.
        SecretServiceBackend::Probe probe;
        for (int attempt = 0; attempt < 100 && !probe.usable; ++attempt) {
            if (attempt) std::this_thread::sleep_for(std::chrono::milliseconds(100));
            probe = SecretServiceBackend::probe(/*displayAvailable=*/false);
        }
        if (!probe.usable)
            return fail("the private Secret Service never became usable: " + probe.reason);
        return service;
    }
    ~PrivateSecretService() {
        for (pid_t pid : pids) {
            if (pid > 0) ::kill(pid, SIGTERM);
        }
    }

    testing::ScratchFolder home;
    pid_t pids[2] = {-1, -1};  // the bus and the keyring
    std::optional<ScopedBusAddress> address;
};

TEST(KeychainServiceNameTest, FollowsTheDaemonNaming) {
    const std::pair<const char*, const char*> rows[] = {
        {"https://user:pw@coordinator.example:9/x?y#z", "coordinator.example:9"},
        {"https://[::1]:8080/", "::1:8080"},
        {"coordinator.example:8443", "coordinator.example:8443"},
        {"https://coordinator.example:port/", "https://coordinator.example:port/"},
    };
    for (const auto& [url, inside] : rows) {
        EXPECT_EQ(KeychainStore::pythonServiceName(url),
                  "VarnixCompute Worker (" + std::string(inside) + ")")
            << url;
    }
}

// The same behaviour, once over the file store and once over a real Secret Service.
class KeychainStoreTest : public ::testing::TestWithParam<std::string> {
  protected:
    static void TearDownTestSuite() { secretService_.reset(); }

    void SetUp() override {
        if (GetParam() == "file") {
            backend_ = std::make_shared<FileCredentialBackend>(dir_ / "varnix/credentials");
        } else {
            if (!secretService_ && skipReason_.empty())
                secretService_ = PrivateSecretService::start(skipReason_);
            if (!secretService_) GTEST_SKIP() << "no private Secret Service: " << skipReason_;
            backend_ = std::make_shared<SecretServiceBackend>();
            // Items of an earlier case in this suite's keyring go first.
            for (const char* account : {"worker_token", "worker_id", "other", "w-1", "w-2"}) {
                backend_->remove(std::string(KeychainStore::legacyService), account);
                backend_->remove(kService, account);
            }
        }
        store_ = std::make_unique<KeychainStore>(backend_);
    }

    static inline std::unique_ptr<PrivateSecretService> secretService_;
    static inline std::string skipReason_;
    testing::ScratchFolder dir_;
    testing::LogCapture logs_;
    std::shared_ptr<CredentialBackend> backend_;
    std::unique_ptr<KeychainStore> store_;
};

TEST_P(KeychainStoreTest, TokenIsOneItemServedFromTheCache) {
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), std::nullopt);
    EXPECT_TRUE(logs_.contains("Keychain read miss/failure for service=" + kService +
                               " account=w-1 status="));
    ASSERT_EQ(backend_->write(kService, "w-1", "first"), 0);
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), "first") << "a miss is not cached";

    EXPECT_EQ(store_->storePythonWorkerToken(kToken, kURL, "w-1"),
              (WorkerTokenKeychainRef{kService, "w-1"}));
    EXPECT_EQ(backend_->itemCount(kService, "w-1"), 1) << "storing again updates the one item";
    KeychainStore restarted(backend_);
    EXPECT_EQ(restarted.pythonWorkerToken(kURL, "w-1"), kToken) << "a restart reads it back";
    backend_->remove(kService, "w-1");
    EXPECT_EQ(store_->pythonWorkerToken("http://coordinator.example:8443/other", "w-1"), kToken)
        << "from the cache";
    EXPECT_EQ(restarted.pythonWorkerToken(kURL, "w-1"), kToken) << "from the cache";
    store_->deleteItem(kService, "w-1");
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), std::nullopt)
        << "a deleted token leaves the cache too";

    store_->write("svc", "acct", std::string("\xC3\x28 bad", 6));
    EXPECT_EQ(store_->read("svc", "acct"), std::nullopt);
    EXPECT_TRUE(
        logs_.contains("Keychain read returned undecodable data for service=svc account=acct"));
}

TEST_P(KeychainStoreTest, DeleteAllClearsLegacyItemsAndTheCacheOnly) {
    store_->storePythonWorkerToken(kToken, kURL, "w-1");
    store_->write(kService, "w-2", "another worker's");
    for (const char* account : {"worker_id", "worker_token", "other"})
        store_->write(KeychainStore::legacyService, account, "x");
    backend_->remove(kService, "w-1");  // now only in the cache
    store_->deleteAll();
    for (const char* account : {"worker_id", "worker_token", "other"})
        EXPECT_EQ(store_->read(account), std::nullopt);
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), std::nullopt) << "the cache was emptied";
    EXPECT_EQ(store_->read(kService, "w-2"), "another worker's") << "token items stay";
    store_->deleteItem(kService, "w-2");
    store_->deleteItem(kService, "w-2");  // gone already: harmless
    EXPECT_EQ(store_->read(kService, "w-2"), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Backends, KeychainStoreTest, ::testing::Values("file", "secret_service"),
                         [](const auto& info) { return info.param; });

mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

TEST(FileCredentialStoreTest, KeepsTheTokenPrivateThroughDamageAndFailedWrites) {
    testing::ScratchFolder dir;
    testing::LogCapture logs;
    auto path = dir / "varnix/credentials";
    auto backend = std::make_shared<FileCredentialBackend>(path);
    ASSERT_EQ(backend->write("s", "a", kToken), 0);
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(modeOf(path.parent_path()), 0700u);
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(backend->read("s", "a").data, kToken);
    EXPECT_EQ(modeOf(path), 0600u) << "a widened mode is narrowed again";
    EXPECT_EQ(readFile(path)->find(kToken), std::string::npos) << "not in the clear";

    // A truncated file: reads fail, the next write keeps the damaged copy aside.
    writeFileAtomically(path, R"({"version": 1, "items": [{"service": "s", "acc)", 0600);
    EXPECT_EQ(backend->read("s", "a").status, EBADMSG);
    ASSERT_EQ(backend->write("s2", "a2", "v"), 0);
    EXPECT_TRUE(std::filesystem::exists(path.string() + ".damaged"));
    EXPECT_EQ(backend->read("s2", "a2").data, "v");

    // A failed write throws without the token and keeps serving the cached one.
    KeychainStore store(backend);
    store.storePythonWorkerToken("old-token", kURL, "w-1");
    std::filesystem::rename(dir / "varnix", dir / "moved");
    dir.write("varnix", "a file where the folder was");
    try {
        store.storePythonWorkerToken(kToken, kURL, "w-1");
        ADD_FAILURE() << "the write should have failed";
    } catch (const KeychainWriteError& error) {
        EXPECT_EQ(std::string(error.what()),
                  "Keyring write failed (OSStatus " + std::to_string(error.status()) + ")");
        EXPECT_NE(error.status(), 0);
    }
    EXPECT_EQ(store.pythonWorkerToken(kURL, "w-1"), "old-token");
    for (const auto& line : logs.lines()) EXPECT_EQ(line.find("SECRET"), std::string::npos) << line;
}

TEST(CredentialBackendChoiceTest, WithoutASessionBusTheFileStoreIsChosenAndSaysWhy) {
    ScopedBusAddress noBus(nullptr);
    testing::LogCapture logs;
    auto backend = chooseCredentialBackend();
    EXPECT_NE(dynamic_cast<FileCredentialBackend*>(backend.get()), nullptr);
    EXPECT_TRUE(logs.contains("Credential store: file "));
    EXPECT_TRUE(logs.contains("(no D-Bus session (DBUS_SESSION_BUS_ADDRESS is unset))"));

    ScopedBusAddress deadBus("unix:path=/nonexistent/corvane-bus");
    EXPECT_FALSE(SecretServiceBackend::probe(true).usable) << "a dead address fails fast";
}

}  // namespace
}  // namespace corvane
