#include "tools/dev-coordinator/DevCoordinator.h"

#include <pthread.h>
#include <signal.h>

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"
#include "tools/dev-coordinator/ByteRange.h"
#include "tools/dev-coordinator/ConnectionShutdown.h"

namespace corvane::dev {

namespace {

constexpr size_t audioChunkBytes = 64 * 1024;
constexpr size_t requestBodyLimit = 64 * 1024 * 1024;

void answerJSON(httplib::Response& response, int status, const nlohmann::json& body) {
    response.status = status;
    response.set_content(body.dump(), "application/json");
}

void answerDetail(httplib::Response& response, int status, const std::string& detail) {
    answerJSON(response, status, {{"detail", detail}});
}

// "max_shards": absent means one; anything but a positive decimal is refused.
std::optional<size_t> maxShards(const httplib::Request& request) {
    if (!request.has_param("max_shards")) return 1;
    const std::string text = request.get_param_value("max_shards");
    size_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value == 0) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> shardParam(const httplib::Request& request) {
    if (!request.has_param("shard_id")) return std::nullopt;
    return request.get_param_value("shard_id");
}

std::string audioContentType(const std::filesystem::path& name) {
    static const std::map<std::string, std::string> types = {
        {".wav", "audio/wav"}, {".mp3", "audio/mpeg"}, {".flac", "audio/flac"},
        {".ogg", "audio/ogg"}, {".m4a", "audio/mp4"},  {".opus", "audio/ogg"},
    };
    auto it = types.find(corvane::asciiLowercased(name.extension().string()));
    return it == types.end() ? "application/octet-stream" : it->second;
}

// A plain file name: no folders, nothing hidden behind "..".
bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::pair<std::string, std::string> splitTarget(const std::string& target) {
    auto mark = target.find('?');
    if (mark == std::string::npos) return {target, ""};
    return {target.substr(0, mark), target.substr(mark + 1)};
}

}  // namespace

DevCoordinator::DevCoordinator(Options options)
    : host_(std::move(options.host)),
      audioDir_(std::move(options.audioDir)),
      token_(std::move(options.token)),
      suggestedMaxShards_(options.suggestedMaxShards),
      enrollmentToken_(std::move(options.enrollmentToken)),
      routes_{
          {"GET", PathPattern("/api/v1/workers/poll"), true, &DevCoordinator::handlePoll},
          {"POST", PathPattern("/api/v1/jobs/{}/heartbeat"), true,
           &DevCoordinator::handleHeartbeat},
          {"POST", PathPattern("/api/v1/jobs/{}/result"), true, &DevCoordinator::handleResult},
          {"POST", PathPattern("/api/v1/jobs/{}/fail"), true, &DevCoordinator::handleFail},
          {"GET", PathPattern("/audio/{}"), false, &DevCoordinator::handleAudio},
          {"POST", PathPattern("/api/v1/workers/register"), false, &DevCoordinator::handleRegister},
          {"PUT", PathPattern("/api/v1/workers/me/payout-prefs"), true,
           &DevCoordinator::handlePutPayoutPrefs},
          {"GET", PathPattern("/api/v1/workers/me/dashboard"), true,
           &DevCoordinator::handleDashboard},
          {"GET", PathPattern("/api/v1/workers/me/payout-methods"), true,
           &DevCoordinator::handleListPayoutMethods},
          {"POST", PathPattern("/api/v1/workers/me/payout-methods"), true,
           &DevCoordinator::handleAddPayoutMethod},
          {"PUT", PathPattern("/api/v1/workers/me/payout-methods/{}/primary"), true,
           &DevCoordinator::handleSetPrimaryPayoutMethod},
          {"DELETE", PathPattern("/api/v1/workers/me/payout-methods/{}"), true,
           &DevCoordinator::handleRemovePayoutMethod},
          {"GET", PathPattern("/api/v1/workers/me/earnings/summary"), true,
           &DevCoordinator::handleEarningsSummary},
          {"GET", PathPattern("/api/v1/workers/me/earnings/daily"), true,
           &DevCoordinator::handleNoHistory},
          {"GET", PathPattern("/api/v1/workers/me/earnings/by-hour"), true,
           &DevCoordinator::handleNoHourlyEarnings},
          {"GET", PathPattern("/api/v1/workers/me/jobs/top"), true,
           &DevCoordinator::handleNoHistory},
      },
      server_(std::make_unique<httplib::Server>()) {
    for (ShardSpec& spec : options.shards) book_.add(std::move(spec));

    // Ranges are ours to answer (the library would apply them to every answer, scripted or
    // not), so the parsed ones are dropped before routing. The Request is the library's own
    // non-const object, handed to this hook as const.
    server_->set_pre_routing_handler([](const httplib::Request& request, httplib::Response&) {
        const_cast<httplib::Request&>(request).ranges.clear();
        return httplib::Server::HandlerResponse::Unhandled;
    });
    auto entry = [this](const httplib::Request& request, httplib::Response& response) {
        serve(request, response);
    };
    server_->Get(".*", entry);
    server_->Post(".*", entry);
    server_->Put(".*", entry);
    server_->Patch(".*", entry);
    server_->Delete(".*", entry);
    // One request per connection: an idle kept-alive connection would hold a server thread,
    // and with it the destructor, for the whole keep-alive time.
    server_->set_keep_alive_max_count(1);
    server_->set_keep_alive_timeout(1);
    server_->set_payload_max_length(requestBodyLimit);

    port_ = options.port == 0 ? server_->bind_to_any_port(host_)
                              : (server_->bind_to_port(host_, options.port) ? options.port : -1);
    if (port_ <= 0) {
        throw std::runtime_error("cannot listen on " + host_ + ":" + std::to_string(options.port));
    }
    auto listenEnded = std::make_shared<std::atomic<bool>>(false);
    listener_ = std::thread([this, listenEnded] {
        // Writing to a client that went away must fail the write, not kill the process. The
        // server's worker threads start from this one and inherit the mask.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        server_->listen_after_bind();
        listenEnded->store(true);
    });
    // The socket already accepts connections; waiting for the accept loop makes stop() reliable.
    while (!server_->is_running() && !listenEnded->load()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!server_->is_running()) {
        listener_.join();
        throw std::runtime_error("cannot serve on " + host_ + ":" + std::to_string(port_));
    }
    log::get("DevCoordinator")->info("listening on {}", baseURL());
}

DevCoordinator::~DevCoordinator() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    signal_.notify_all();
    server_->stop();
    listener_.join();
}

std::string DevCoordinator::baseURL() const {
    const bool anyAddress = host_ == "0.0.0.0" || host_ == "::" || host_.empty();
    return "http://" + (anyAddress ? std::string("127.0.0.1") : host_) + ":" +
           std::to_string(port_);
}

void DevCoordinator::addShard(ShardSpec spec) {
    std::lock_guard lock(mutex_);
    book_.add(std::move(spec));
    noteChange();
}

void DevCoordinator::enqueueReply(std::string pathPrefix, ScriptedReply reply) {
    std::lock_guard lock(mutex_);
    scripted_[std::move(pathPrefix)].push_back(std::move(reply));
}

void DevCoordinator::setAudioFaults(AudioFaults faults) {
    std::lock_guard lock(mutex_);
    audioFaults_ = std::move(faults);
}

std::vector<RecordedRequest> DevCoordinator::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<ResultRecord> DevCoordinator::results() const {
    std::lock_guard lock(mutex_);
    return results_;
}

std::vector<FailureRecord> DevCoordinator::failures() const {
    std::lock_guard lock(mutex_);
    return failures_;
}

std::vector<HeartbeatRecord> DevCoordinator::heartbeats() const {
    std::lock_guard lock(mutex_);
    return heartbeats_;
}

size_t DevCoordinator::pendingShardCount() const {
    std::lock_guard lock(mutex_);
    return book_.pendingCount();
}

bool DevCoordinator::waitUntil(std::function<bool(const DevCoordinator&)> predicate,
                               std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        unsigned long seen = 0;
        {
            std::lock_guard lock(mutex_);
            seen = changes_;
        }
        if (predicate(*this)) return true;
        std::unique_lock lock(mutex_);
        if (!signal_.wait_until(lock, deadline, [&] { return changes_ != seen || stopping_; })) {
            lock.unlock();
            return predicate(*this);
        }
        if (stopping_) return false;
    }
}

void DevCoordinator::noteChange() {
    ++changes_;
    signal_.notify_all();
}

bool DevCoordinator::waitUnlessStopping(double seconds) {
    std::unique_lock lock(mutex_);
    auto duration = std::chrono::duration<double>(seconds);
    return !signal_.wait_for(lock, duration, [&] { return stopping_; });
}

bool DevCoordinator::authorised(const httplib::Request& request) const {
    return request.get_header_value("Authorization") == "Bearer " + token_;
}

void DevCoordinator::record(const httplib::Request& request) {
    RecordedRequest recorded;
    recorded.method = request.method;
    std::tie(recorded.path, recorded.query) = splitTarget(request.target);
    for (const auto& [name, value] : request.headers) {
        auto [it, inserted] = recorded.headers.emplace(corvane::asciiLowercased(name), value);
        if (!inserted) it->second += ", " + value;
    }
    recorded.body = request.body;
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(recorded));
    noteChange();
}

std::optional<ScriptedReply> DevCoordinator::takeScriptedReply(const std::string& rawPath) {
    std::lock_guard lock(mutex_);
    auto best = scripted_.end();
    for (auto it = scripted_.begin(); it != scripted_.end(); ++it) {
        if (it->second.empty() || !rawPath.starts_with(it->first)) continue;
        if (best == scripted_.end() || it->first.size() > best->first.size()) best = it;
    }
    if (best == scripted_.end()) return std::nullopt;
    ScriptedReply reply = std::move(best->second.front());
    best->second.pop_front();
    return reply;
}

void DevCoordinator::serve(const httplib::Request& request, httplib::Response& response) {
    record(request);
    const std::string rawPath = splitTarget(request.target).first;
    std::string outcome;
    if (auto scripted = takeScriptedReply(rawPath); scripted && !scripted->dropAfterHandling) {
        outcome = play(*scripted, request, response);
    } else {
        const std::string method = request.method == "HEAD" ? "GET" : request.method;
        const Route* route = nullptr;
        std::optional<std::string> placeholder;
        for (const Route& candidate : routes_) {
            if (candidate.method != method) continue;
            placeholder = candidate.pattern.match(request.path);
            if (placeholder) {
                route = &candidate;
                break;
            }
        }
        if (!route) {
            answerDetail(response, 404, "Not Found");
        } else if (route->needsToken && !authorised(request)) {
            answerDetail(response, 401, "Invalid or missing worker token");
        } else {
            (this->*route->handler)(request, response, *placeholder);
        }
        outcome = std::to_string(response.status);
        if (scripted) {
            shutdownConnection(request.local_port, request.remote_port);
            outcome += ", closed without reply (scripted)";
        }
    }
    log::get("DevCoordinator")->info("{} {} -> {}", request.method, request.target, outcome);
}

std::string DevCoordinator::play(const ScriptedReply& reply, const httplib::Request& request,
                                 httplib::Response& response) {
    if (reply.delaySeconds > 0 && !waitUnlessStopping(reply.delaySeconds)) {
        shutdownConnection(request.local_port, request.remote_port);
        return "closed without reply (stopping)";
    }
    if (reply.closeWithoutReply) {
        shutdownConnection(request.local_port, request.remote_port);
        return "closed without reply (scripted)";
    }
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers) response.set_header(name, value);
    if (!reply.dropMidBody) {
        response.set_content(reply.body, reply.contentType);
        return std::to_string(reply.status) + " (scripted)";
    }
    // Announce the whole body (at least one byte, so there is something to miss), send half.
    const size_t announced = std::max<size_t>(reply.body.size(), 1);
    const size_t sent = reply.body.size() / 2;
    response.set_content_provider(
        announced, reply.contentType,
        [body = reply.body, sent](size_t offset, size_t, httplib::DataSink& sink) {
            if (offset < sent) sink.write(body.data() + offset, sent - offset);
            return false;
        });
    return std::to_string(reply.status) + " (scripted, dropped after " + std::to_string(sent) +
           " bytes)";
}

void DevCoordinator::handlePoll(const httplib::Request& request, httplib::Response& response,
                                const std::string&) {
    auto limit = maxShards(request);
    if (!limit) {
        answerDetail(response, 422, "max_shards must be a positive integer");
        return;
    }
    std::vector<ShardSpec> claimed;
    {
        std::lock_guard lock(mutex_);
        claimed = book_.claim(*limit, request.get_header_value("X-Worker-ID"));
        noteChange();
    }
    if (suggestedMaxShards_) {
        response.set_header("X-Suggested-Max-Shards", std::to_string(*suggestedMaxShards_));
    }
    if (claimed.empty()) {
        response.status = 204;
        return;
    }
    nlohmann::json items = nlohmann::json::array();
    for (const ShardSpec& spec : claimed) {
        ShardClaim claim;
        claim.jobID = spec.jobID;
        claim.jobType = spec.jobType;
        claim.audioURL = baseURL() + "/audio/" + http::percentEncodePath(spec.audioFile);
        claim.shardID = spec.shardID;
        claim.startSeconds = spec.startSeconds;
        claim.endSeconds = spec.endSeconds;
        claim.modelIdentifier = spec.modelIdentifier;
        items.push_back(claim.encode());
    }
    answerJSON(response, 200, {{"items", std::move(items)}});
}

void DevCoordinator::handleHeartbeat(const httplib::Request& request, httplib::Response& response,
                                     const std::string& jobID) {
    handleJobReport(request, response, jobID, ReportKind::heartbeat);
}

void DevCoordinator::handleResult(const httplib::Request& request, httplib::Response& response,
                                  const std::string& jobID) {
    handleJobReport(request, response, jobID, ReportKind::result);
}

void DevCoordinator::handleFail(const httplib::Request& request, httplib::Response& response,
                                const std::string& jobID) {
    handleJobReport(request, response, jobID, ReportKind::fail);
}

void DevCoordinator::handleJobReport(const httplib::Request& request, httplib::Response& response,
                                     const std::string& jobID, ReportKind kind) {
    const std::optional<std::string> shardID = shardParam(request);
    const std::string workerID = request.get_header_value("X-Worker-ID");

    nlohmann::json body;
    if (kind != ReportKind::heartbeat) {
        body = nlohmann::json::parse(request.body, nullptr, /*allow_exceptions=*/false);
        if (!body.is_object()) {
            answerDetail(response, 422, "The report body is not a JSON object");
            return;
        }
        if (kind == ReportKind::fail && !(body.contains("error") && body["error"].is_string())) {
            answerDetail(response, 422, "The failure report needs an \"error\" string");
            return;
        }
    }

    ShardBook::Standing standing;
    {
        std::lock_guard lock(mutex_);
        if (kind == ReportKind::heartbeat) {
            standing = book_.standing(jobID, shardID, workerID);
            if (standing == ShardBook::Standing::held) heartbeats_.push_back({jobID, shardID});
        } else {
            standing = book_.end(jobID, shardID, workerID);
            if (standing != ShardBook::Standing::notHeld) {
                if (kind == ReportKind::result) {
                    results_.push_back({jobID, shardID, body});
                } else {
                    failures_.push_back({jobID, shardID, body["error"].get<std::string>()});
                }
            }
        }
        noteChange();
    }
    // What the worker reported is what a developer running by hand wants to read.
    if (kind != ReportKind::heartbeat && standing != ShardBook::Standing::notHeld) {
        log::get("DevCoordinator")
            ->info("{} of job {}{}: {}", kind == ReportKind::result ? "result" : "failure", jobID,
                   shardID ? " shard " + *shardID : "",
                   kind == ReportKind::result
                       ? body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                       : body["error"].get<std::string>());
    }
    if (standing == ShardBook::Standing::held) {
        answerJSON(response, 200, {{"ok", true}});
    } else if (standing == ShardBook::Standing::alreadyEnded && kind != ReportKind::heartbeat) {
        answerDetail(response, 409, "Shard already ended");
    } else {
        answerDetail(response, 404, "Job not found or not owned by this worker");
    }
}

void DevCoordinator::handleAudio(const httplib::Request& request, httplib::Response& response,
                                 const std::string& name) {
    AudioFaults faults;
    {
        std::lock_guard lock(mutex_);
        faults = audioFaults_;
    }
    if (!isPlainFileName(name)) {
        answerDetail(response, 404, "Audio file not found");
        return;
    }
    const std::filesystem::path path = audioDir_ / name;
    std::uint64_t size = 0;
    if (faults.replaceBody) {
        size = faults.replaceBody->size();
    } else {
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) {
            answerDetail(response, 404, "Audio file not found");
            return;
        }
        size = std::filesystem::file_size(path, error);
        if (error) {
            answerDetail(response, 404, "Audio file not found");
            return;
        }
    }

    std::optional<std::string> rangeHeader;
    if (!faults.ignoreRange && request.has_header("Range")) {
        rangeHeader = request.get_header_value("Range");
    }
    const RangeRequest range = resolveRange(rangeHeader, size);
    response.set_header("Accept-Ranges", "bytes");
    if (range.kind == RangeRequest::Kind::unsatisfiable) {
        response.status = 416;
        response.set_header("Content-Range", unsatisfiedRangeValue(size));
        return;
    }
    const bool partial = range.kind == RangeRequest::Kind::part;
    const std::uint64_t first = partial ? range.range.first : 0;
    const std::uint64_t length = partial ? range.range.length() : size;
    response.status = partial ? 206 : 200;
    if (partial) response.set_header("Content-Range", contentRangeValue(range.range, size));
    const std::string type = audioContentType(name);
    if (length == 0) {
        response.set_content("", type);
        return;
    }

    // The body streams from the file (or the replacement) in chunks; a drop fault stops the
    // stream after its byte count, which closes the connection short of the announced length.
    const std::uint64_t limit =
        std::min<std::uint64_t>(length, faults.dropAfterBytes.value_or(length));
    auto file = std::make_shared<std::ifstream>();
    response.set_content_provider(
        length, type,
        [file, path, first, limit, replacement = faults.replaceBody](size_t offset, size_t wanted,
                                                                     httplib::DataSink& sink) {
            if (offset >= limit) return false;
            const size_t count = static_cast<size_t>(
                std::min<std::uint64_t>({wanted, audioChunkBytes, limit - offset}));
            if (replacement) return sink.write(replacement->data() + first + offset, count);
            if (!file->is_open()) {
                file->open(path, std::ios::binary);
                if (!*file) return false;
            }
            std::string chunk(count, '\0');
            file->seekg(static_cast<std::streamoff>(first + offset));
            if (!file->read(chunk.data(), static_cast<std::streamsize>(count))) return false;
            return sink.write(chunk.data(), count);
        });
}

}  // namespace corvane::dev
