#pragma once
// What every fuzz target shares: a broken invariant aborts, so that libFuzzer keeps the input as a
// finding, and the product's logs go nowhere, so that millions of runs don't flood the terminal.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <spdlog/sinks/null_sink.h>

#include "CorvaneApp/platform/Log.h"

namespace corvane::fuzz {

[[noreturn]] inline void broken(std::string_view invariant, std::string_view detail = {}) {
    std::fprintf(stderr, "\n*** invariant broken: %.*s\n%.*s\n", static_cast<int>(invariant.size()),
                 invariant.data(), static_cast<int>(detail.size()), detail.data());
    std::abort();
}

inline void require(bool holds, std::string_view invariant, std::string_view detail = {}) {
    if (!holds) broken(invariant, detail);
}

inline void silenceLogs() {
    log::setSinks({std::make_shared<spdlog::sinks::null_sink_mt>()});
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Runs `body`: an `Allowed` exception gives nothing, any other is a finding named `what`.
template <typename Allowed, typename Body>
auto attempt(std::string_view what, Body&& body) -> std::optional<std::invoke_result_t<Body>> {
    try {
        return body();
    } catch (const Allowed&) {
        return std::nullopt;
    } catch (const std::exception& error) {
        broken(what, std::string("threw something else: ") + error.what());
    } catch (...) {
        broken(what, "threw something that is no std::exception");
    }
}

}  // namespace corvane::fuzz
