#include "tests/models/AudioFixtures.h"

#include "tests/models/TestFolder.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace corvane::testing {
namespace {

// Writes through a temporary name and renames, so that parallel test processes never read a
// half-written fixture.
template <typename Make>
std::filesystem::path made(const std::string& name, Make make) {
    auto path = AudioFixtures::directory() / name;
    if (std::filesystem::exists(path)) return path;
    auto temporary = AudioFixtures::directory() / (".tmp-" + std::to_string(::getpid()) + "-" + name);
    make(temporary);
    std::filesystem::rename(temporary, path);
    return path;
}

}  // namespace

bool runProgram(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return false;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

const std::filesystem::path& AudioFixtures::directory() {
    static const std::filesystem::path folder = [] {
        std::filesystem::path path = MODELS_TEST_AUDIO_DIR;
        std::filesystem::create_directories(path);
        return path;
    }();
    return folder;
}

std::filesystem::path AudioFixtures::ffmpeg(const std::string& name, const std::vector<std::string>& arguments) {
    return made(name, [&](const std::filesystem::path& temporary) {
        std::vector<std::string> argv{"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        // The temporary name hides the extension, so the output format is named explicitly.
        auto extension = std::filesystem::path(name).extension().string();
        bool named = std::find(arguments.begin(), arguments.end(), "-f") != arguments.end();
        if (!named && !extension.empty()) {
            static const std::map<std::string, std::string> muxers{
                {".wav", "wav"}, {".flac", "flac"}, {".mp3", "mp3"}, {".ogg", "ogg"}, {".opus", "ogg"},
                {".m4a", "ipod"}, {".webm", "webm"}, {".mkv", "matroska"}, {".nut", "nut"}};
            if (auto found = muxers.find(extension); found != muxers.end()) {
                argv.push_back("-f");
                argv.push_back(found->second);
            }
        }
        argv.push_back(temporary.string());
        if (!runProgram(argv)) throw std::runtime_error("ffmpeg could not make " + name);
    });
}

std::filesystem::path AudioFixtures::tone(const std::string& name, double hertz, double seconds,
                                          const std::vector<std::string>& outputOptions, int channels,
                                          double amplitude) {
    static const std::map<int, std::string> layouts{{1, "mono"}, {2, "stereo"}, {4, "quad"}, {6, "5.1"}};
    std::ostringstream expression;
    expression << amplitude << "*sin(2*PI*" << hertz << "*t)";
    std::ostringstream source;
    source << "aevalsrc=" << expression.str();
    for (int channel = 1; channel < channels; ++channel) source << "|" << expression.str();
    source << ":c=" << layouts.at(channels) << ":s=48000:d=" << seconds;
    std::vector<std::string> arguments{"-f", "lavfi", "-i", source.str()};
    arguments.insert(arguments.end(), outputOptions.begin(), outputOptions.end());
    return ffmpeg(name, arguments);
}

std::filesystem::path AudioFixtures::speech() {
    return made("speech.wav", [](const std::filesystem::path& temporary) {
        if (!runProgram({"espeak-ng", "-w", temporary.string(), "The quick brown fox jumps over the lazy dog."})) {
            throw std::runtime_error("espeak-ng could not speak");
        }
    });
}

std::filesystem::path AudioFixtures::copyAs(const std::filesystem::path& source, const std::string& name) {
    return made(name, [&](const std::filesystem::path& temporary) { std::filesystem::copy_file(source, temporary); });
}

std::filesystem::path AudioFixtures::truncated(const std::filesystem::path& source, const std::string& name,
                                               size_t bytes) {
    return made(name, [&](const std::filesystem::path& temporary) { writeFile(temporary, readFile(source).substr(0, bytes)); });
}

std::filesystem::path AudioFixtures::bytes(const std::string& name, const std::string& content) {
    return made(name, [&](const std::filesystem::path& temporary) { writeFile(temporary, content); });
}

}  // namespace corvane::testing
