#include "tests/models/AudioFixtures.h"

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>

#include "tests/models/TestFolder.h"

namespace corvane::testing {
namespace {

// Each argument single-quoted for the shell.
void run(const std::vector<std::string>& argv) {
    std::string command;
    for (const auto& arg : argv) {
        command += " '";
        for (char c : arg) command += c == '\'' ? std::string("'\\''") : std::string(1, c);
        command += "'";
    }
    if (std::system((command + " >/dev/null").c_str()) != 0)
        throw std::runtime_error("failed:" + command);
}

// Written under a temporary name (same extension) and renamed, so that parallel test processes
// never read a half-written file. Kept between runs with a note of what made it, so that a changed
// recipe under an old name makes the file again instead of finding the old one.
template <typename Make>
std::filesystem::path made(const std::string& name, const std::string& recipe, Make make) {
    const auto path = AudioFixtures::directory() / name;
    const auto note = AudioFixtures::directory() / ("." + name + ".recipe");
    const std::string digest = std::to_string(std::hash<std::string>{}(recipe));
    if (std::filesystem::exists(path) && readFile(note) == digest) return path;
    const std::string unique = std::to_string(::getpid()) + "-" + name;
    const auto temporary = AudioFixtures::directory() / (".tmp-" + unique);
    make(temporary.string());
    std::filesystem::rename(temporary, path);
    writeFile(AudioFixtures::directory() / (".tmp-note-" + unique), digest);
    std::filesystem::rename(AudioFixtures::directory() / (".tmp-note-" + unique), note);
    return path;
}

}  // namespace

const std::filesystem::path& AudioFixtures::directory() {
    static const std::filesystem::path folder = MODELS_TEST_AUDIO_DIR;
    std::filesystem::create_directories(folder);
    return folder;
}

std::filesystem::path AudioFixtures::ffmpeg(const std::string& name,
                                            const std::vector<std::string>& arguments) {
    std::string recipe;
    for (const auto& argument : arguments) recipe += argument + '\n';
    return made(name, recipe, [&](const std::string& temporary) {
        std::vector<std::string> argv{"ffmpeg",    "-nostdin", "-hide_banner",
                                      "-loglevel", "error",    "-y"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        argv.push_back(temporary);
        run(argv);
    });
}

std::filesystem::path AudioFixtures::tone(const std::string& name, double seconds,
                                          const std::vector<std::string>& outputOptions,
                                          const std::string& layout) {
    // aevalsrc carries its last expression on into the layout's remaining channels.
    std::vector<std::string> arguments{
        "-f", "lavfi", "-i",
        "aevalsrc=0.5*sin(2*PI*440*t):c=" + layout + ":s=48000:d=" + std::to_string(seconds)};
    arguments.insert(arguments.end(), outputOptions.begin(), outputOptions.end());
    return ffmpeg(name, arguments);
}

std::filesystem::path AudioFixtures::speech() {
    return made("speech.wav", "espeak-ng", [](const std::string& temporary) {
        run({"espeak-ng", "-w", temporary, "The quick brown fox jumps over the lazy dog."});
    });
}

std::filesystem::path AudioFixtures::bytes(const std::string& name, const std::string& content) {
    return made(name, content,
                [&](const std::string& temporary) { writeFile(temporary, content); });
}

}  // namespace corvane::testing
