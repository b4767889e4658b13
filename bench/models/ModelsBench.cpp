// Timed tool for the models subsystem, run in a Release build:
//  1. decodes 10 minutes of 44.1 kHz stereo MP3 and FLAC to 16 kHz mono with FfmpegAudioDecoder,
//     next to the ffmpeg command line doing the same conversion to raw floats, in the same run;
//     reports seconds, the ratio and the decoder's peak memory over the decoded samples;
//  2. streams a large file from a loopback server through ClaimMaterialiser and ModelCache (with
//     a digest) and reports their peak memory, which must not grow with the file.
// Usage: models_bench [work folder]   (generated inputs are kept there between runs)
// Times are best of several runs; with other work on the machine the CPU seconds are the fair
// comparison, wall seconds are shown next to them.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/FileDigest.h"
#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/platform/FfmpegAudioDecoder.h"
#include "CorvaneApp/platform/Log.h"
#include "tools/dev-coordinator/DevCoordinator.h"

extern char** environ;

namespace {

using namespace corvane;
using Clock = std::chrono::steady_clock;

struct Times {
    double wall = 0;
    double cpu = 0;  // user + system: fair when other work shares the cores
};

// Runs a program and returns its times, or absent when it failed.
std::optional<Times> run(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    auto start = Clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0)
        return std::nullopt;
    int status = 0;
    rusage usage{};
    while (::wait4(pid, &status, 0, &usage) < 0) {
        if (errno != EINTR) return std::nullopt;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return Times{std::chrono::duration<double>(Clock::now() - start).count(),
                 seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

double processCPUSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

Times timed(const std::function<void()>& work) {
    auto start = Clock::now();
    double cpu = processCPUSeconds();
    work();
    return {std::chrono::duration<double>(Clock::now() - start).count(), processCPUSeconds() - cpu};
}

Times best(Times a, Times b) {
    return {std::min(a.wall, b.wall), std::min(a.cpu, b.cpu)};
}

// Kilobytes of a "VmRSS"/"VmHWM" line of /proc/self/status.
long statusKB(const std::string& key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(key + ":", 0) == 0) return std::stol(line.substr(key.size() + 1));
    }
    return -1;
}

// Runs `work` and returns the growth of peak resident memory above what was resident before.
double peakGrowthMB(const std::function<void()>& work) {
    std::ofstream("/proc/self/clear_refs") << "5";  // restart the high-water mark from now
    long before = statusKB("VmRSS");
    work();
    return static_cast<double>(statusKB("VmHWM") - before) / 1024.0;
}

std::filesystem::path makeInput(const std::filesystem::path& folder, const std::string& name,
                                const std::vector<std::string>& codec) {
    auto path = folder / name;
    if (std::filesystem::exists(path)) return path;
    std::vector<std::string> argv{
        "ffmpeg",
        "-nostdin",
        "-v",
        "error",
        "-y",
        "-f",
        "lavfi",
        "-i",
        "aevalsrc=0.3*sin(2*PI*440*t)+0.1*sin(2*PI*3000*t)+0.05*(random(0)-0.5)|"
        "0.3*sin(2*PI*660*t)+0.05*(random(1)-0.5):s=44100:d=600"};
    argv.insert(argv.end(), codec.begin(), codec.end());
    argv.push_back(path.string());
    if (!run(argv)) throw std::runtime_error("ffmpeg could not make " + name);
    return path;
}

// In a fresh process of its own (see main), so that no memory freed by earlier work is reused:
// the growth of peak resident memory over the decode, in MB, printed on stdout.
int measureDecodePeak(const std::filesystem::path& input) {
    FfmpegAudioDecoder decoder(16000);
    size_t samples = 0;
    double growth = peakGrowthMB([&] { samples = decoder.decodeFile(input).samples.size(); });
    std::printf("%.2f %zu\n", growth, samples);
    return 0;
}

void decodeBench(const std::filesystem::path& folder, const std::string& self) {
    constexpr int rounds = 5;
    std::printf(
        "Decoding 10 min of 44.1 kHz stereo to 16 kHz mono float (best of %d, taken in turns)\n",
        rounds);
    std::printf("%-5s %10s %10s %10s %10s %7s %7s %11s %11s\n", "input", "ours wall", "cli wall",
                "ours cpu", "cli cpu", "wall x", "cpu x", "peak-PCM MB", "PCM MB");
    struct Input {
        std::string label;
        std::filesystem::path path;
    };
    std::vector<Input> inputs{
        {"MP3", makeInput(folder, "bench-10min.mp3", {"-c:a", "libmp3lame", "-b:a", "192k"})},
        {"FLAC", makeInput(folder, "bench-10min.flac", {"-c:a", "flac"})},
    };
    FfmpegAudioDecoder decoder(16000);
    for (const auto& input : inputs) {
        Times ours{1e9, 1e9}, cli{1e9, 1e9};
        for (int round = 0; round < rounds; ++round) {
            ours = best(ours, timed([&] { decoder.decodeFile(input.path); }));
            auto command = run({"ffmpeg", "-nostdin", "-v", "error", "-i", input.path.string(),
                                "-ac", "1", "-ar", "16000", "-f", "f32le", "-y", "/dev/null"});
            if (!command) throw std::runtime_error("ffmpeg failed on " + input.path.string());
            cli = best(cli, *command);
        }
        // The peak is measured in a fresh process running this tool in its measuring mode.
        std::string out;
        {
            std::string line = "'" + self + "' --measure-decode '" + input.path.string() + "'";
            std::unique_ptr<FILE, decltype(&pclose)> pipe(popen(line.c_str(), "r"), &pclose);
            char buffer[128] = {};
            if (pipe && std::fgets(buffer, sizeof buffer, pipe.get())) out = buffer;
        }
        double growth = 0;
        size_t samples = 0;
        if (std::sscanf(out.c_str(), "%lf %zu", &growth, &samples) != 2)
            throw std::runtime_error("peak measure failed");
        double pcmMB = static_cast<double>(samples * sizeof(float)) / (1024.0 * 1024.0);
        bool meets = ours.cpu <= cli.cpu && growth - pcmMB <= 20;
        std::printf("%-5s %10.3f %10.3f %10.3f %10.3f %7.2f %7.2f %11.1f %11.1f   %s\n",
                    input.label.c_str(), ours.wall, cli.wall, ours.cpu, cli.cpu,
                    ours.wall / cli.wall, ours.cpu / cli.cpu, growth - pcmMB, pcmMB,
                    meets ? "meets target" : "MISSES TARGET");
    }
}

void downloadBench(const std::filesystem::path& folder) {
    constexpr std::uint64_t size = 256ull << 20;
    auto served = folder / "served";
    std::filesystem::create_directories(served);
    auto big = served / "big.bin";
    if (!std::filesystem::exists(big) || std::filesystem::file_size(big) != size) {
        std::ofstream out(big, std::ios::binary | std::ios::trunc);
        std::string block(1 << 20, '\0');
        for (std::uint64_t i = 0; i < size; i += block.size()) {
            for (size_t j = 0; j < block.size(); j += 4096)
                block[j] = static_cast<char>(i / block.size() + j);
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }
    dev::DevCoordinator server(dev::DevCoordinator::Options{.audioDir = served});
    auto session =
        std::make_shared<http::Session>(http::SessionConfig{.resourceTimeoutSeconds = 0});
    auto temp = folder / "temp";
    std::filesystem::remove_all(temp);

    std::printf("\nStreaming %llu MB from a loopback server\n",
                static_cast<unsigned long long>(size >> 20));
    ClaimMaterialiser materialiser(session, temp);
    ShardClaim claim;
    claim.jobID = "bench";
    claim.audioURL = server.baseURL() + "/audio/big.bin";
    Times times;
    double peak =
        peakGrowthMB([&] { times = timed([&] { materialiser.materialise(claim, {}); }); });
    std::printf("ClaimMaterialiser: %.2f s, peak memory growth %.1f MB\n", times.wall, peak);

    ModelSpec spec{{"bench", "big", "1"}, claim.audioURL, "big.bin", size, sha256HexOfFile(big)};
    ModelCache cache(ModelCache::Dependencies{
        .rootDirectory = folder / "models",
        .session = session,
        .registry = ModelCacheRegistry(HubSettings{}, {spec}),
    });
    cache.remove(spec.identifier);
    peak = peakGrowthMB([&] { times = timed([&] { cache.ensureCached(spec); }); });
    std::printf("ModelCache with SHA-256: %.2f s, peak memory growth %.1f MB (%zu state changes)\n",
                times.wall, peak, cache.stateStream().drain().size());
    cache.remove(spec.identifier);
    std::filesystem::remove_all(temp);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--measure-decode") return measureDecodePeak(argv[2]);
    std::filesystem::path folder =
        argc > 1 ? argv[1] : std::filesystem::temp_directory_path() / "corvane-models-bench";
    std::filesystem::create_directories(folder);
    log::setSinks({});
    try {
        decodeBench(folder, std::filesystem::canonical("/proc/self/exe").string());
        downloadBench(folder);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "models_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
