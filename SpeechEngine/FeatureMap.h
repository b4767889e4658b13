#pragma once
// Named arrays going into or coming out of one network run. An output map doubles as the set of
// preallocated output buffers: a network writes into the array already held under a name, so a
// loop that reuses one map allocates nothing after its first run.

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "SpeechEngine/MultiArray.h"

namespace speech {

class FeatureMap {
  public:
    FeatureMap() = default;
    FeatureMap(std::initializer_list<std::pair<std::string, MultiArray>> entries);

    // The array under `name`, or null when it is absent.
    const MultiArray* find(std::string_view name) const;
    MultiArray* find(std::string_view name);
    bool contains(std::string_view name) const { return find(name) != nullptr; }

    // Stores `array` under `name`, replacing what was there.
    MultiArray& set(std::string_view name, MultiArray array);
    // The array under `name` made a zeroed contiguous array of `shape`, reusing its storage.
    // This is how a network writes an output.
    MultiArray& prepare(std::string_view name, std::span<const std::int64_t> shape,
                        ElementType type = ElementType::float32);
    MultiArray& prepare(std::string_view name, std::initializer_list<std::int64_t> shape,
                        ElementType type = ElementType::float32) {
        return prepare(name, std::span<const std::int64_t>(shape.begin(), shape.size()), type);
    }

    // Marks every entry absent but keeps its storage for the next prepare(): called before a run
    // so that an output the network does not produce is not read from an earlier run.
    void markAllAbsent();

    // Names of the present entries, in insertion order.
    std::vector<std::string> names() const;
    // "a, b, c"
    std::string namesText() const;

  private:
    struct Entry {
        std::string name;
        MultiArray array;
        bool present = true;
    };
    Entry* entry(std::string_view name);

    std::vector<Entry> entries_;
};

}  // namespace speech
