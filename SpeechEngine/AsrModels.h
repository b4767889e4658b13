#pragma once
// The networks and vocabulary that make one recogniser, and the operations that find, fetch and
// load them for a model version.

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>

#include "SpeechEngine/AsrModelVersion.h"
#include "SpeechEngine/DownloadUtils.h"
#include "SpeechEngine/ModelConfiguration.h"
#include "SpeechEngine/NeuralModel.h"
#include "SpeechEngine/Vocabulary.h"

namespace speech {

struct AsrModels {
    using Model = std::shared_ptr<const NeuralModel>;

    Model encoder;  // null when the preprocessor holds the encoder
    Model preprocessor;
    Model decoder;
    Model joint;
    Model ctcHead;  // unused by the recogniser
    ModelConfiguration configuration;
    std::shared_ptr<const Vocabulary> vocabulary = std::make_shared<Vocabulary>();
    AsrModelVersion version = AsrModelVersion::v2;

    bool usesSplitFrontend() const { return encoder != nullptr; }

    static ModelConfiguration defaultConfiguration();
    // "CI" in the environment keeps everything on the CPU.
    static ModelConfiguration optimizedConfiguration(bool enableFP16,
                                                     const EnvironmentLookup& environment);

    // The folder a version's files lie in: next to `directory`, named after the repository
    // without "-coreml". For v2 that is <parent>/parakeet-tdt-0.6b-v2.
    static std::filesystem::path modelFolder(const std::filesystem::path& directory,
                                             AsrModelVersion version);

    // True when the version's networks and vocabulary all exist; nothing is opened.
    static bool modelsExist(const std::filesystem::path& directory, AsrModelVersion version);
    // The version is taken from the path's folder names; v3 when none matches.
    static bool modelsExist(const std::filesystem::path& directory);
    static AsrModelVersion versionForPath(const std::filesystem::path& directory);

    // Fetches what is missing and proves every network loads; returns the version's folder.
    static std::filesystem::path download(DownloadUtils& downloads,
                                          const std::filesystem::path& directory, bool force,
                                          AsrModelVersion version,
                                          const DownloadProgressHandler& progress = {},
                                          std::stop_token stop = {});
    // Loads the version's networks (fetching them if needed, with one recovery) and vocabulary.
    static AsrModels load(DownloadUtils& downloads, const std::filesystem::path& directory,
                          std::optional<ModelConfiguration> configuration, AsrModelVersion version,
                          const DownloadProgressHandler& progress = {}, std::stop_token stop = {});
    // Loads what is on disk, and never fetches: absent files throw AsrModelsError::modelNotFound.
    static AsrModels loadFromCache(DownloadUtils& downloads, const std::filesystem::path& directory,
                                   AsrModelVersion version, std::stop_token stop = {});
    // Loads; when that fails, fetches the whole set again (force) and loads once more.
    static AsrModels loadWithAutoRecovery(DownloadUtils& downloads,
                                          const std::filesystem::path& directory,
                                          AsrModelVersion version, std::stop_token stop = {});
    // download() then load().
    static AsrModels downloadAndLoad(DownloadUtils& downloads,
                                     const std::filesystem::path& directory,
                                     AsrModelVersion version,
                                     const DownloadProgressHandler& progress = {},
                                     std::stop_token stop = {});
    // Whether the version's files in `directory` are present and load; failures are logged.
    static bool isModelValid(DownloadUtils& downloads, const std::filesystem::path& directory,
                             AsrModelVersion version);
};

}  // namespace speech
