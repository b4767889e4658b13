#include "SpeechEngine/DownloadUtils.h"

#include <sys/utsname.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <fstream>
#include <system_error>
#include <thread>

#include <nlohmann/json.hpp>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"
#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/HuggingFaceDownloadError.h"

namespace speech {
namespace fs = std::filesystem;
namespace http = corvane::http;

namespace {

using corvane::TemporaryFile;

// A model folder may hold a directory where a file now belongs (a layout that changed upstream):
// it goes, then the file takes its place.
void placeFile(TemporaryFile& file, const fs::path& destination) {
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(destination, error))) fs::remove_all(destination);
    file.moveTo(destination);
}

constexpr int maxListingDepth = 16;  // a tree deeper than any model folder is a broken listing

bool isSuccess(long status) {
    return status >= 200 && status <= 299;
}
bool isRateLimit(long status) {
    return status == 429 || status == 503;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& n : names) text += (text.empty() ? "" : ", ") + n;
    return text;
}

bool looksLikeHTML(const std::string& body) {
    auto start = body.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) return false;
    const std::string head = corvane::asciiLowercased(body.substr(start, 15));
    return head.starts_with("<!doctype html") || head.starts_with("<html");
}

// A listed path must stay inside the repository folder.
bool isSafeRelativePath(const std::string& path) {
    if (path.empty() || path.front() == '/') return false;
    for (const auto& part : fs::path(path)) {
        if (part == ".." || part == ".") return false;
    }
    return true;
}

std::string stripPrefix(const std::string& path, const std::optional<std::string>& subPath) {
    if (!subPath || subPath->empty()) return path;
    std::string prefix = *subPath + "/";
    return path.starts_with(prefix) ? path.substr(prefix.size()) : path;
}

bool isModelFolderName(const std::string& name) {
    return name.ends_with(".mlmodelc");
}

bool directoryIsNeeded(const std::string& path, const std::vector<std::string>& required) {
    return std::any_of(required.begin(), required.end(), [&](const std::string& name) {
        return isModelFolderName(name) &&
               (path == name || path.starts_with(name + "/") || name.starts_with(path + "/"));
    });
}

bool fileIsNeeded(const std::string& path, const std::vector<std::string>& required) {
    bool topLevel = path.find('/') == std::string::npos;
    std::string fileName = fs::path(path).filename().string();
    for (const auto& name : required) {
        if (isModelFolderName(name) && path.starts_with(name + "/")) return true;
        if (path == name || fileName == name) return true;
    }
    if (topLevel && (path.ends_with(".json") || path.ends_with(".txt"))) return true;
    return path.ends_with(".model") || path.ends_with(".bin");
}

bool fileIsPresent(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error) && fs::file_size(path, error) > 0 && !error;
}

[[noreturn]] void rethrowTransport(const http::TransportError& error) {
    if (error.kind() == http::TransportError::Kind::cancelled) throw CancellationError();
    throw error;
}

}  // namespace

http::SessionConfig DownloadUtils::sessionConfig() {
    http::SessionConfig config;
    config.requestTimeoutSeconds = requestTimeoutSeconds;
    config.resourceTimeoutSeconds = 0;
    return config;
}

DownloadUtils::DownloadUtils(const http::Session& session, const NeuralRuntime& runtime,
                             EnvironmentLookup environment, corvane::SleepProvider& sleeper,
                             std::string repoOwner)
    : session_(session),
      runtime_(runtime),
      environment_(std::move(environment)),
      sleeper_(sleeper),
      repoOwner_(std::move(repoOwner)),
      registry_(environment_),
      logger_(corvane::log::get("DownloadUtils")) {}

std::optional<std::string> DownloadUtils::huggingFaceToken() const {
    if (!environment_) return std::nullopt;
    for (const char* name : {"HF_TOKEN", "HUGGING_FACE_HUB_TOKEN", "HUGGINGFACEHUB_API_TOKEN"}) {
        auto value = environment_(name);
        if (value && !value->empty()) return value;
    }
    return std::nullopt;
}

http::Request DownloadUtils::makeRequest(const std::string& url) const {
    http::Request request;
    request.url = url;
    request.timeoutSeconds = requestTimeoutSeconds;
    if (auto token = huggingFaceToken()) request.headers.set("Authorization", "Bearer " + *token);
    return request;
}

void DownloadUtils::logSystemInformationOnce() {
    std::call_once(systemInformationLogged_, [this] {
        utsname system{};
        std::string kernel = ::uname(&system) == 0 ? std::string(system.sysname) + " " +
                                                         system.release + " " + system.machine
                                                   : std::string("unknown system");
        logger_->info("System information: {}, {} hardware threads", kernel,
                      std::thread::hardware_concurrency());
    });
}

void DownloadUtils::createDirectoryRobustly(const fs::path& path) const {
    fs::path current;
    for (const auto& part : path) {
        current /= part;
        std::error_code error;
        auto status = fs::symlink_status(current, error);
        if (fs::exists(status) && !fs::is_directory(fs::status(current, error))) {
            logger_->info("Removing file blocking directory creation: {}", current.string());
            fs::remove(current);
        }
        if (!fs::exists(current, error)) fs::create_directory(current);
    }
}

std::vector<DownloadUtils::TreeEntry> DownloadUtils::listDirectory(const Repo& repo,
                                                                   const std::string& path,
                                                                   std::stop_token stop) {
    std::string tree = path.empty() ? "tree/main" : "tree/main/" + path;
    http::Response response;
    try {
        response = session_.send(
            makeRequest(registry_.apiModels(repo.remotePath(repoOwner_), tree)), stop);
    } catch (const http::TransportError& error) {
        rethrowTransport(error);
    }
    if (isRateLimit(response.status)) {
        throw HuggingFaceDownloadError::rateLimited(
            path.empty() ? "Rate limited while listing files"
                         : "Rate limited while listing files in " + path);
    }
    if (!isSuccess(response.status)) throw HuggingFaceDownloadError::invalidResponse();
    if (looksLikeHTML(response.body)) {
        throw HuggingFaceDownloadError::htmlInsteadOfJSON(
            path.empty() ? repo.remotePath(repoOwner_) : path, response.body.substr(0, 200));
    }

    std::vector<TreeEntry> entries;
    try {
        auto document = nlohmann::json::parse(response.body);
        if (!document.is_array()) throw HuggingFaceDownloadError::invalidResponse();
        for (const auto& item : document) {
            if (!item.is_object() || !item.contains("path") || !item["path"].is_string() ||
                !item.contains("type") || !item["type"].is_string()) {
                throw HuggingFaceDownloadError::invalidResponse();
            }
            TreeEntry entry{item["path"].get<std::string>(), item["type"].get<std::string>(), 0};
            if (item.contains("size")) {
                if (!item["size"].is_number_unsigned())
                    throw HuggingFaceDownloadError::invalidResponse();
                entry.size = item["size"].get<std::uint64_t>();
            }
            if (!isSafeRelativePath(entry.path)) throw HuggingFaceDownloadError::invalidResponse();
            entries.push_back(std::move(entry));
        }
    } catch (const nlohmann::json::exception&) {
        throw HuggingFaceDownloadError::invalidResponse();
    }
    return entries;
}

void DownloadUtils::walk(const Repo& repo, const std::string& path,
                         const std::vector<std::string>& required, std::vector<TreeEntry>& files,
                         int depth, std::stop_token stop) {
    if (depth > maxListingDepth) throw HuggingFaceDownloadError::invalidResponse();
    for (auto& entry : listDirectory(repo, path, stop)) {
        checkCancellation(stop);
        std::string relative = stripPrefix(entry.path, repo.subPath());
        if (entry.type == "directory") {
            if (directoryIsNeeded(relative, required))
                walk(repo, entry.path, required, files, depth + 1, stop);
        } else if (entry.type == "file") {
            if (fileIsNeeded(relative, required)) files.push_back(std::move(entry));
        }
    }
}

std::vector<DownloadUtils::TreeEntry> DownloadUtils::listRepoFiles(const Repo& repo,
                                                                   std::stop_token stop) {
    std::vector<TreeEntry> files;
    walk(repo, repo.subPath().value_or(""), repo.requiredModelNames(), files, 0, stop);
    return files;
}

DownloadUtils::DownloadedFile DownloadUtils::downloadWithProgress(
    const http::Request& request, const fs::path& temporaryFolder,
    const std::function<void(std::uint64_t, std::optional<std::uint64_t>)>& onProgress,
    std::stop_token stop) {
    DownloadedFile result{TemporaryFile(temporaryFolder, ".download.partial-"), 0, {}};
    int writeError = 0;
    http::StreamCallbacks callbacks;
    callbacks.onData = [&](std::string_view chunk) {
        if (result.file.write(chunk)) return true;
        writeError = errno;
        return false;
    };
    callbacks.onProgress = onProgress;
    http::Response response;
    try {
        response = session_.stream(request, callbacks, stop);
    } catch (const http::TransportError& error) {
        if (error.kind() == http::TransportError::Kind::writeFailed && writeError != 0) {
            throw std::system_error(writeError, std::generic_category(),
                                    "cannot write " + result.file.path().string());
        }
        rethrowTransport(error);
    }
    result.status = response.status;
    result.headers = std::move(response.headers);
    return result;
}

void DownloadUtils::downloadRepo(const Repo& repo, const fs::path& directory,
                                 const DownloadProgressHandler& progress, std::stop_token stop) {
    logger_->info("Downloading {} from HuggingFace...", repo.name());
    fs::path folder = directory / repo.folderName();
    createDirectoryRobustly(folder);
    if (progress) progress({0.0, DownloadProgress::Phase::listing});

    auto files = listRepoFiles(repo, stop);
    logger_->info("Found {} files to download", files.size());

    std::uint64_t totalBytes = 0;
    for (const auto& f : files) totalBytes += f.size;
    std::uint64_t doneBytes = 0;
    auto report = [&](std::uint64_t current) {
        if (progress && totalBytes > 0) {
            double fraction = static_cast<double>(std::min(doneBytes + current, totalBytes)) /
                              static_cast<double>(totalBytes);
            progress({fraction * 0.5, DownloadProgress::Phase::downloading});
        }
    };

    for (const auto& entry : files) {
        checkCancellation(stop);
        std::string relative = stripPrefix(entry.path, repo.subPath());
        fs::path destination = folder / relative;
        if (fileIsPresent(destination)) {
            doneBytes += entry.size;
            report(0);
            continue;
        }
        createDirectoryRobustly(destination.parent_path());
        if (entry.size == 0) {
            TemporaryFile empty(destination.parent_path(),
                                "." + destination.filename().string() + ".partial-");
            placeFile(empty, destination);
            continue;
        }
        auto request = makeRequest(registry_.resolveModel(repo.remotePath(repoOwner_), entry.path));
        auto downloaded = downloadWithProgress(
            request, destination.parent_path(),
            [&](std::uint64_t received, std::optional<std::uint64_t>) { report(received); }, stop);
        if (isRateLimit(downloaded.status)) {
            throw HuggingFaceDownloadError::rateLimited("Rate limited while downloading " +
                                                        relative);
        }
        if (!isSuccess(downloaded.status)) throw HTTPStatusError(downloaded.status);
        // A body shorter or longer than the listing says is a broken transfer, not a model file.
        if (downloaded.file.bytesWritten() != entry.size)
            throw HuggingFaceDownloadError::downloadFailed(relative);
        placeFile(downloaded.file, destination);
        doneBytes += entry.size;
        report(0);
    }

    for (const auto& name : repo.requiredModelNames()) {
        std::error_code error;
        if (!fs::exists(folder / name, error))
            throw HuggingFaceDownloadError::modelNotFound((folder / name).string());
    }
    logger_->info("Downloaded all required models for {}", repo.name());
}

DownloadUtils::LoadedModels DownloadUtils::loadModelsOnce(
    const Repo& repo, const std::vector<std::string>& modelNames, const fs::path& directory,
    ComputeUnits computeUnits, const DownloadProgressHandler& progress, std::stop_token stop) {
    fs::path folder = directory / repo.folderName();
    auto required = repo.requiredModelNames();
    bool complete = std::all_of(required.begin(), required.end(), [&](const std::string& name) {
        std::error_code error;
        return fs::exists(folder / name, error);
    });
    if (complete) {
        logger_->info("Found {} locally, no download needed", joined(required));
    } else {
        logger_->info("Models not found in cache at {}", folder.string());
        downloadRepo(repo, directory, progress, stop);
    }
    if (progress) progress({0.5, DownloadProgress::Phase::compiling});

    LoadedModels models;
    ModelConfiguration configuration;
    configuration.computeUnits = computeUnits;
    for (std::size_t i = 0; i < modelNames.size(); ++i) {
        checkCancellation(stop);
        const auto& name = modelNames[i];
        fs::path path = folder / name;
        std::error_code error;
        if (!fs::exists(path, error)) throw HuggingFaceDownloadError::modelNotFound(path.string());
        if (!fs::is_directory(path, error))
            throw ModelLoadError("Model path is not a directory: " + path.string());
        if (!fs::exists(path / "coremldata.bin", error))
            throw ModelLoadError("Missing coremldata.bin in " + path.string());

        auto started = std::chrono::steady_clock::now();
        models[name] = runtime_.load(path, configuration);
        double milliseconds =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started)
                .count();
        logger_->info("{} in {:.2f} ms :: compute units {}", name, milliseconds,
                      speech::name(computeUnits));
        if (progress) {
            progress(
                {static_cast<double>(i + 1) * 0.5 / static_cast<double>(modelNames.size()) + 0.5,
                 DownloadProgress::Phase::compiling});
        }
    }
    if (progress) progress({1.0, DownloadProgress::Phase::compiling});
    return models;
}

DownloadUtils::LoadedModels DownloadUtils::loadModels(
    const Repo& repo, const std::vector<std::string>& modelNames, const fs::path& directory,
    ComputeUnits computeUnits, const DownloadProgressHandler& progress, std::stop_token stop) {
    logSystemInformationOnce();
    try {
        return loadModelsOnce(repo, modelNames, directory, computeUnits, progress, stop);
    } catch (const CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        if (stop.stop_requested()) throw CancellationError();
        logger_->error("First load failed: {}", error.what());
        logger_->info("Deleting cache and re-downloading…");
    }

    fs::path folder = directory / repo.folderName();
    std::error_code error;
    bool existed = fs::exists(fs::symlink_status(folder, error));
    if (existed) {
        fs::remove_all(folder, error);
        if (!error) {
            logger_->info("Successfully deleted corrupted cache at {}", folder.string());
        } else if (error != std::errc::no_such_file_or_directory) {
            logger_->error("Failed to delete cache: {}", error.message());
            logger_->info("Will attempt to overwrite during re-download");
        }
    }
    return loadModelsOnce(repo, modelNames, directory, computeUnits, progress, stop);
}

std::string DownloadUtils::fetchHuggingFaceFile(const std::string& url,
                                                const std::string& description, int maxAttempts,
                                                double minBackoff, std::stop_token stop) {
    maxAttempts = std::max(1, maxAttempts);
    for (int attempt = 1;; ++attempt) {
        try {
            http::Response response;
            try {
                response = session_.send(makeRequest(url), stop);
            } catch (const http::TransportError& error) {
                rethrowTransport(error);
            }
            if (isRateLimit(response.status)) {
                throw HuggingFaceDownloadError::rateLimited("Rate limited while downloading " +
                                                            description);
            }
            if (!isSuccess(response.status)) throw HTTPStatusError(response.status);
            return std::move(response.body);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            if (attempt >= maxAttempts) throw;
            double wait = minBackoff * std::pow(2.0, attempt - 1);
            logger_->info("Download attempt {} for {} failed: {}. Retrying in {:.1f}s...", attempt,
                          description, error.what(), wait);
            if (!sleeper_.sleep(wait, stop)) throw CancellationError();
        }
    }
}

}  // namespace speech
