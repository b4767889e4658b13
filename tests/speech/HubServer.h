#pragma once
// A small model hub on 127.0.0.1 for the downloader's tests: serves the tree listing and the
// files of repositories kept in a local folder, records every request, and fails on demand.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "SpeechEngine/DownloadUtils.h"
#include "tests/speech/SpeechTestSupport.h"
#include "tests/support/ManualSleeper.h"

namespace httplib {
class Server;
}

namespace speech::testing {

class HubServer {
  public:
    struct Request {
        std::string path;
        std::optional<std::string> authorization;
    };

    // Serves repositories found under `root` as root/<owner>/<name>/...
    explicit HubServer(std::filesystem::path root);
    ~HubServer();
    HubServer(const HubServer&) = delete;
    HubServer& operator=(const HubServer&) = delete;

    std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

    // Fault switches.
    void answerListings(int status, std::string body = "");  // every listing answers this
    void failFile(const std::string& path, int status);      // the file at this repo path
    // Sends the first `bytes` of the file, then drops the connection or ends the body cleanly.
    void cutFile(const std::string& path, std::size_t bytes, bool dropConnection);
    void clearFaults();

    std::vector<Request> requests() const;
    std::size_t fileRequests() const;  // resolve requests only
    void clearRequests();

  private:
    struct Faults {
        std::optional<std::pair<int, std::string>> listing;
        std::map<std::string, int> fileStatus;
        std::map<std::string, std::pair<std::size_t, bool>> cut;  // bytes, drop the connection
    };

    std::filesystem::path root_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    std::atomic<bool> stopped_{false};
    int port_ = 0;
    mutable std::mutex mutex_;
    Faults faults_;                  // guarded by mutex_
    std::vector<Request> requests_;  // guarded by mutex_
};

// A hub serving dir/hub and a downloader pointed at it; `environment` is what it reads.
class HubTest : public ::testing::Test {
  protected:
    ScratchFolder dir;
    HubServer hub{dir.path() / "hub"};
    std::map<std::string, std::string> environment{{"REGISTRY_URL", hub.baseURL()}};
    corvane::http::Session session{DownloadUtils::sessionConfig()};
    ScriptedRuntime runtime;
    corvane::testing::ManualSleeper sleeper;
    DownloadUtils downloads{session, runtime,
                            [this](const std::string& name) -> std::optional<std::string> {
                                auto it = environment.find(name);
                                if (it == environment.end()) return std::nullopt;
                                return it->second;
                            },
                            sleeper};
};

}  // namespace speech::testing
