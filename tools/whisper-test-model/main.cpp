// whisper-test-model <output file> [--seed N]: writes a random-weight whisper model for tests.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "tools/whisper-test-model/WhisperTestModel.h"

int main(int argc, char** argv) {
    if (argc != 2 && !(argc == 4 && std::string(argv[2]) == "--seed")) {
        std::cerr << "usage: whisper-test-model <output file> [--seed N]\n";
        return 2;
    }
    corvane::tools::WhisperTestModelShape shape;
    try {
        if (argc == 4) shape.seed = static_cast<std::uint32_t>(std::stoul(argv[3]));
        corvane::tools::writeWhisperTestModel(argv[1], shape);
    } catch (const std::exception& error) {
        std::cerr << "whisper-test-model: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
