#pragma once
// The capability record sent with every poll, built fresh each time from provider functions over
// the machine and the model cache, so a model installed later is advertised on the next poll.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"

namespace corvane {

// What the worker reports of its own compute budget.
struct ComputeBudgetSnapshot {
    std::int64_t userPercent = 0;
    std::int64_t effectivePercent = 0;
    std::int64_t threadLimit = 1;
    std::int64_t maxShardsInFlight = 1;
    std::string resourceMode;
    std::int64_t cpuCountTotal = 1;
    std::optional<std::int64_t> cpuCountPerf;
    std::optional<std::int64_t> cpuCountEfficiency;

    bool operator==(const ComputeBudgetSnapshot&) const = default;

    // `activeProcessorCount` is the machine's; the thread limit is that share of it, at least 1.
    static ComputeBudgetSnapshot current(std::int64_t userPercent, std::int64_t effectivePercent,
                                         std::string resourceMode,
                                         std::optional<std::int64_t> cpuCountPerf,
                                         std::optional<std::int64_t> cpuCountEfficiency,
                                         std::int64_t activeProcessorCount);
};

class CapabilityAdvertiser final : public CapabilitiesProvider {
  public:
    // Every function may be called from any thread and must not wait on the worker.
    struct Providers {
        std::function<std::vector<WorkerCapabilities::Capability>()>
            capabilityProvider;  // required
        // The tier's raw value, "t1" to "t4".
        std::function<std::string()> chipTierProvider;                                // required
        std::function<std::int64_t()> ramGBProvider;                                  // required
        std::function<std::optional<std::string>()> buildIdentityProvider;            // optional
        std::function<std::optional<ComputeBudgetSnapshot>()> computeBudgetProvider;  // optional
        std::function<std::optional<std::vector<ModelIdentifier>>()>
            installedModelsProvider;                                          // optional
        std::function<std::optional<ModelIdentifier>()> activeModelProvider;  // optional
    };

    // Throws std::invalid_argument when a required provider is missing.
    explicit CapabilityAdvertiser(Providers providers);

    WorkerCapabilities snapshot() override;

    // Bytes as whole gigabytes of 2^30, rounded to nearest with halves away from zero.
    static std::int64_t physicalRAMGB(std::uint64_t physicalMemoryBytes);
    // "t1" -> "T1".
    static std::string chipTierString(std::string_view rawTier);

    // The one capability the build offers: Whisper, cached or not, with the configured
    // quantization.
    static std::function<std::vector<WorkerCapabilities::Capability>()> whisperCapabilityProvider(
        std::optional<std::string> quantization, std::function<bool()> isCached);

  private:
    Providers providers_;
};

}  // namespace corvane
