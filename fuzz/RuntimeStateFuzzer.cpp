// Feeds a worker-runtime-state.json, as the earlier daemon (or a half-finished write of it) leaves
// it, to the record's reader and to the parser of its timestamps.
//
// Holds: the file either reads or fails with DecodingError, nothing else; a record read survives
// its own encoding; every timestamp parses or is absent without undefined behaviour, and one that
// parses reads as the same moment when written again in UTC.

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"
#include "fuzz/FuzzCheck.h"

namespace corvane {
namespace {

// "yyyy-MM-ddTHH:mm:ss.nnnnnnnnnZ" of a moment.
std::string inUTC(Date date) {
    using namespace std::chrono;
    const auto secondsPart = floor<seconds>(date);
    const auto nanos = duration_cast<nanoseconds>(date - secondsPart).count();
    const std::time_t whole = system_clock::to_time_t(secondsPart);
    std::tm parts{};
    gmtime_r(&whole, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%09lldZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<long long>(nanos));
    return text;
}

void checkTimestamp(std::string_view text) {
    auto date = RuntimeStateDateParser::parse(text);
    if (!date) return;
    const auto written = inUTC(*date);
    auto again = RuntimeStateDateParser::parse(written);
    fuzz::require(again && std::abs(secondsBetween(*date, *again)) < 1e-6,
                  "a timestamp reads as the same moment written in UTC",
                  std::string(text) + " -> " + written);
}

void checkTimestampField(const std::optional<std::string>& text) {
    if (text) checkTimestamp(*text);
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const auto text = fuzz::textOf(data, size);
    checkTimestamp(text);

    auto state = fuzz::attempt<DecodingError>("the runtime state throws only DecodingError",
                                              [&] { return RuntimeState::parse(text); });
    if (!state) return 0;
    auto wire = state->encode().dump();
    auto again = fuzz::attempt<DecodingError>("an encoded runtime state reads",
                                              [&] { return RuntimeState::parse(wire); });
    fuzz::require(again && *again == *state, "a runtime state survives its encoding", wire);

    for (const auto* timestamp :
         {&state->currentShardStartedAt, &state->claimedAt, &state->updatedAt}) {
        checkTimestampField(*timestamp);
    }
    if (state->eligibility) {
        checkTimestampField(state->eligibility->lastClaimableAt);
        checkTimestampField(state->eligibility->lastBlockedAt);
        checkTimestampField(state->eligibility->claimedAt);
    }
    (void)runtimeEffectivePercent(*state);
    return 0;
}
