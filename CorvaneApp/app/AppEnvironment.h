#pragma once
// Where the program keeps its files and how it reaches the machine.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/config/CredentialBackend.h"
#include "CorvaneApp/eligibility/MeetingDetector.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/models/MachineProbe.h"
#include "CorvaneApp/models/ModelCacheRegistry.h"
#include "CorvaneApp/models/ParakeetRuntime.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

// AppEnvironment::system() is the real computer; tests put temp folders and fakes in its place.
struct AppEnvironment {
    std::filesystem::path configPath;         // ~/.varnix-compute/config.yaml
    std::filesystem::path runtimeStatePath;   // ~/.varnix-compute/worker-runtime-state.json
    std::filesystem::path modelRoot;          // weights, as the model cache lays them out
    std::filesystem::path parakeetDirectory;  // Parakeet's model set
    // What runs Parakeet's networks; absent where no runtime can, and then Parakeet is neither
    // advertised nor loaded.
    std::shared_ptr<const ParakeetRuntime> parakeetRuntime;
    // Downloaded shard audio: a folder of Corvane's own, emptied as shards end.
    std::filesystem::path tempDirectory;
    std::filesystem::path userDefaultsFile;
    std::filesystem::path logDirectory;  // $XDG_STATE_HOME/Corvane/logs
    std::filesystem::path program;       // the installed `corvane`: what autostart runs
    std::string version;
    std::shared_ptr<CredentialBackend> credentials;
    std::shared_ptr<const http::Session> session;
    // Registration's connection at onboarding; absent: one with registration's own time-outs.
    std::shared_ptr<const http::Session> registrationSession;
    std::shared_ptr<MachineProbe> machine;
    std::shared_ptr<ResourceSampler::Probes> samplerProbes;
    std::function<std::optional<double>()> secondsSinceLastInput;  // absent: no source answered
    std::function<bool()> isOnACPower;
    std::function<MeetingDetector::Snapshot()> meetingProbe;
    // The models the cache fetches and where from; absent: Whisper from the hub the environment
    // names (REGISTRY_URL, HF_TOKEN, ...).
    std::optional<ModelCacheRegistry> modelRegistry;
    // After a failed model download or load, try again after this many seconds (0: only on
    // request).
    double modelRetrySeconds = 0;
    // A worker paused this long frees the model's weights, unless the owner keeps them
    // (resource_policy.keep_model_loaded); the next shard loads them again.
    double modelReleaseDelaySeconds = 600;

    static AppEnvironment system(std::string version);
};

}  // namespace corvane
