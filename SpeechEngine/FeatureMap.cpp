#include "SpeechEngine/FeatureMap.h"

namespace speech {

FeatureMap::FeatureMap(std::initializer_list<std::pair<std::string, MultiArray>> entries) {
    for (const auto& [name, array] : entries) set(name, array);
}

FeatureMap::Entry* FeatureMap::entry(std::string_view name) {
    for (auto& e : entries_) {
        if (e.name == name) return &e;
    }
    return nullptr;
}

const MultiArray* FeatureMap::find(std::string_view name) const {
    for (const auto& e : entries_) {
        if (e.present && e.name == name) return &e.array;
    }
    return nullptr;
}

MultiArray* FeatureMap::find(std::string_view name) {
    auto* e = entry(name);
    return e && e->present ? &e->array : nullptr;
}

MultiArray& FeatureMap::set(std::string_view name, MultiArray array) {
    if (auto* e = entry(name)) {
        e->array = std::move(array);
        e->present = true;
        return e->array;
    }
    entries_.push_back(Entry{std::string(name), std::move(array), true});
    return entries_.back().array;
}

MultiArray& FeatureMap::prepare(std::string_view name, std::span<const std::int64_t> shape,
                                ElementType type) {
    auto* e = entry(name);
    if (!e) {
        entries_.push_back(
            Entry{std::string(name),
                  MultiArray(std::vector<std::int64_t>(shape.begin(), shape.end()), type), true});
        return entries_.back().array;
    }
    e->array.reshape(shape, type);
    e->present = true;
    return e->array;
}

void FeatureMap::markAllAbsent() {
    for (auto& e : entries_) e.present = false;
}

std::vector<std::string> FeatureMap::names() const {
    std::vector<std::string> result;
    for (const auto& e : entries_) {
        if (e.present) result.push_back(e.name);
    }
    return result;
}

std::string FeatureMap::namesText() const {
    std::string text;
    for (const auto& n : names()) {
        if (!text.empty()) text += ", ";
        text += n;
    }
    return text;
}

}  // namespace speech
