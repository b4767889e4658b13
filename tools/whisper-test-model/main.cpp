// whisper-test-model <output file> [--seed N] [--real-size]: writes a random-weight whisper model
// for tests (tiny, f16) or, with --real-size, one of large-v3 turbo's size at q5_0 for benchmarks.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "tools/whisper-test-model/WhisperTestModel.h"

int main(int argc, char** argv) {
    auto usage = [] {
        std::cerr << "usage: whisper-test-model <output file> [--seed N] [--real-size]\n";
        return 2;
    };
    if (argc < 2) return usage();
    corvane::tools::WhisperTestModelShape shape;
    std::uint32_t seed = shape.seed;
    try {
        for (int i = 2; i < argc; ++i) {
            const std::string option = argv[i];
            if (option == "--real-size") {
                shape = corvane::tools::WhisperTestModelShape::largeV3Turbo();
            } else if (option == "--seed" && i + 1 < argc) {
                seed = static_cast<std::uint32_t>(std::stoul(argv[++i]));
            } else {
                return usage();
            }
        }
        shape.seed = seed;
        corvane::tools::writeWhisperTestModel(std::filesystem::path(argv[1]), shape);
    } catch (const std::exception& error) {
        std::cerr << "whisper-test-model: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
