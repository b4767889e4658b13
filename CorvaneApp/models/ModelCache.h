#pragma once
// Puts single-file model weights on disk, resumably, and publishes each model's state. Any thread
// may call it; transfers run on their own tasks, one per model however many callers wait.

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

#include "CorvaneApp/models/CacheError.h"
#include "CorvaneApp/models/ModelCacheRegistry.h"
#include "CorvaneApp/models/ModelSpec.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/EventStream.h"
#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/platform/Task.h"

namespace corvane {

struct CacheLoadResult {
    bool hit = false;  // the file was there before the call
    double loadSeconds = 0;
};

class ModelCache {
  public:
    struct State {
        struct Downloading {
            std::uint64_t bytesDownloaded = 0;
            std::optional<std::uint64_t> totalBytes;
            bool operator==(const Downloading&) const = default;
        };
        struct Ready {
            std::filesystem::path fileURL;
            bool operator==(const Ready&) const = default;
        };
        struct Failed {
            std::exception_ptr error;
            std::string description;  // the error's text
            bool operator==(const Failed& other) const { return description == other.description; }
        };
        struct NotDownloaded {
            bool operator==(const NotDownloaded&) const = default;
        };
        std::variant<Downloading, Ready, Failed, NotDownloaded> value;
        bool operator==(const State&) const = default;
    };
    struct StateChange {
        ModelIdentifier identifier;
        State state;
    };

    // Starts the transfer of one model; tests hold the body back to run it when they choose.
    using TaskStarter = std::function<TaskHandle(Task::Body)>;

    struct Dependencies {
        std::filesystem::path rootDirectory = defaultRootDirectory();
        // Used for the whole transfer of large files: give it no whole-transfer time limit.
        std::shared_ptr<const http::Session> session;
        ModelCacheRegistry registry;
        NowFunction now = systemNow;
        TaskStarter startTask = [](Task::Body body) { return Task::start(std::move(body)); };
    };

    // The caller's view of one transfer, shared by everyone who asked for the same model.
    class Pending {
      public:
        // Blocks until the transfer ends and returns the file, or throws its error. `stop` ends
        // this wait only (with CacheError::cancelled); the transfer goes on for the others.
        std::filesystem::path wait(std::stop_token stop = {}) const;
        bool isFinished() const;

      private:
        friend class ModelCache;
        struct Outcome;
        explicit Pending(std::shared_ptr<Outcome> outcome) : outcome_(std::move(outcome)) {}
        std::shared_ptr<Outcome> outcome_;
    };

    explicit ModelCache(Dependencies dependencies);
    // Cancels the transfers still running and waits for them; their partial files stay.
    ~ModelCache();
    ModelCache(const ModelCache&) = delete;
    ModelCache& operator=(const ModelCache&) = delete;

    // $XDG_DATA_HOME/VarnixCompute/models, or $CORVANE_MODEL_DIR when set: a prepared folder of
    // weights (the generated test model, say) then stands in for the download.
    static std::filesystem::path defaultRootDirectory();

    // Returns at once: finished when the file is on disk already, else joined to the model's
    // transfer, which starts now if none runs.
    Pending startCaching(const ModelSpec& spec);
    // The file of the model, downloading it first when needed. Throws CacheError, or the
    // transport's error when the connection fails (the partial file then stays for a resume).
    std::filesystem::path ensureCached(const ModelSpec& spec, std::stop_token stop = {});
    std::pair<std::filesystem::path, CacheLoadResult> ensureCachedWithTiming(
        const ModelSpec& spec, std::stop_token stop = {});

    // Presence at the final path is the whole proof: only a finished transfer puts a file there.
    bool isCached(const ModelIdentifier& identifier) const;
    std::optional<std::filesystem::path> cachedFileURL(const ModelIdentifier& identifier) const;

    // Deletes the model's file and any partial file, returning the bytes of the former (0 for a
    // model the registry doesn't know). A running transfer isn't stopped. Throws CacheError.
    std::uint64_t remove(const ModelIdentifier& identifier);
    // Removes every registry model; a failure is logged and the rest go on.
    std::uint64_t removeAll();

    // Absent for a model no call has touched; readers treat that as not downloaded.
    std::optional<State> state(const ModelIdentifier& identifier) const;
    // Every change of `state`, in order, for one reader; unbounded, nothing is dropped.
    EventStream<StateChange>& stateStream() { return stateStream_; }

    const ModelCacheRegistry& registry() const { return registry_; }
    std::filesystem::path modelDirectory(const ModelIdentifier& identifier) const;

  private:
    struct InFlight {
        std::shared_ptr<Pending::Outcome> outcome;
        TaskHandle task;
    };

    std::filesystem::path finalPath(const ModelSpec& spec) const;
    void runTransfer(const ModelSpec& spec, const std::shared_ptr<Pending::Outcome>& outcome,
                     std::stop_token stop);
    std::filesystem::path download(const ModelSpec& spec, std::stop_token stop);
    void setState(const ModelIdentifier& identifier, State state);
    void setStateLocked(const ModelIdentifier& identifier, State state);

    const std::filesystem::path rootDirectory_;
    const std::shared_ptr<const http::Session> session_;
    const ModelCacheRegistry registry_;
    const NowFunction now_;
    const TaskStarter startTask_;

    mutable std::mutex mutex_;                                // never held across I/O
    std::unordered_map<ModelIdentifier, State> state_;        // guarded by mutex_
    std::unordered_map<ModelIdentifier, InFlight> inFlight_;  // guarded by mutex_
    EventStream<StateChange> stateStream_;
};

}  // namespace corvane
