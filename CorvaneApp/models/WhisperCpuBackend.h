#pragma once
// whisper.cpp runs on ggml's CPU back-end, which our build ships once per instruction-set level
// (libggml-cpu-haswell.so, ...-skylakex.so, ...) next to libggml: the library picks the best one
// this processor runs when it is loaded. This loads it, once per process, before any model.

#include <filesystem>

namespace corvane {

// Loads ggml's back-ends from the folder libggml itself was loaded from (the build tree's or the
// installed private folder), else from ggml's default places, and names the CPU back-end's
// library in the log. A whisper.cpp with its CPU back-end built in needs nothing loaded. Thread
// safe; only the first call does anything. Returns the file the CPU back-end came from (empty
// when there is none: models then fail to load with whisper.cpp's own error).
const std::filesystem::path& loadWhisperCpuBackend();

}  // namespace corvane
