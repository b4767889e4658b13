// Feeds one JSON text, as the coordinator sends it for a claim, to the claim's decoder and to the
// free-form value type of its "input_config".
//
// Holds: malformed or ill-typed JSON fails with DecodingError and nothing else; every JSON value
// has a case and keeps it through encoding; a decoded claim survives its own wire form.

#include <cstdint>

#include "CorvaneApp/coordinator/AnyJSONValue.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    auto json = fuzz::attempt<DecodingError>("parseJson throws only DecodingError",
                                             [&] { return parseJson(fuzz::textOf(data, size)); });
    if (!json) return 0;

    auto value = fuzz::attempt<DecodingError>("AnyJSONValue throws only DecodingError",
                                              [&] { return AnyJSONValue::decode(*json); });
    fuzz::require(value.has_value(), "every JSON value has a case");
    auto again = fuzz::attempt<DecodingError>(
        "an encoded AnyJSONValue decodes", [&] { return AnyJSONValue::decode(value->encode()); });
    fuzz::require(again && *again == *value, "an AnyJSONValue survives its encoding", json->dump());

    auto claim = fuzz::attempt<DecodingError>("ShardClaim throws only DecodingError",
                                              [&] { return ShardClaim::decode(*json); });
    if (!claim) return 0;
    auto wire = claim->encode().dump();
    auto decoded = fuzz::attempt<DecodingError>(
        "a claim's wire form decodes", [&] { return ShardClaim::decode(parseJson(wire)); });
    fuzz::require(decoded && *decoded == *claim, "a claim survives its own wire form", wire);
    return 0;
}
