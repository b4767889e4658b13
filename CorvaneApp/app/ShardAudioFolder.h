#pragma once
// Corvane's own folder for downloaded shard audio, and the clearing that no one else does for it
// here: a shard's file goes as soon as its terminal report has been sent (a shutdown report
// too), and whatever an earlier run left behind (a crash, a kill) goes before the worker's first
// poll. So the folder holds at most the audio of the shards in flight, plus the one being written.

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/worker/WorkerController.h"

namespace corvane {

class ShardAudioFolder : public std::enable_shared_from_this<ShardAudioFolder> {
  public:
    // The folder cannot be made, or made ours; the text names the folder and the reason.
    class Unavailable : public std::runtime_error {
      public:
        using std::runtime_error::runtime_error;
    };

    static std::shared_ptr<ShardAudioFolder> create(std::filesystem::path directory);
    explicit ShardAudioFolder(std::filesystem::path directory);  // use create()
    ~ShardAudioFolder();
    ShardAudioFolder(const ShardAudioFolder&) = delete;
    ShardAudioFolder& operator=(const ShardAudioFolder&) = delete;

    const std::filesystem::path& directory() const { return directory_; }

    // Makes the folder (and its missing parents) readable by the owner alone, mode 0700, and
    // removes every shard file and folder in it; nothing else there is touched. Call only while
    // no shard of this process is in flight. While another running Corvane uses the folder, its
    // files are left alone. Returns how many entries went; throws Unavailable.
    std::size_t prepare();

    // The worker's materialiser, wrapped: whatever sits at the claim's own file names (a folder
    // made by hand, a file that could not be removed before) is cleared first, and the file made
    // is remembered until the shard's terminal report.
    WorkerController::Materialiser tracking(WorkerController::Materialiser materialise);
    // The worker's client, wrapped: once a result or failure report for a shard has been sent,
    // or has failed, that shard's file is removed.
    std::shared_ptr<WorkerHTTPClientProtocol> clearingAfterReports(
        std::shared_ptr<WorkerHTTPClientProtocol> http);

    // A terminal report for this shard has been sent: its audio is no longer needed.
    void shardReported(const std::string& jobID, const std::optional<std::string>& shardID);

  private:
    using ShardRef = std::pair<std::string, std::optional<std::string>>;  // job, shard
    struct Shard {
        std::optional<std::filesystem::path> file;  // made by a finished download
        int downloading = 0;                        // materialisations under way
        bool reported = false;                      // reported while a download was under way
    };

    ClaimedJob materialise(const WorkerController::Materialiser& inner, const ShardClaim& claim,
                           std::stop_token stop);
    void clearStaleEntriesOf(const ShardClaim& claim);
    void remove(const std::filesystem::path& path) const;
    std::size_t sweep() const;

    const std::filesystem::path directory_;
    std::mutex mutex_;
    std::map<ShardRef, Shard> shards_;  // guarded by mutex_
    int lockFd_ = -1;                   // the folder, held under flock while holdsLock_
    bool holdsLock_ = false;            // only prepare() touches these two, on one sequence
};

}  // namespace corvane
