#include "CorvaneApp/config/KeychainStore.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/SecretServiceBackend.h"
#include "tests/config/ConfigPrivateSecretService.h"
#include "tests/config/ConfigTempDir.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

const std::string kToken = "tok_live_SECRET_1234567890";
const std::string kURL = "https://coordinator.example:8443/api";

TEST(KeychainServiceNameTest, FollowsTheDaemonNaming) {
    const std::pair<const char*, const char*> rows[] = {
        {"https://coordinator.example:8443/api", "VarnixCompute Worker (coordinator.example:8443)"},
        {"https://coordinator.example/api", "VarnixCompute Worker (coordinator.example)"},
        {"https://user:pw@coordinator.example:9/x?y#z", "VarnixCompute Worker (coordinator.example:9)"},
        {"https://[::1]:8080/", "VarnixCompute Worker (::1:8080)"},
        {"https://coordinator.example:/", "VarnixCompute Worker (coordinator.example)"},
        {"not a url", "VarnixCompute Worker (not a url)"},
        {"coordinator.example:8443", "VarnixCompute Worker (coordinator.example:8443)"},
        {"https://coordinator.example:port/", "VarnixCompute Worker (https://coordinator.example:port/)"},
        {"", "VarnixCompute Worker ()"},
    };
    for (const auto& [url, service] : rows) EXPECT_EQ(KeychainStore::pythonServiceName(url), service) << url;
}

// Counts what reaches the real backend underneath, and can refuse writes.
class CountingBackend final : public CredentialBackend {
public:
    explicit CountingBackend(std::shared_ptr<CredentialBackend> inner) : inner_(std::move(inner)) {}
    std::string description() const override { return inner_->description(); }
    CredentialRead read(const std::string& s, const std::string& a) override {
        ++reads;
        return inner_->read(s, a);
    }
    int write(const std::string& s, const std::string& a, const std::string& v) override {
        return failWrites ? failWrites : inner_->write(s, a, v);
    }
    void remove(const std::string& s, const std::string& a) override { inner_->remove(s, a); }
    void removeAllOfService(const std::string& s) override { inner_->removeAllOfService(s); }
    int itemCount(const std::string& s, const std::string& a) override { return inner_->itemCount(s, a); }

    int reads = 0;
    int failWrites = 0;

private:
    std::shared_ptr<CredentialBackend> inner_;
};

// The same behaviour, once over the file store and once over a real Secret Service.
class KeychainStoreTest : public ::testing::TestWithParam<std::string> {
protected:
    static void SetUpTestSuite() {}
    static void TearDownTestSuite() { secretService_.reset(); }

    void SetUp() override {
        std::shared_ptr<CredentialBackend> inner;
        if (GetParam() == "file") {
            inner = std::make_shared<FileCredentialBackend>(dir_ / "varnix/credentials");
        } else {
            if (!secretService_ && skipReason_.empty()) {
                secretService_ = testing::PrivateSecretService::start(skipReason_);
            }
            if (!secretService_) GTEST_SKIP() << "no private Secret Service: " << skipReason_;
            inner = std::make_shared<SecretServiceBackend>();
            // Items of an earlier case in this suite's keyring go first.
            for (const char* account : {"worker_token", "worker_id", "other", "w-1"}) {
                inner->remove(std::string(KeychainStore::legacyService), account);
                inner->remove(KeychainStore::pythonServiceName(kURL), account);
            }
        }
        backend_ = std::make_shared<CountingBackend>(inner);
        store_ = std::make_unique<KeychainStore>(backend_);
    }

    static inline std::unique_ptr<testing::PrivateSecretService> secretService_;
    static inline std::string skipReason_;
    testing::ConfigTempDir dir_;
    testing::LogCapture logs_;
    std::shared_ptr<CountingBackend> backend_;
    std::unique_ptr<KeychainStore> store_;
};

TEST_P(KeychainStoreTest, StoredTokenIsServedFromTheCache) {
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), std::nullopt);
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), std::nullopt);
    EXPECT_EQ(backend_->reads, 2) << "misses are not cached";
    EXPECT_TRUE(logs_.contains("Keychain read miss/failure for service=VarnixCompute Worker (coordinator.example:8443) "
                               "account=w-1 status="));

    auto ref = store_->storePythonWorkerToken(kToken, kURL, "w-1");
    EXPECT_EQ(ref, (WorkerTokenKeychainRef{"VarnixCompute Worker (coordinator.example:8443)", "w-1"}));
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), kToken);
    EXPECT_EQ(store_->pythonWorkerToken("http://coordinator.example:8443/other", "w-1"), kToken);
    EXPECT_EQ(backend_->reads, 2) << "served from the cache";

    // A second store instance (a restart) reads it back from the backend once.
    KeychainStore restarted(backend_);
    EXPECT_EQ(restarted.pythonWorkerToken(kURL, "w-1"), kToken);
    EXPECT_EQ(restarted.pythonWorkerToken(kURL, "w-1"), kToken);
    EXPECT_EQ(backend_->reads, 3);
}

TEST_P(KeychainStoreTest, StoringTwiceUpdatesTheOneItem) {
    store_->storePythonWorkerToken("first", kURL, "w-1");
    store_->storePythonWorkerToken(kToken, kURL, "w-1");
    EXPECT_EQ(backend_->itemCount(KeychainStore::pythonServiceName(kURL), "w-1"), 1);
    EXPECT_EQ(store_->read(KeychainStore::pythonServiceName(kURL), "w-1"), kToken);
}

TEST_P(KeychainStoreTest, DeleteAllClearsLegacyItemsAndTheCacheOnly) {
    store_->storePythonWorkerToken(kToken, kURL, "w-1");
    store_->write(KeychainStore::legacyService, "worker_id", "display-id");
    store_->write(KeychainStore::legacyService, "worker_token", "legacy");
    store_->write(KeychainStore::legacyService, "other", "x");
    EXPECT_EQ(store_->read("worker_id"), "display-id");
    int readsBefore = backend_->reads;

    store_->deleteAll();
    for (const char* account : {"worker_id", "worker_token", "other"}) {
        EXPECT_EQ(store_->read(account), std::nullopt) << account;
    }
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), kToken) << "the token item stays";
    EXPECT_EQ(backend_->reads, readsBefore + 4) << "the cache was emptied";

    store_->deleteItem(KeychainStore::pythonServiceName(kURL), "w-1");
    store_->deleteItem(KeychainStore::pythonServiceName(kURL), "w-1");  // gone already: harmless
    EXPECT_EQ(store_->read(KeychainStore::pythonServiceName(kURL), "w-1"), std::nullopt);
    EXPECT_EQ(store_->read("never-written"), std::nullopt);
}

TEST_P(KeychainStoreTest, FailedWriteThrowsWithoutTheTokenAndKeepsTheCache) {
    store_->storePythonWorkerToken("old-token", kURL, "w-1");
    backend_->failWrites = EACCES;
    try {
        store_->storePythonWorkerToken(kToken, kURL, "w-1");
        ADD_FAILURE() << "the write should have failed";
    } catch (const KeychainWriteError& error) {
        EXPECT_EQ(std::string(error.what()), "Keyring write failed (OSStatus 13)");
    }
    EXPECT_EQ(store_->pythonWorkerToken(kURL, "w-1"), "old-token");
    for (const auto& line : logs_.lines()) EXPECT_EQ(line.find("SECRET"), std::string::npos) << line;
}

TEST_P(KeychainStoreTest, UndecodableDataReadsAsAbsent) {
    store_->write("svc", "acct", std::string("\xC3\x28 bad", 6));
    EXPECT_EQ(store_->read("svc", "acct"), std::nullopt);
    EXPECT_TRUE(logs_.contains("Keychain read returned undecodable data for service=svc account=acct"));
    store_->write("svc", "acct", "caf\xC3\xA9");
    EXPECT_EQ(store_->read("svc", "acct"), "caf\xC3\xA9");
    store_->deleteItem("svc", "acct");
}

INSTANTIATE_TEST_SUITE_P(Backends, KeychainStoreTest, ::testing::Values("file", "secret_service"),
                         [](const auto& info) { return info.param; });

TEST(FileCredentialBackendTest, KeepsTheFilePrivateAndSurvivesDamage) {
    testing::ConfigTempDir dir;
    testing::LogCapture logs;
    auto path = dir / "varnix/credentials";
    FileCredentialBackend backend(path);
    ASSERT_EQ(backend.write("s", "a", kToken), 0);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(path.parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(backend.read("s", "a").data, kToken);
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << "a widened mode is narrowed again";

    // A truncated file: reads fail, the next write keeps the damaged copy aside.
    writeFileAtomically(path, R"({"version": 1, "items": [{"service": "s", "acc)", 0600);
    EXPECT_EQ(backend.read("s", "a").status, EBADMSG);
    ASSERT_EQ(backend.write("s2", "a2", "v"), 0);
    EXPECT_TRUE(std::filesystem::exists(path.string() + ".damaged"));
    EXPECT_EQ(backend.read("s2", "a2").data, "v");
    for (const auto& line : logs.lines()) EXPECT_EQ(line.find(kToken), std::string::npos) << line;
    EXPECT_EQ(readFile(path)->find(kToken), std::string::npos) << "not in the clear either";

    // Duplicates left by another writer are healed on the next write.
    writeFileAtomically(path, R"({"items": [{"service": "s", "account": "a", "secret": "MQ=="},
                                            {"service": "s", "account": "a", "secret": "Mg=="},
                                            {"service": "s", "account": "b", "secret": "not base64!"}]})", 0600);
    EXPECT_EQ(backend.read("s", "a").data, "1");
    EXPECT_EQ(backend.read("s", "b").status, EBADMSG);
    ASSERT_EQ(backend.write("s", "a", "new"), 0);
    EXPECT_EQ(backend.itemCount("s", "a"), 1);

    // A folder that can't be made is a write error, not a crash.
    dir.write("blocker", "x");
    FileCredentialBackend blocked(dir / "blocker/credentials");
    EXPECT_NE(blocked.write("s", "a", "v"), 0);
}

TEST(CredentialBackendChoiceTest, WithoutASessionBusTheFileStoreIsChosenAndSaysWhy) {
    const char* saved = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    std::optional<std::string> previous = saved ? std::optional<std::string>(saved) : std::nullopt;
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    testing::LogCapture logs;
    auto probe = SecretServiceBackend::probe(false);
    EXPECT_FALSE(probe.usable);
    EXPECT_EQ(probe.reason, "no D-Bus session (DBUS_SESSION_BUS_ADDRESS is unset)");
    auto backend = chooseCredentialBackend();
    EXPECT_NE(dynamic_cast<FileCredentialBackend*>(backend.get()), nullptr);
    EXPECT_TRUE(logs.contains("Credential store: file "));
    EXPECT_TRUE(logs.contains("(no D-Bus session (DBUS_SESSION_BUS_ADDRESS is unset))"));

    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/corvane-bus", 1);
    EXPECT_FALSE(SecretServiceBackend::probe(true).usable) << "a dead address fails fast";
    if (previous) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", previous->c_str(), 1);
    } else {
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
}

}  // namespace
}  // namespace corvane
