#pragma once
// Fetches a model repository from the hub into a local folder, one file after the other, and
// proves that each network in it loads. A failed load deletes the folder and fetches it again,
// once.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/platform/TemporaryFile.h"
#include "SpeechEngine/Environment.h"
#include "SpeechEngine/ModelConfiguration.h"
#include "SpeechEngine/ModelRegistry.h"
#include "SpeechEngine/NeuralRuntime.h"
#include "SpeechEngine/Repo.h"

namespace spdlog {
class logger;
}

namespace speech {

struct DownloadProgress {
    enum class Phase { listing, downloading, compiling };
    double fractionCompleted = 0;  // 0 to 0.5 while fetching, 0.5 to 1.0 while loading
    Phase phase = Phase::listing;
};
using DownloadProgressHandler = std::function<void(const DownloadProgress&)>;

class DownloadUtils {
  public:
    using LoadedModels = std::map<std::string, std::shared_ptr<const NeuralModel>>;

    // One entry of the hub's tree listing.
    struct TreeEntry {
        std::string path;
        std::string type;  // "file" or "directory"
        std::uint64_t size = 0;
    };

    // A finished transfer: the body in a temporary file next to its destination, and the reply.
    struct DownloadedFile {
        corvane::TemporaryFile file;
        long status = 0;
        corvane::http::Headers headers;
    };

    static constexpr double requestTimeoutSeconds = 1800.0;
    // What the session given to the constructor should be made with: long silences allowed, no
    // limit on a whole transfer.
    static corvane::http::SessionConfig sessionConfig();

    // Every reference must outlive this object. `repoOwner` is the hub account of the repositories.
    DownloadUtils(const corvane::http::Session& session, const NeuralRuntime& runtime,
                  EnvironmentLookup environment, corvane::SleepProvider& sleeper,
                  std::string repoOwner = Repo::defaultOwner);

    ModelRegistry& registry() { return registry_; }
    const NeuralRuntime& runtime() const { return runtime_; }

    // The first of "HF_TOKEN", "HUGGING_FACE_HUB_TOKEN", "HUGGINGFACEHUB_API_TOKEN" that is set,
    // read on every call and never kept.
    std::optional<std::string> huggingFaceToken() const;

    // Loads `modelNames` from directory/<folder of repo>, fetching the repository first when any
    // of its files is missing. On failure the folder is deleted and the whole thing runs once more.
    LoadedModels loadModels(const Repo& repo, const std::vector<std::string>& modelNames,
                            const std::filesystem::path& directory, ComputeUnits computeUnits,
                            const DownloadProgressHandler& progress = {},
                            std::stop_token stop = {});
    // The same without the second attempt.
    LoadedModels loadModelsOnce(const Repo& repo, const std::vector<std::string>& modelNames,
                                const std::filesystem::path& directory, ComputeUnits computeUnits,
                                const DownloadProgressHandler& progress = {},
                                std::stop_token stop = {});

    // Fetches the files of `repo` that the model set needs into directory/<folder of repo>,
    // skipping files already present and non-empty. Nothing is retried here.
    void downloadRepo(const Repo& repo, const std::filesystem::path& directory,
                      const DownloadProgressHandler& progress = {}, std::stop_token stop = {});

    // Streams the body of `request` into a temporary file in `temporaryFolder`.
    DownloadedFile downloadWithProgress(
        const corvane::http::Request& request, const std::filesystem::path& temporaryFolder,
        const std::function<void(std::uint64_t received, std::optional<std::uint64_t> total)>&
            onProgress = {},
        std::stop_token stop = {});

    // Fetches a small file into memory, trying up to `maxAttempts` times with waits that double
    // from `minBackoff` seconds.
    std::string fetchHuggingFaceFile(const std::string& url, const std::string& description,
                                     int maxAttempts = 4, double minBackoff = 1.0,
                                     std::stop_token stop = {});

    // The files of `repo` to fetch: the tree walked from its sub-path, keeping what the model set
    // needs. Throws HuggingFaceDownloadError for rate limits, HTML pages and malformed listings.
    std::vector<TreeEntry> listRepoFiles(const Repo& repo, std::stop_token stop = {});

    // Creates `path` and its parents, removing any file that stands where a folder must be.
    void createDirectoryRobustly(const std::filesystem::path& path) const;

  private:
    corvane::http::Request makeRequest(const std::string& url) const;
    std::vector<TreeEntry> listDirectory(const Repo& repo, const std::string& path,
                                         std::stop_token stop);
    void walk(const Repo& repo, const std::string& path, const std::vector<std::string>& required,
              std::vector<TreeEntry>& files, int depth, std::stop_token stop);
    void logSystemInformationOnce();

    const corvane::http::Session& session_;
    const NeuralRuntime& runtime_;
    EnvironmentLookup environment_;
    corvane::SleepProvider& sleeper_;
    std::string repoOwner_;
    ModelRegistry registry_;
    std::shared_ptr<spdlog::logger> logger_;
    std::once_flag systemInformationLogged_;
};

}  // namespace speech
