// `corvane enroll` against the local coordinator in a temporary home, then a worker wired the way
// the application wires it: its polls carry the capability record and its results the full
// performance block.

#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <fstream>

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
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/worker/PerformanceMetadata.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/ManualExecutor.h"
#include "tools/dev-coordinator/DevCoordinator.h"

extern char** environ;

namespace corvane::testing {
namespace {

#ifdef CORVANE_BINARY

namespace fs = std::filesystem;

struct ProcessResult {
    int status = -1;
    std::string out, err;
};

// Runs `arguments` with `environment`, feeding `input` on standard input.
ProcessResult runProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                         const std::string& input, const fs::path& scratch) {
    const fs::path in = scratch / "stdin", out = scratch / "stdout", err = scratch / "stderr";
    std::ofstream(in) << input;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv, envp;
    for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    for (const auto& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    pid_t pid = 0;
    ProcessResult result;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data()) == 0) {
        int status = 0;
        waitpid(pid, &status, 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = readText(out);
    result.err = readText(err);
    return result;
}

// Transcribes nothing real but does real work on the downloaded file, timing its stages the way
// a handler does and letting the sampler tick while it runs.
class MeasuringHandler final : public ModelHandler {
public:
    explicit MeasuringHandler(ResourceSampler& sampler) : sampler_(sampler) {}
    ModelIdentifier modelIdentifier() const override { return defaultModelIdentifier(); }
    std::string activeImplName() const override { return "measuring"; }
    std::optional<std::string> installedVersion() const override { return "1"; }

    JobResult handle(const ClaimedJob& job, const StageObserver& observe, std::stop_token) override {
        using Clock = std::chrono::steady_clock;
        auto started = Clock::now();
        const std::string bytes = readText(job.inputPath);
        observe(ModelHandlerStage::decode, std::chrono::duration<double>(Clock::now() - started).count());
        sampler_.sampleOnce();
        started = Clock::now();
        std::uint64_t checksum = 0;
        for (int round = 0; round < 2000; ++round) {
            for (unsigned char c : bytes) checksum = checksum * 1099511628211ull + c;
        }
        sampler_.sampleOnce();
        observe(ModelHandlerStage::inference, std::chrono::duration<double>(Clock::now() - started).count());
        sampler_.sampleOnce();
        TranscriptResult transcript{"checksum " + std::to_string(checksum % 1000), "en",
                                    {{0, 1, "checksum"}, {1, 2, "value"}}};
        return {job.id, job.shardID, ModelOutput{transcript}, "measuring-backend", 0.0};
    }

private:
    ResourceSampler& sampler_;
};

TEST(EnrolEndToEnd, EnrolledWorkerAdvertisesItselfAndReportsFullPerformance) {
    TempDir home;
    const std::string invitation = "inv-e2e-7781";
    const std::string workerToken = "wt-e2e-dev-token";
    home.write("audio/shard.wav", std::string(64 * 1024, '\x11'));
    dev::DevCoordinator::Options options;
    options.audioDir = home.path() / "audio";
    options.token = workerToken;
    options.enrollmentToken = invitation;
    options.shards = {{"job-1", "s-1", "shard.wav", 10.0, 22.5}, {"job-2", "s-2", "shard.wav", 0.0, 5.0}};
    dev::DevCoordinator coordinator(options);

    // Enrol through the real command, with nothing of this machine's own home or keyring.
    const ProcessResult enrol = runProcess(
        {CORVANE_BINARY, "enroll", "--coordinator", coordinator.baseURL(), "--token-stdin", "--schedule", "business-hours"},
        {"HOME=" + home.path().string(), "PATH=/usr/bin:/bin", "XDG_CONFIG_HOME=" + (home.path() / ".config").string(),
         "XDG_DATA_HOME=" + (home.path() / ".local/share").string()},
        invitation + "\n", home.path());
    ASSERT_EQ(enrol.status, 0) << enrol.err;
    const std::string workerID = enrol.out.substr(0, enrol.out.find('\n'));
    EXPECT_TRUE(workerID.starts_with("wk_")) << enrol.out;
    ASSERT_EQ(coordinator.registrations().size(), 1u);
    EXPECT_TRUE(coordinator.registrations()[0].sentEnrollmentToken);
    EXPECT_EQ(coordinator.registrations()[0].workerID, workerID);

    const fs::path varnix = home.path() / ".varnix-compute";
    const auto config = WorkerConfig::load(varnix / "config.yaml");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->workerID, workerID);
    EXPECT_EQ(config->coordinatorURL, coordinator.baseURL());
    KeychainStore keychain(std::make_shared<FileCredentialBackend>(varnix / "credentials"));
    const auto token = keychain.pythonWorkerToken(config->coordinatorURL, config->workerID);
    ASSERT_EQ(token, workerToken) << "the headless machine keeps its credential in the private file\n" << enrol.err;
    EXPECT_EQ(fs::status(varnix / "credentials").permissions() & fs::perms::group_all, fs::perms::none);
    for (const std::string& text : {readText(varnix / "config.yaml"), enrol.out, enrol.err}) {
        EXPECT_EQ(text.find(invitation), std::string::npos);
        EXPECT_EQ(text.find(workerToken), std::string::npos);
    }
    // A second enrolment of the same machine meets the coordinator's "already registered".
    const ProcessResult again = runProcess({CORVANE_BINARY, "enroll", "--coordinator", coordinator.baseURL(),
                                            "--token-stdin"},
                                           {"HOME=" + home.path().string()}, invitation + "\n", home.path());
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("This computer is already registered."), std::string::npos) << again.err;

    // The worker, wired as the application wires it.
    home.write(".varnix-compute/worker-runtime-state.json", R"({"thermal":{"effective_resource_percent":74.6}})");
    ManualExecutor executor;
    ResourceSampler sampler(executor,
                            std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{}),
                            static_cast<int>(::getpid()));
    sampler.start(2.0);
    HandlerBox box;
    box.replace(std::make_shared<MeasuringHandler>(sampler));
    const ProcMachineProbe machine;
    CapabilityAdvertiser::Providers providers;
    providers.capabilityProvider =
        CapabilityAdvertiser::whisperCapabilityProvider("4bit", [&] { return box.current() != nullptr; });
    providers.chipTierProvider = [&] { return rawValue(currentChipTier(machine)); };
    providers.ramGBProvider = [&] { return CapabilityAdvertiser::physicalRAMGB(machine.physicalMemoryBytes().value_or(0)); };
    providers.installedModelsProvider = [] { return std::optional(std::vector<ModelIdentifier>{defaultModelIdentifier()}); };
    providers.activeModelProvider = [&]() -> std::optional<ModelIdentifier> {
        auto handler = box.current();
        return handler ? std::optional(handler->modelIdentifier()) : std::nullopt;
    };
    PerformanceMetadataSources sources;
    sources.runtimeEffectivePercent = [&] { return readRuntimeEffectiveResourcePercent(varnix / "worker-runtime-state.json"); };
    sources.fallbackPercent = [] { return 20; };
    sources.awayCpuCeiling = [] { return 90.0; };
    sources.quantization = [] { return std::optional<std::string>(); };
    sources.activeProcessorCount = [&] { return machine.logicalCoreCount(); };
    sources.chip = [&] { return std::optional<std::string>(machine.cpuBrandString()); };
    sources.physicalMemoryBytes = [&] { return machine.physicalMemoryBytes(); };

    auto session = std::make_shared<const http::Session>();
    auto materialiser = std::make_shared<ClaimMaterialiser>(session, home.path());
    WorkerController::Dependencies d;
    d.http = std::make_shared<WorkerHTTPClient>(config->coordinatorURL, *token, config->workerID, "0.1.0", session);
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
    const bool done = coordinator.waitUntil([](const dev::DevCoordinator& c) { return c.results().size() == 2; },
                                            std::chrono::seconds(60));
    controller->stop();
    ASSERT_TRUE(done) << "failures: " << coordinator.failures().size();

    // The first poll carried the capability record.
    std::optional<Json> capabilities;
    for (const auto& request : coordinator.requests()) {
        if (request.path == "/api/v1/workers/poll" && request.headers.contains("x-worker-capabilities")) {
            capabilities = Json::parse(request.headers.at("x-worker-capabilities"));
            EXPECT_EQ(request.headers.at("authorization"), "Bearer " + workerToken);
            break;
        }
    }
    ASSERT_TRUE(capabilities);
    EXPECT_EQ((*capabilities)["chip_tier"], "T1") << "no Apple tier on this machine: the base tier";
    EXPECT_EQ((*capabilities)["ram_gb"], CapabilityAdvertiser::physicalRAMGB(*machine.physicalMemoryBytes()));
    EXPECT_EQ((*capabilities)["capabilities"][0]["model"], "whisper-large-v3-turbo-q4");
    EXPECT_EQ((*capabilities)["capabilities"][0]["cached"], true);
    EXPECT_EQ((*capabilities)["active_model"]["backend"], "whisper-cpp-swift");

    const auto results = coordinator.results();
    for (const auto& result : results) {
        SCOPED_TRACE(result.jobID);
        const Json& perf = result.body.at("performance");
        for (const char* key : {"wall_clock_seconds", "sample_count", "cpu_avg_percent", "ram_peak_gb", "audio_seconds",
                                "memory_gb", "quantization", "resource_preset_percent", "user_percent",
                                "effective_percent", "thread_limit", "max_shards_in_flight", "resource_mode",
                                "cpu_count_total", "download_seconds", "decode_seconds", "inference_seconds",
                                "poll_rtt_ms", "audio_realtime_factor", "segments_per_second", "cache_hit",
                                "cache_load_seconds"}) {
            EXPECT_TRUE(perf.contains(key)) << key << " missing from " << perf.dump();
        }
        const double wall = perf["wall_clock_seconds"];
        EXPECT_GT(wall, 0.0);
        EXPECT_LE(perf["decode_seconds"].get<double>() + perf["inference_seconds"].get<double>(), wall + 1e-6)
            << "stages inside the shard's wall time";
        EXPECT_GE(perf["download_seconds"].get<double>(), 0.0);
        EXPECT_GE(perf["sample_count"].get<int>(), 3);
        const double ramGB = perf["ram_peak_gb"];
        EXPECT_GT(ramGB, 0.001);
        EXPECT_LT(ramGB, static_cast<double>(*machine.physicalMemoryBytes()) / std::pow(2.0, 30));
        EXPECT_GE(perf["cpu_avg_percent"].get<double>(), 0.0);
        EXPECT_EQ(perf["effective_percent"], 75) << "from the runtime-state file";
        EXPECT_EQ(perf["user_percent"], 90);
        EXPECT_EQ(perf["quantization"], "4bit");
        EXPECT_EQ(perf["cpu_count_total"], machine.logicalCoreCount());
        EXPECT_GE(perf["thread_limit"].get<int>(), 1);
        EXPECT_LE(perf["thread_limit"].get<int>(), machine.logicalCoreCount());
        EXPECT_GT(perf["poll_rtt_ms"].get<double>(), 0.0);
        EXPECT_EQ(perf["cache_hit"], false);
    }
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].body["performance"]["audio_seconds"], 12.5);
    EXPECT_EQ(results[0].body["performance"]["cache_load_seconds"], 0.75) << "the first shard carries the load";
    EXPECT_EQ(results[1].body["performance"]["cache_load_seconds"], 0.0);
    EXPECT_FALSE(results[0].body["performance"].contains("submit_rtt_ms")) << "nothing submitted before it";
    ASSERT_TRUE(results[1].body["performance"].contains("submit_rtt_ms"));
    EXPECT_GT(results[1].body["performance"]["submit_rtt_ms"].get<double>(), 0.0);
}

#else

TEST(EnrolEndToEnd, EnrolledWorkerAdvertisesItselfAndReportsFullPerformance) {
    GTEST_SKIP() << "built without the corvane executable";
}

#endif

}  // namespace
}  // namespace corvane::testing
