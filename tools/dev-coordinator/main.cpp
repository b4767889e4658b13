// corvane-dev-coordinator: the local coordinator for running a worker by hand.

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "tools/dev-coordinator/DevCoordinator.h"
#include "tools/dev-coordinator/ShardSpecList.h"

namespace {

constexpr const char* usage =
    "usage: corvane-dev-coordinator [--port N] [--host ADDRESS] [--audio-dir DIR]\n"
    "                               [--jobs jobs.json] [--token TOKEN] [--suggested-max-shards "
    "N]\n";

struct Arguments {
    corvane::dev::DevCoordinator::Options options;
    std::optional<std::filesystem::path> jobs;
};

// Throws std::invalid_argument with the text to show.
Arguments parseArguments(int argc, char** argv) {
    Arguments arguments;
    arguments.options.audioDir = std::filesystem::current_path();
    for (int i = 1; i < argc; ++i) {
        const std::string_view flag = argv[i];
        if (flag == "--help" || flag == "-h") throw std::invalid_argument("");
        if (i + 1 >= argc) throw std::invalid_argument(std::string(flag) + " needs a value");
        const std::string value = argv[++i];
        auto number = [&]() -> int {
            auto parsed = corvane::parseDecimalInteger(value);
            if (!parsed || *parsed < 0 || *parsed > 65535) {
                throw std::invalid_argument(std::string(flag) + ": not a valid number: " + value);
            }
            return static_cast<int>(*parsed);
        };
        if (flag == "--port") {
            arguments.options.port = number();
        } else if (flag == "--host") {
            arguments.options.host = value;
        } else if (flag == "--audio-dir") {
            arguments.options.audioDir = value;
        } else if (flag == "--jobs") {
            arguments.jobs = value;
        } else if (flag == "--token") {
            arguments.options.token = value;
        } else if (flag == "--suggested-max-shards") {
            arguments.options.suggestedMaxShards = number();
        } else {
            throw std::invalid_argument("unknown option " + std::string(flag));
        }
    }
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    try {
        arguments = parseArguments(argc, argv);
        if (arguments.jobs)
            arguments.options.shards = corvane::dev::loadShardSpecs(*arguments.jobs);
    } catch (const std::invalid_argument& error) {
        if (*error.what()) std::cerr << error.what() << "\n";
        std::cerr << usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    for (const auto& shard : arguments.options.shards) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(arguments.options.audioDir / shard.audioFile,
                                              error)) {
            std::cerr << "warning: " << shard.audioFile << " is not in "
                      << arguments.options.audioDir.string() << "; its audio will answer 404\n";
        }
    }

    // Ctrl-C and SIGTERM are taken by sigwait below; the server threads inherit the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    try {
        const size_t shardCount = arguments.options.shards.size();
        corvane::dev::DevCoordinator coordinator(std::move(arguments.options));
        std::cout << coordinator.baseURL() << std::endl;
        std::cerr << shardCount << " shard(s) waiting; Ctrl-C stops\n";
        int received = 0;
        sigwait(&stopSignals, &received);
        std::cerr << "stopping; " << coordinator.results().size() << " result(s), "
                  << coordinator.failures().size() << " failure(s), "
                  << coordinator.pendingShardCount() << " shard(s) never claimed\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
