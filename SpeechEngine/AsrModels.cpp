#include "SpeechEngine/AsrModels.h"

#include <algorithm>
#include <cctype>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"
#include "SpeechEngine/AsrModelsError.h"
#include "SpeechEngine/Cancellation.h"

namespace speech {
namespace fs = std::filesystem;

namespace {

std::vector<std::string> networkNames(const AsrModelFiles& files) {
    std::vector<std::string> names{files.preprocessor};
    if (files.encoder) names.push_back(*files.encoder);
    names.push_back(files.decoder);
    names.push_back(files.joint);
    return names;
}

AsrModels::Model take(DownloadUtils::LoadedModels& models, const std::string& name) {
    auto it = models.find(name);
    return it == models.end() ? nullptr : it->second;
}

}  // namespace

ModelConfiguration AsrModels::defaultConfiguration() {
    return ModelConfiguration{ComputeUnits::cpuAndNeuralEngine, true};
}

ModelConfiguration AsrModels::optimizedConfiguration(bool enableFP16,
                                                     const EnvironmentLookup& environment) {
    ModelConfiguration configuration{ComputeUnits::cpuAndNeuralEngine, enableFP16};
    if (environment && environment("CI")) configuration.computeUnits = ComputeUnits::cpuOnly;
    return configuration;
}

fs::path AsrModels::modelFolder(const fs::path& directory, AsrModelVersion version) {
    fs::path given = directory.has_filename() ? directory : directory.parent_path();
    return given.parent_path() / repoFor(version).folderName();
}

bool AsrModels::modelsExist(const fs::path& directory, AsrModelVersion version) {
    auto files = modelFiles(version);
    fs::path folder = modelFolder(directory, version);
    auto names = networkNames(files);
    names.push_back(files.vocabulary);
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        std::error_code error;
        return fs::exists(folder / name, error);
    });
}

AsrModelVersion AsrModels::versionForPath(const fs::path& directory) {
    const std::string path = corvane::asciiLowercased(directory.string());
    for (auto version : {AsrModelVersion::tdtCtc110m, AsrModelVersion::v2, AsrModelVersion::v3,
                         AsrModelVersion::tdtJa}) {
        if (path.find(repoFor(version).folderName()) != std::string::npos) return version;
    }
    return AsrModelVersion::v3;
}

bool AsrModels::modelsExist(const fs::path& directory) {
    return modelsExist(directory, versionForPath(directory));
}

fs::path AsrModels::download(DownloadUtils& downloads, const fs::path& directory, bool force,
                             AsrModelVersion version, const DownloadProgressHandler& progress,
                             std::stop_token stop) {
    if (version == AsrModelVersion::ctcZhCn) {
        throw AsrModelsError::downloadFailed(
            ".ctcZhCn must be downloaded via its dedicated model class (e.g., CtcZhCnModels)");
    }
    corvane::log::get("AsrModels")->info("Downloading ASR models to: {}", directory.string());
    fs::path folder = modelFolder(directory, version);
    if (force) {
        std::error_code error;
        fs::remove_all(folder, error);
        if (error)
            throw AsrModelsError::downloadFailed("cannot delete " + folder.string() + ": " +
                                                 error.message());
    } else if (modelsExist(directory, version)) {
        corvane::log::get("AsrModels")->info("ASR models already present at: {}", folder.string());
        return folder;
    }
    auto names = networkNames(modelFiles(version));
    downloads.loadModels(repoFor(version), names, folder.parent_path(),
                         defaultConfiguration().computeUnits, progress, stop);
    corvane::log::get("AsrModels")->info("Successfully downloaded ASR models");
    return folder;
}

AsrModels AsrModels::load(DownloadUtils& downloads, const fs::path& directory,
                          std::optional<ModelConfiguration> configuration, AsrModelVersion version,
                          const DownloadProgressHandler& progress, std::stop_token stop) {
    if (version == AsrModelVersion::ctcZhCn) {
        throw AsrModelsError::loadingFailed(
            ".ctcZhCn must be loaded via its dedicated manager class (e.g., CtcZhCnManager)");
    }
    fs::path folder = modelFolder(directory, version);
    corvane::log::get("AsrModels")->info("Loading ASR models from: {}", folder.string());
    ModelConfiguration config = configuration.value_or(defaultConfiguration());
    auto files = modelFiles(version);
    Repo repo = repoFor(version);
    fs::path parent = folder.parent_path();

    // The preprocessor stays on the CPU, except where it carries the encoder itself.
    struct Group {
        std::vector<std::string> names;
        ComputeUnits units;
    };
    std::vector<Group> groups;
    if (files.encoder) {
        groups.push_back({{files.preprocessor}, ComputeUnits::cpuOnly});
        groups.push_back({{*files.encoder}, config.computeUnits});
    } else {
        groups.push_back({{files.preprocessor}, config.computeUnits});
    }
    groups.push_back({{files.decoder, files.joint}, config.computeUnits});

    DownloadUtils::LoadedModels loaded;
    std::map<std::string, ComputeUnits> unitsByName;
    for (const auto& group : groups) {
        auto models = downloads.loadModels(repo, group.names, parent, group.units, progress, stop);
        for (auto& [name, model] : models) {
            loaded[name] = model;
            unitsByName[name] = group.units;
        }
    }

    AsrModels result;
    result.configuration = config;
    result.version = version;
    result.preprocessor = take(loaded, files.preprocessor);
    if (!result.preprocessor)
        throw AsrModelsError::loadingFailed("Failed to load preprocessor model");
    if (files.encoder) {
        result.encoder = take(loaded, *files.encoder);
        if (!result.encoder)
            throw AsrModelsError::loadingFailed(
                "Failed to load encoder model (required for split frontend)");
    }
    result.decoder = take(loaded, files.decoder);
    result.joint = take(loaded, files.joint);
    if (!result.decoder || !result.joint)
        throw AsrModelsError::loadingFailed("Failed to load decoder or joint model");
    for (const auto& [name, units] : unitsByName) {
        corvane::log::get("AsrModels")
            ->info("Loaded {} with compute units: {}", name, speech::name(units));
    }
    result.vocabulary =
        std::make_shared<const Vocabulary>(loadVocabulary(folder / files.vocabulary));
    return result;
}

AsrModels AsrModels::loadFromCache(DownloadUtils& downloads, const fs::path& directory,
                                   AsrModelVersion version, std::stop_token stop) {
    auto files = modelFiles(version);
    fs::path folder = modelFolder(directory, version);
    auto names = networkNames(files);
    names.push_back(files.vocabulary);
    for (const auto& name : names) {
        std::error_code error;
        if (!fs::exists(folder / name, error))
            throw AsrModelsError::modelNotFound(name, (folder / name).string());
    }
    return load(downloads, directory, std::nullopt, version, {}, stop);
}

AsrModels AsrModels::loadWithAutoRecovery(DownloadUtils& downloads, const fs::path& directory,
                                          AsrModelVersion version, std::stop_token stop) {
    try {
        return load(downloads, directory, std::nullopt, version, {}, stop);
    } catch (const CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        corvane::log::get("AsrModels")
            ->error("Load failed, downloading the models again: {}", error.what());
    }
    download(downloads, directory, true, version, {}, stop);
    return load(downloads, directory, std::nullopt, version, {}, stop);
}

AsrModels AsrModels::downloadAndLoad(DownloadUtils& downloads, const fs::path& directory,
                                     AsrModelVersion version,
                                     const DownloadProgressHandler& progress,
                                     std::stop_token stop) {
    download(downloads, directory, false, version, progress, stop);
    return load(downloads, directory, std::nullopt, version, progress, stop);
}

bool AsrModels::isModelValid(DownloadUtils& downloads, const fs::path& directory,
                             AsrModelVersion version) {
    if (!modelsExist(directory, version)) {
        corvane::log::get("AsrModels")->error("Model validation failed: model files not found");
        return false;
    }
    try {
        auto files = modelFiles(version);
        fs::path folder = modelFolder(directory, version);
        for (const auto& name : networkNames(files))
            downloads.runtime().load(folder / name, defaultConfiguration());
        return true;
    } catch (const std::exception& error) {
        corvane::log::get("AsrModels")->error("Model validation failed: {}", error.what());
        return false;
    }
}

}  // namespace speech
