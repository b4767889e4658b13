#pragma once
// Any JSON value, kept as received: the claim's free-form "input_config".

#include <map>
#include <string>
#include <variant>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

struct AnyJSONValue {
    using Array = std::vector<AnyJSONValue>;
    using Object = std::map<std::string, AnyJSONValue>;
    // Cases in the wire order: string, number, bool, array, object, null.
    std::variant<std::string, double, bool, Array, Object, std::nullptr_t> value = nullptr;

    bool operator==(const AnyJSONValue&) const = default;

    // Every JSON number becomes a number, `true` a bool. Throws DecodingError for what has no case.
    static AnyJSONValue decode(const Json& json);
    Json encode() const;
};

}  // namespace corvane
