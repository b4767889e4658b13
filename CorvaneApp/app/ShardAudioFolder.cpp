#include "CorvaneApp/app/ShardAudioFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <system_error>

#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void unavailable(const fs::path& directory, const std::string& reason) {
    throw ShardAudioFolder::Unavailable("Cannot create the shard folder " + directory.string() +
                                        ": " + reason);
}

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

bool isShardEntry(const fs::path& path) {
    return path.filename().string().starts_with(shardAudioPrefix);
}

// Every missing folder on the way is made owner-only, as the base-directory rules ask of a
// cache home. Returns the folder opened, owned by us and at mode 0700.
int openOwnerOnlyFolder(const fs::path& directory) {
    fs::path made;
    for (const auto& part : directory) {
        made /= part;
        if (::mkdir(made.c_str(), 0700) != 0 && errno != EEXIST) {
            const int error = errno;
            unavailable(directory, made == directory
                                       ? errnoText(error)
                                       : errnoText(error) + " (at " + made.string() + ")");
        }
    }
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) unavailable(directory, errnoText(errno));
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        const int error = errno;
        ::close(fd);
        unavailable(directory, errnoText(error));
    }
    // Another user's folder (left by a run under sudo, say) would keep our audio readable to
    // them, or refuse our files.
    if (status.st_uid != ::geteuid()) {
        ::close(fd);
        unavailable(directory, "it belongs to another user");
    }
    if ((status.st_mode & 07777) != 0700 && ::fchmod(fd, 0700) != 0) {
        const int error = errno;
        ::close(fd);
        unavailable(directory, errnoText(error));
    }
    return fd;
}

bool sameFile(int a, int b) {
    struct stat first {
    }, second{};
    return ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// The client the worker is given: every call goes through, and the end of a result or failure
// report, sent or not, frees the shard's audio.
class ReportClearingClient final : public WorkerHTTPClientProtocol {
  public:
    ReportClearingClient(std::shared_ptr<WorkerHTTPClientProtocol> inner,
                         std::shared_ptr<ShardAudioFolder> folder)
        : inner_(std::move(inner)), folder_(std::move(folder)) {}

    std::optional<ShardClaim> poll(const WorkerCapabilities& capabilities,
                                   std::stop_token stop) override {
        return inner_->poll(capabilities, stop);
    }
    PollBatchOutcome pollBatch(const WorkerCapabilities& capabilities, std::int64_t maxShards,
                               std::stop_token stop) override {
        return inner_->pollBatch(capabilities, maxShards, stop);
    }
    void heartbeat(const std::string& jobId, const std::optional<std::string>& shardId,
                   std::stop_token stop) override {
        inner_->heartbeat(jobId, shardId, stop);
    }
    void submitResult(const std::string& jobId, const std::optional<std::string>& shardId,
                      const SubmitResultBody& body, std::stop_token stop) override {
        ReportEnd end{*folder_, jobId, shardId};
        inner_->submitResult(jobId, shardId, body, stop);
    }
    void submitFail(const std::string& jobId, const std::optional<std::string>& shardId,
                    const FailReason& reason, std::stop_token stop) override {
        ReportEnd end{*folder_, jobId, shardId};
        inner_->submitFail(jobId, shardId, reason, stop);
    }

  private:
    struct ReportEnd {
        ShardAudioFolder& folder;
        const std::string& jobID;
        const std::optional<std::string>& shardID;
        ~ReportEnd() { folder.shardReported(jobID, shardID); }
    };

    std::shared_ptr<WorkerHTTPClientProtocol> inner_;
    std::shared_ptr<ShardAudioFolder> folder_;
};

}  // namespace

std::shared_ptr<ShardAudioFolder> ShardAudioFolder::create(std::filesystem::path directory) {
    return std::make_shared<ShardAudioFolder>(std::move(directory));
}

ShardAudioFolder::ShardAudioFolder(std::filesystem::path directory)
    : directory_(std::move(directory)) {}

ShardAudioFolder::~ShardAudioFolder() {
    if (lockFd_ >= 0) ::close(lockFd_);
}

std::size_t ShardAudioFolder::prepare() {
    const int fd = openOwnerOnlyFolder(directory_);
    if (holdsLock_ && sameFile(fd, lockFd_)) {
        ::close(fd);
    } else {
        if (lockFd_ >= 0) ::close(lockFd_);
        lockFd_ = fd;
        holdsLock_ = ::flock(lockFd_, LOCK_EX | LOCK_NB) == 0;
    }
    if (!holdsLock_) {
        log::get("ShardAudioFolder")
            ->info("another Corvane is using {}; its shard files stay", directory_.string());
        return 0;
    }
    return sweep();
}

std::size_t ShardAudioFolder::sweep() const {
    std::size_t removed = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory_, error)) {
        if (!isShardEntry(entry.path())) continue;
        std::error_code failed;
        fs::remove_all(entry.path(), failed);
        if (failed) {
            log::get("ShardAudioFolder")
                ->error("cannot remove leftover shard audio {}: {}", entry.path().string(),
                        failed.message());
        } else {
            ++removed;
        }
    }
    if (removed > 0)
        log::get("ShardAudioFolder")
            ->info("removed {} leftover shard files from {}", removed, directory_.string());
    return removed;
}

WorkerController::Materialiser ShardAudioFolder::tracking(
    WorkerController::Materialiser materialise) {
    return [self = shared_from_this(), inner = std::move(materialise)](const ShardClaim& claim,
                                                                       std::stop_token stop) {
        return self->materialise(inner, claim, stop);
    };
}

std::shared_ptr<WorkerHTTPClientProtocol> ShardAudioFolder::clearingAfterReports(
    std::shared_ptr<WorkerHTTPClientProtocol> http) {
    return std::make_shared<ReportClearingClient>(std::move(http), shared_from_this());
}

ClaimedJob ShardAudioFolder::materialise(const WorkerController::Materialiser& inner,
                                         const ShardClaim& claim, std::stop_token stop) {
    const ShardRef ref{claim.jobID, claim.shardID};
    bool alone = false;
    {
        std::lock_guard lock(mutex_);
        Shard& shard = shards_[ref];
        alone = shard.downloading == 0 && !shard.file;
        ++shard.downloading;
    }
    if (alone) clearStaleEntriesOf(claim);
    // Removed under a running worker: made again owner-only, not by the materialiser's defaults.
    if (std::error_code error; !fs::is_directory(directory_, error)) {
        try {
            ::close(openOwnerOnlyFolder(directory_));
        } catch (const Unavailable&) {
            // The download names the failure.
        }
    }

    std::optional<ClaimedJob> job;
    std::exception_ptr failure;
    try {
        job = inner(claim, stop);
    } catch (...) {
        failure = std::current_exception();
    }
    std::optional<fs::path> unwanted;  // made for a shard that was reported meanwhile
    {
        std::lock_guard lock(mutex_);
        auto it = shards_.find(ref);
        Shard& shard = it->second;
        --shard.downloading;
        if (job) {
            if (shard.reported) {
                unwanted = job->inputPath;
            } else {
                if (shard.file && *shard.file != fs::path(job->inputPath)) unwanted = shard.file;
                shard.file = job->inputPath;
            }
        }
        if (shard.downloading == 0 && (shard.reported || !shard.file)) shards_.erase(it);
    }
    if (unwanted) remove(*unwanted);
    if (failure) std::rethrow_exception(failure);
    return *job;
}

void ShardAudioFolder::shardReported(const std::string& jobID,
                                     const std::optional<std::string>& shardID) {
    std::optional<fs::path> file;
    {
        std::lock_guard lock(mutex_);
        auto it = shards_.find(ShardRef{jobID, shardID});
        if (it == shards_.end()) return;
        file = std::exchange(it->second.file, std::nullopt);
        if (it->second.downloading > 0) {
            it->second.reported = true;  // the download's end removes what it made
        } else {
            shards_.erase(it);
        }
    }
    if (file) remove(*file);
}

void ShardAudioFolder::clearStaleEntriesOf(const ShardClaim& claim) {
    const std::string names = shardAudioStem(claim) + ".";
    std::set<fs::path> inUse;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [ref, shard] : shards_) {
            if (shard.file) inUse.insert(*shard.file);
        }
    }
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory_, error)) {
        if (!entry.path().filename().string().starts_with(names) || inUse.contains(entry.path()))
            continue;
        log::get("ShardAudioFolder")
            ->info("removing {}, found where this shard's audio goes", entry.path().string());
        remove(entry.path());
    }
}

void ShardAudioFolder::remove(const fs::path& path) const {
    std::error_code error;
    fs::remove_all(path, error);
    if (error)
        log::get("ShardAudioFolder")
            ->error("cannot remove shard audio {}: {}", path.string(), error.message());
}

}  // namespace corvane
