// The parts of the configuration that any thread may call: the token cache and user defaults.

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

TEST(ConfigConcurrencyTest, TokenCacheAndDefaultsTakeCallsFromManyThreads) {
    testing::ScratchFolder dir;
    KeychainStore keychain(std::make_shared<FileCredentialBackend>(dir / "credentials"));
    keychain.write(KeychainStore::pythonServiceName("https://c.example"), "w-0", "token-0");
    UserDefaults defaults(dir / "user-defaults.json");

    std::vector<std::jthread> threads;
    std::atomic<int> found{0};
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                // Misses and hits of the same key race; the later write of the same value is
                // harmless.
                if (keychain.pythonWorkerToken("https://c.example", "w-0") == "token-0") ++found;
                if (i == 10)
                    keychain.storePythonWorkerToken("token-" + std::to_string(t),
                                                    "https://c.example",
                                                    "w-" + std::to_string(t + 1));
                defaults.setInteger("counter." + std::to_string(t), i);
                (void)defaults.integer("counter." + std::to_string((t + 1) % 6));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(found.load(), 6 * 20);
    for (int t = 0; t < 6; ++t) {
        EXPECT_EQ(keychain.pythonWorkerToken("https://c.example", "w-" + std::to_string(t + 1)),
                  "token-" + std::to_string(t));
        EXPECT_EQ(UserDefaults(dir / "user-defaults.json").integer("counter." + std::to_string(t)),
                  19);
    }
    keychain.deleteAll();
    EXPECT_EQ(keychain.pythonWorkerToken("https://c.example", "w-0"), "token-0")
        << "read again after the cache is cleared";
}

}  // namespace
}  // namespace corvane
