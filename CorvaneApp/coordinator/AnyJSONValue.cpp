#include "CorvaneApp/coordinator/AnyJSONValue.h"

namespace corvane {

AnyJSONValue AnyJSONValue::decode(const Json& json) {
    if (json.is_null()) return {};
    if (json.is_boolean()) return {json.get<bool>()};
    if (json.is_number()) return {json.get<double>()};
    if (json.is_string()) return {json.get<std::string>()};
    if (json.is_array()) {
        Array items;
        for (const auto& item : json) items.push_back(decode(item));
        return {std::move(items)};
    }
    if (json.is_object()) {
        Object members;
        for (const auto& [key, item] : json.items()) members.emplace(key, decode(item));
        return {std::move(members)};
    }
    throw DecodingError("Unsupported JSON value");
}

Json AnyJSONValue::encode() const {
    struct Encoder {
        Json operator()(const std::string& s) const { return s; }
        Json operator()(double d) const { return d; }
        Json operator()(bool b) const { return b; }
        Json operator()(const Array& items) const {
            Json out = Json::array();
            for (const auto& item : items) out.push_back(item.encode());
            return out;
        }
        Json operator()(const Object& members) const {
            Json out = Json::object();
            for (const auto& [key, item] : members) out[key] = item.encode();
            return out;
        }
        Json operator()(std::nullptr_t) const { return nullptr; }
    };
    return std::visit(Encoder{}, value);
}

}  // namespace corvane
