#include "CorvaneApp/models/ModelCache.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneApp/models/FileDigest.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Paths.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

struct ModelCache::Pending::Outcome {
    mutable std::mutex mutex;
    mutable std::condition_variable_any finished;
    bool done = false;           // guarded by mutex
    std::filesystem::path file;  // guarded by mutex
    std::exception_ptr error;    // guarded by mutex

    void finish(std::filesystem::path result, std::exception_ptr failure) {
        {
            std::lock_guard lock(mutex);
            done = true;
            file = std::move(result);
            error = std::move(failure);
        }
        finished.notify_all();
    }
};

namespace {

constexpr size_t bufferBytes = 65536;

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

std::optional<std::uint64_t> contentLength(const http::Headers& headers) {
    auto value = headers.find("Content-Length");
    if (!value) return std::nullopt;
    std::uint64_t length = 0;
    auto [end, error] = std::from_chars(value->data(), value->data() + value->size(), length);
    if (error != std::errc{} || end != value->data() + value->size()) return std::nullopt;
    return length;
}

// The open ".partial" file: appends through a 64 KiB buffer, closed on every way out.
class PartialFile {
  public:
    explicit PartialFile(std::filesystem::path path) : path_(std::move(path)) {}
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    ~PartialFile() {
        if (fd_ >= 0) ::close(fd_);
    }

    bool open() {
        fd_ = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (fd_ >= 0) buffer_.reserve(bufferBytes);
        return fd_ >= 0;
    }
    bool isOpen() const { return fd_ >= 0; }
    bool truncate() { return ::ftruncate(fd_, 0) == 0; }

    // Buffers `chunk`; returns the bytes written to disk by this call (0 while buffering), or
    // absent when the write failed.
    std::optional<size_t> append(std::string_view chunk) {
        buffer_.append(chunk);
        if (buffer_.size() < bufferBytes) return 0;
        return flush();
    }
    std::optional<size_t> flush() {
        size_t total = buffer_.size();
        std::string_view rest = buffer_;
        while (!rest.empty()) {
            ssize_t written = ::write(fd_, rest.data(), rest.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) {
                lastError_ = written < 0 ? errno : EIO;
                return std::nullopt;
            }
            rest.remove_prefix(static_cast<size_t>(written));
        }
        buffer_.clear();
        return total;
    }
    // Flushes, syncs and closes; false when any of it failed.
    bool finish() {
        bool ok = flush().has_value();
        if (ok && ::fsync(fd_) != 0) {
            lastError_ = errno;
            ok = false;
        }
        if (::close(std::exchange(fd_, -1)) != 0 && ok) {
            lastError_ = errno;
            ok = false;
        }
        return ok;
    }
    int lastError() const { return lastError_; }

  private:
    std::filesystem::path path_;
    int fd_ = -1;
    std::string buffer_;
    int lastError_ = 0;
};

}  // namespace

std::filesystem::path ModelCache::Pending::wait(std::stop_token stop) const {
    std::unique_lock lock(outcome_->mutex);
    if (!outcome_->finished.wait(lock, stop, [this] { return outcome_->done; }))
        throw CacheError::cancelled();
    if (outcome_->error) std::rethrow_exception(outcome_->error);
    return outcome_->file;
}

bool ModelCache::Pending::isFinished() const {
    std::lock_guard lock(outcome_->mutex);
    return outcome_->done;
}

ModelCache::ModelCache(Dependencies dependencies)
    : rootDirectory_(std::move(dependencies.rootDirectory)),
      session_(std::move(dependencies.session)),
      registry_(std::move(dependencies.registry)),
      now_(std::move(dependencies.now)),
      startTask_(std::move(dependencies.startTask)) {
    if (!session_) throw std::invalid_argument("ModelCache needs an HTTP session");
}

ModelCache::~ModelCache() {
    std::unordered_map<ModelIdentifier, InFlight> running;
    {
        std::lock_guard lock(mutex_);
        running.swap(inFlight_);
    }
    for (auto& [identifier, entry] : running) {
        if (entry.task) entry.task->cancel();
    }
    for (auto& [identifier, entry] : running) {
        if (entry.task) entry.task->join();
    }
    stateStream_.close();
}

std::filesystem::path ModelCache::defaultRootDirectory() {
    if (const char* prepared = std::getenv("CORVANE_MODEL_DIR"); prepared && *prepared)
        return prepared;
    return paths::dataHome() / "VarnixCompute" / "models";
}

std::filesystem::path ModelCache::modelDirectory(const ModelIdentifier& identifier) const {
    return rootDirectory_ /
           (identifier.backend + "--" + identifier.model + "--" + identifier.version);
}

std::filesystem::path ModelCache::finalPath(const ModelSpec& spec) const {
    return modelDirectory(spec.identifier) / spec.filename;
}

ModelCache::Pending ModelCache::startCaching(const ModelSpec& spec) {
    auto target = finalPath(spec);
    std::error_code ignored;
    std::unique_lock lock(mutex_);
    if (std::filesystem::exists(target, ignored)) {
        setStateLocked(spec.identifier, State{State::Ready{target}});
        auto outcome = std::make_shared<Pending::Outcome>();
        outcome->done = true;
        outcome->file = target;
        return Pending(outcome);
    }
    if (auto running = inFlight_.find(spec.identifier); running != inFlight_.end()) {
        return Pending(running->second.outcome);
    }
    auto outcome = std::make_shared<Pending::Outcome>();
    auto& entry = inFlight_[spec.identifier];
    entry.outcome = outcome;
    // The starter may run the body before returning; the entry exists by then, and the body
    // takes the lock only after this function has released it.
    lock.unlock();
    TaskHandle task;
    try {
        task = startTask_(
            [this, spec, outcome](std::stop_token stop) { runTransfer(spec, outcome, stop); });
    } catch (...) {
        // No transfer runs: let the next call start one, and tell every waiter why.
        lock.lock();
        if (auto entry = inFlight_.find(spec.identifier);
            entry != inFlight_.end() && entry->second.outcome == outcome) {
            inFlight_.erase(entry);
        }
        lock.unlock();
        outcome->finish({}, std::current_exception());
        throw;
    }
    lock.lock();
    if (auto running = inFlight_.find(spec.identifier);
        running != inFlight_.end() && running->second.outcome == outcome) {
        running->second.task = std::move(task);
    }
    return Pending(outcome);
}

std::filesystem::path ModelCache::ensureCached(const ModelSpec& spec, std::stop_token stop) {
    return startCaching(spec).wait(stop);
}

std::pair<std::filesystem::path, CacheLoadResult> ModelCache::ensureCachedWithTiming(
    const ModelSpec& spec, std::stop_token stop) {
    bool hit = isCached(spec.identifier);
    Date start = now_();
    auto file = ensureCached(spec, stop);
    return {file, CacheLoadResult{hit, secondsBetween(start, now_())}};
}

void ModelCache::runTransfer(const ModelSpec& spec,
                             const std::shared_ptr<Pending::Outcome>& outcome,
                             std::stop_token stop) {
    std::filesystem::path file;
    std::exception_ptr error;
    try {
        file = download(spec, stop);
    } catch (...) {
        error = std::current_exception();
    }
    TaskHandle self;  // dropped after the lock, on this thread, which detaches it
    {
        std::lock_guard lock(mutex_);
        if (error) {
            setStateLocked(spec.identifier, State{State::Failed{error, describe(error)}});
        } else {
            setStateLocked(spec.identifier, State{State::Ready{file}});
        }
        if (auto entry = inFlight_.find(spec.identifier);
            entry != inFlight_.end() && entry->second.outcome == outcome) {
            self = std::move(entry->second.task);
            inFlight_.erase(entry);
        }
    }
    // From here on the cache may already be gone: touch only the shared outcome.
    outcome->finish(std::move(file), error);
}

std::filesystem::path ModelCache::download(const ModelSpec& spec, std::stop_token stop) {
    auto logger = log::get("ModelCache");
    const auto directory = modelDirectory(spec.identifier);
    const auto target = directory / spec.filename;
    const auto partialPath = directory / (spec.filename + ".partial");
    auto ioError = [&](const std::filesystem::path& path, int error) {
        logger->error("{}: {}", path.string(), std::generic_category().message(error));
        return CacheError::ioError(path.string());
    };

    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (failure) throw ioError(directory, failure.value());

    std::uint64_t offset = 0;
    struct stat attributes {};
    if (::stat(partialPath.c_str(), &attributes) == 0) {
        offset = static_cast<std::uint64_t>(attributes.st_size);
    } else {
        int fd = ::open(partialPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0) throw ioError(partialPath, errno);
        ::close(fd);
    }
    setState(spec.identifier, State{State::Downloading{offset, spec.expectedSizeBytes}});

    http::Request request;
    request.url = spec.downloadURL;
    request.timeoutSeconds = 60.0;
    if (offset > 0) request.headers.add("Range", "bytes=" + std::to_string(offset) + "-");
    if (registry_.hub().token && registry_.hub().isHubURL(spec.downloadURL)) {
        request.headers.add("Authorization", "Bearer " + *registry_.hub().token);
    }

    PartialFile partial(partialPath);
    long status = 0;
    std::optional<CacheError> fileError;
    std::uint64_t count = offset;
    std::optional<std::uint64_t> total;
    auto accepted = [&] { return status == 200 || status == 206; };

    http::StreamCallbacks callbacks;
    callbacks.onHeaders = [&](long code, const http::Headers& headers) {
        status = code;
        if (!accepted()) return;
        if (!partial.open()) {
            fileError = ioError(partialPath, errno);
            return;
        }
        if (status == 200 && offset > 0) {
            // The server ignored the range: the whole file follows, so start over.
            if (!partial.truncate()) {
                fileError = ioError(partialPath, errno);
                return;
            }
            offset = 0;
            count = 0;
        }
        auto length = contentLength(headers);
        total = length && *length > 0 ? std::optional(offset + *length) : spec.expectedSizeBytes;
    };
    callbacks.onData = [&](std::string_view chunk) {
        if (!accepted() || fileError) return false;
        auto written = partial.append(chunk);
        if (!written) {
            fileError = ioError(partialPath, partial.lastError());
            return false;
        }
        if (*written > 0) {
            count += *written;
            setState(spec.identifier, State{State::Downloading{count, total}});
        }
        return true;
    };

    try {
        session_->stream(request, callbacks, stop);
    } catch (const http::TransportError& error) {
        if (fileError) throw *fileError;
        if (status != 0 && !accepted()) throw CacheError::httpError(status);
        // What arrived is good data; keeping it makes the next attempt's range start later.
        if (partial.isOpen()) partial.flush();
        if (error.kind() == http::TransportError::Kind::cancelled) throw CacheError::cancelled();
        throw;
    }
    if (fileError) throw *fileError;
    if (status == 0) throw CacheError::httpError(-1);
    if (!accepted()) throw CacheError::httpError(status);
    if (!partial.isOpen() && !partial.open()) throw ioError(partialPath, errno);  // an empty body
    if (!partial.finish()) throw ioError(partialPath, partial.lastError());

    if (spec.sha256) {
        std::string actual;
        try {
            actual = sha256HexOfFile(partialPath);
        } catch (const std::system_error& error) {
            throw ioError(partialPath, error.code().value());
        }
        if (asciiLowercased(*spec.sha256) != asciiLowercased(actual)) {
            std::filesystem::remove(partialPath, failure);  // the next attempt starts from zero
            throw CacheError::sha256Mismatch(*spec.sha256, actual);
        }
    }
    std::filesystem::remove(target, failure);
    if (::rename(partialPath.c_str(), target.c_str()) != 0) throw ioError(target, errno);
    logger->info("Cached model {} at {}", spec.identifier.model, target.string());
    return target;
}

bool ModelCache::isCached(const ModelIdentifier& identifier) const {
    return cachedFileURL(identifier).has_value();
}

std::optional<std::filesystem::path> ModelCache::cachedFileURL(
    const ModelIdentifier& identifier) const {
    auto spec = registry_.spec(identifier);
    if (!spec) return std::nullopt;
    auto file = finalPath(*spec);
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) return std::nullopt;
    return file;
}

std::uint64_t ModelCache::remove(const ModelIdentifier& identifier) {
    auto spec = registry_.spec(identifier);
    if (!spec) return 0;
    auto file = finalPath(*spec);
    std::error_code failure;
    std::uint64_t freed = 0;
    if (std::filesystem::exists(file, failure)) {
        auto size = std::filesystem::file_size(file, failure);
        freed = failure ? 0 : size;
        std::filesystem::remove(file, failure);
        if (failure) {
            log::get("ModelCache")->error("{}: {}", file.string(), failure.message());
            throw CacheError::ioError(file.string());
        }
    }
    std::filesystem::remove(file.string() + ".partial", failure);  // its bytes aren't counted
    setState(identifier, State{State::NotDownloaded{}});
    return freed;
}

std::uint64_t ModelCache::removeAll() {
    std::uint64_t freed = 0;
    for (const auto& spec : registry_.all()) {
        try {
            freed += remove(spec.identifier);
        } catch (const std::exception& error) {
            log::get("ModelCache")
                ->error("ModelCache.removeAll: failed to remove {}: {}", spec.identifier.model,
                        error.what());
        }
    }
    return freed;
}

std::optional<ModelCache::State> ModelCache::state(const ModelIdentifier& identifier) const {
    std::lock_guard lock(mutex_);
    auto found = state_.find(identifier);
    if (found == state_.end()) return std::nullopt;
    return found->second;
}

void ModelCache::setState(const ModelIdentifier& identifier, State state) {
    std::lock_guard lock(mutex_);
    setStateLocked(identifier, std::move(state));
}

void ModelCache::setStateLocked(const ModelIdentifier& identifier, State state) {
    state_.insert_or_assign(identifier, state);
    stateStream_.push(StateChange{identifier, std::move(state)});
}

}  // namespace corvane
