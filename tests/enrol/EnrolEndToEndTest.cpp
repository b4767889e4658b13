#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/worker/PerformanceMetadata.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/ManualExecutor.h"
#include "tests/worker/WorkerTestSupport.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

TEST(EnrolEndToEnd, EnrolledWorkerAdvertisesItselfAndReportsFullPerformance) {
    ScratchFolder home;
    const std::string invitation = "inv-e2e-7781";
    const std::string workerToken = "wt-e2e-dev-token";
    home.write("audio/shard.wav", std::string(64 * 1024, '\x11'));
    dev::DevCoordinator::Options options;
    options.audioDir = home.path() / "audio";
    options.token = workerToken;
    options.enrollmentToken = invitation;
    options.shards = {{"job-1", "s-1", "shard.wav", 10.0, 22.5},
                      {"job-2", "s-2", "shard.wav", 0.0, 5.0}};
    dev::DevCoordinator coordinator(options);

    // Enrol through the real command, with nothing of this machine's own home or keyring.
    const fs::path out = home.path() / "out", err = home.path() / "err";
    const int status = std::system(
        ("echo " + invitation + " | env -i HOME=" + home.path().string() +
         " PATH=/usr/bin:/bin " CORVANE_BINARY " enroll --coordinator " + coordinator.baseURL() +
         " --token-stdin --schedule business-hours >" + out.string() + " 2>" + err.string())
            .c_str());
    const std::string enrolOut = readFile(out).value_or(""), enrolErr = readFile(err).value_or("");
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << enrolErr;
    const std::string workerID = enrolOut.substr(0, enrolOut.find('\n'));
    EXPECT_TRUE(workerID.starts_with("wk_")) << enrolOut;
    ASSERT_EQ(coordinator.registrations().size(), 1u);
    EXPECT_TRUE(coordinator.registrations()[0].sentEnrollmentToken);

    const fs::path varnix = home.path() / ".varnix-compute";
    const auto config = WorkerConfig::load(varnix / "config.yaml");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->workerID, workerID);
    KeychainStore keychain(std::make_shared<FileCredentialBackend>(varnix / "credentials"));
    const auto token = keychain.pythonWorkerToken(config->coordinatorURL, config->workerID);
    ASSERT_EQ(token, workerToken) << enrolErr;
    for (const std::string& text : {readFile(varnix / "config.yaml").value(), enrolOut, enrolErr}) {
        EXPECT_EQ(text.find(invitation), std::string::npos);
        EXPECT_EQ(text.find(workerToken), std::string::npos);
    }

    home.write(".varnix-compute/worker-runtime-state.json",
               R"({"thermal":{"effective_resource_percent":74.6}})");
    ManualExecutor executor;
    ResourceSampler sampler(
        executor, std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{}),
        static_cast<int>(::getpid()));
    sampler.start(2.0);
    HandlerBox box;
    box.replace(std::make_shared<ScriptedHandler>(
        defaultModelIdentifier(),
        [&](const ClaimedJob& job, const StageObserver& observe, std::stop_token) {
            // Real work on the downloaded file, timed as a handler times it, the sampler ticking
            // meanwhile.
            auto started = std::chrono::steady_clock::now();
            auto since = [&] {
                return std::chrono::duration<double>(std::chrono::steady_clock::now() - started)
                    .count();
            };
            const std::string bytes = readFile(job.inputPath).value();
            observe(ModelHandlerStage::decode, since());
            started = std::chrono::steady_clock::now();
            std::uint64_t checksum = 0;
            for (int round = 0; round < 2000; ++round) {
                for (unsigned char c : bytes) checksum = checksum * 1099511628211ull + c;
            }
            for (int tick = 0; tick < 3; ++tick) sampler.sampleOnce();
            observe(ModelHandlerStage::inference, since());
            return ScriptedHandler::transcript(job, "checksum " + std::to_string(checksum % 1000));
        }));
    const ProcMachineProbe machine;
    CapabilityAdvertiser::Providers providers;
    providers.capabilityProvider = CapabilityAdvertiser::whisperCapabilityProvider(
        "4bit", [&] { return box.current() != nullptr; });
    providers.chipTierProvider = [&] { return rawValue(currentChipTier(machine)); };
    providers.ramGBProvider = [&] {
        return CapabilityAdvertiser::physicalRAMGB(machine.physicalMemoryBytes().value_or(0));
    };
    PerformanceMetadataSources sources;
    sources.runtimeEffectivePercent = [&] {
        return readRuntimeEffectiveResourcePercent(varnix / "worker-runtime-state.json");
    };
    sources.awayCpuCeiling = [] { return 90.0; };
    sources.activeProcessorCount = [&] { return machine.logicalCoreCount(); };
    sources.chip = [&] { return std::optional<std::string>(machine.cpuBrandString()); };
    sources.physicalMemoryBytes = [&] { return machine.physicalMemoryBytes(); };

    auto session = std::make_shared<const http::Session>();
    auto materialiser = std::make_shared<ClaimMaterialiser>(session, home.path());
    WorkerController::Dependencies d;
    d.http = std::make_shared<WorkerHTTPClient>(config->coordinatorURL, *token, config->workerID,
                                                "0.1.0", session);
    d.capabilities = std::make_shared<CapabilityAdvertiser>(providers);
    d.handlerLookup = [&](const ModelIdentifier&) { return box.current(); };
    d.materialiser = [materialiser](const ShardClaim& claim, std::stop_token stop) {
        return materialiser->materialise(claim, stop);
    };
    d.isEligible = [] { return true; };
    d.strategyHolder = std::make_shared<StrategySuggestionHolder>();
    // The second shard follows the first after one recheck; keep that short in real time.
    d.config.eligibilityRecheckInterval = 0.05;
    d.sleepProvider = std::make_shared<TaskSleepProvider>();
    d.resourceAggregator = [&](Date since) { return std::optional(sampler.aggregateSince(since)); };
    d.performanceMetadataProvider = makePerformanceMetadataProvider(sources);
    auto controller = WorkerController::create(std::move(d));
    controller->recordModelLoaded(false, 0.75);
    controller->start();
    const bool done =
        coordinator.waitUntil([](const dev::DevCoordinator& c) { return c.results().size() == 2; },
                              std::chrono::seconds(60));
    controller->stop();
    ASSERT_TRUE(done) << "failures: " << coordinator.failures().size();

    const auto requests = coordinator.requests();
    const auto poll =
        std::ranges::find(requests, "/api/v1/workers/poll", &dev::RecordedRequest::path);
    ASSERT_NE(poll, requests.end());
    EXPECT_EQ(poll->headers.at("authorization"), "Bearer " + workerToken);
    const auto capabilities = Json::parse(poll->headers.at("x-worker-capabilities"));
    EXPECT_EQ(capabilities["chip_tier"], "T1") << "no Apple tier on this machine: the base tier";
    EXPECT_EQ(capabilities["ram_gb"],
              CapabilityAdvertiser::physicalRAMGB(*machine.physicalMemoryBytes()));
    EXPECT_EQ(capabilities["capabilities"][0]["cached"], true);

    const auto results = coordinator.results();
    for (const auto& result : results) {
        SCOPED_TRACE(result.jobID);
        const Json& perf = result.body.at("performance");
        for (const char* key : {"wall_clock_seconds",
                                "sample_count",
                                "cpu_avg_percent",
                                "ram_peak_gb",
                                "audio_seconds",
                                "memory_gb",
                                "quantization",
                                "resource_preset_percent",
                                "user_percent",
                                "effective_percent",
                                "thread_limit",
                                "max_shards_in_flight",
                                "resource_mode",
                                "cpu_count_total",
                                "download_seconds",
                                "decode_seconds",
                                "inference_seconds",
                                "poll_rtt_ms",
                                "audio_realtime_factor",
                                "segments_per_second",
                                "cache_hit",
                                "cache_load_seconds"}) {
            EXPECT_TRUE(perf.contains(key)) << key << " missing from " << perf.dump();
        }
        const double wall = perf["wall_clock_seconds"];
        EXPECT_GT(wall, 0.0);
        EXPECT_LE(perf["decode_seconds"].get<double>() + perf["inference_seconds"].get<double>(),
                  wall + 1e-6)
            << "stages inside the shard's wall time";
        EXPECT_GE(perf["sample_count"].get<int>(), 3);
        EXPECT_GT(perf["ram_peak_gb"].get<double>(), 0.001);
        EXPECT_EQ(perf["effective_percent"], 75) << "from the runtime-state file";
        EXPECT_GT(perf["poll_rtt_ms"].get<double>(), 0.0);
        EXPECT_EQ(perf["cache_hit"], false);
    }
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].body["performance"]["audio_seconds"], 12.5);
    EXPECT_EQ(results[0].body["performance"]["cache_load_seconds"], 0.75)
        << "the first shard carries the load";
    EXPECT_EQ(results[1].body["performance"]["cache_load_seconds"], 0.0);
    EXPECT_FALSE(results[0].body["performance"].contains("submit_rtt_ms"))
        << "nothing submitted before it";
    EXPECT_GT(results[1].body["performance"].value("submit_rtt_ms", 0.0), 0.0);
}

}  // namespace
}  // namespace corvane::testing
