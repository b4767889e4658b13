#pragma once
// Helpers for the explicit key tables of the wire records: typed reads that say which key was
// wrong, and writes that leave absent optionals out.

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

namespace corvane {

using Json = nlohmann::json;

// A body or value that does not fit its record. The text names the key, for the logs.
class DecodingError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Parses text as JSON; throws DecodingError on malformed or truncated input, and on a number too
// large for a double.
Json parseJson(std::string_view text);

namespace json {

inline const Json* member(const Json& object, const char* key) {
    if (!object.is_object())
        throw DecodingError("The data couldn't be read: expected a JSON object");
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return nullptr;
    return &*it;
}

[[noreturn]] inline void wrongType(const char* key, const char* expected) {
    throw DecodingError(std::string("The data couldn't be read: \"") + key + "\" is not " +
                        expected);
}

// Integers accept any JSON number with an integral value in range, as the coordinator's
// encoders may write 3600.0.
inline std::optional<std::int64_t> asInteger(const Json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<std::uint64_t>() >
                static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return std::nullopt;
        return value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        if (std::isfinite(d) && d == std::floor(d) && d >= -9.2e18 && d <= 9.2e18)
            return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

inline std::string requireString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value)
        throw DecodingError(std::string("The data couldn't be read: key \"") + key +
                            "\" is missing");
    if (!value->is_string()) wrongType(key, "a string");
    return value->get<std::string>();
}

inline std::optional<std::string> optionalString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_string()) wrongType(key, "a string");
    return value->get<std::string>();
}

inline std::optional<double> optionalDouble(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_number()) wrongType(key, "a number");
    return value->get<double>();
}

inline std::optional<std::int64_t> optionalInteger(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) return std::nullopt;
    auto integer = asInteger(*value);
    if (!integer) wrongType(key, "an integer");
    return integer;
}

template <typename T>
void putIfPresent(Json& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = *value;
}

}  // namespace json
}  // namespace corvane
