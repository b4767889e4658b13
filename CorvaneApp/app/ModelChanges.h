#pragma once
// Which parts of the app model changed, and the batching that tells observers once per batch of
// edits with every part that changed in it. Lives on the main sequence.

#include <cstdint>
#include <functional>
#include <initializer_list>

#include "CorvaneApp/platform/Observers.h"

namespace corvane {

// The parts a screen may care about; one screen re-renders only for the parts it shows.
enum class ModelPart : std::uint16_t {
    status = 1 << 0,      // phase and the status words
    account = 1 << 1,     // balances, payouts, activity, top jobs, refresh time, published version
    earnings = 1 << 2,    // today, estimates, the series and the ranges
    resources = 1 << 3,   // the CPU and RAM histories and live values
    pause = 1 << 4,       // the owner's pause and a temporary pause's subtitle
    models = 1 << 5,      // model download progress and the installed models
    navigation = 1 << 6,  // the page a surface asks to show
    machine = 1 << 7,     // this computer as the screens describe it
};

class ModelParts {
  public:
    constexpr ModelParts() = default;
    constexpr ModelParts(std::initializer_list<ModelPart> parts) {
        for (auto part : parts) insert(part);
    }
    constexpr void insert(ModelPart part) { bits_ |= static_cast<std::uint16_t>(part); }
    constexpr void insert(ModelParts parts) { bits_ |= parts.bits_; }
    constexpr bool contains(ModelPart part) const {
        return (bits_ & static_cast<std::uint16_t>(part)) != 0;
    }
    constexpr bool intersects(ModelParts parts) const { return (bits_ & parts.bits_) != 0; }
    constexpr bool empty() const { return bits_ == 0; }
    friend constexpr bool operator==(ModelParts, ModelParts) = default;

  private:
    std::uint16_t bits_ = 0;
};

class ModelChanges {
  public:
    // Marks made while a Batch lives are told once, when the outermost batch ends.
    class Batch {
      public:
        explicit Batch(ModelChanges& changes) : changes_(changes) { ++changes_.depth_; }
        ~Batch() {
            if (--changes_.depth_ == 0) changes_.flush();
        }
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

      private:
        ModelChanges& changes_;
    };

    // Outside a batch, a mark is told at once.
    void mark(ModelPart part) {
        pending_.insert(part);
        if (depth_ == 0) flush();
    }
    // Assigns and marks `part` when the value differs; true when it did.
    template <typename T, typename U>
    bool assign(T& field, U&& value, ModelPart part) {
        if (field == value) return false;
        field = std::forward<U>(value);
        mark(part);
        return true;
    }

    [[nodiscard]] Subscription observe(std::function<void(ModelParts)> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

  private:
    void flush() {
        if (pending_.empty()) return;
        const ModelParts changed = pending_;
        pending_ = {};
        observers_.notify(changed);
    }

    int depth_ = 0;
    ModelParts pending_;
    ObserverList<ModelParts> observers_;
};

}  // namespace corvane
