#pragma once
// A plain observer list for values that live on the main sequence: subscribers get a callback
// per change and stay subscribed for as long as they hold their Subscription.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace corvane {

// Ends its subscription when destroyed or reset. Safe to outlive the list it came from.
class Subscription {
  public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, {})) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            cancel_ = std::exchange(other.cancel_, {});
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (auto cancel = std::exchange(cancel_, {})) cancel();
    }
    void cancel() { reset(); }

  private:
    std::function<void()> cancel_;
};

// Not thread-safe: subscribe, notify and unsubscribe on the sequence that owns the list. A
// callback may unsubscribe itself or others while being notified.
template <typename... Args>
class ObserverList {
  public:
    using Callback = std::function<void(Args...)>;

    [[nodiscard]] Subscription subscribe(Callback callback) {
        auto id = state_->nextID++;
        state_->callbacks.emplace(id, std::move(callback));
        return Subscription([weak = std::weak_ptr<State>(state_), id] {
            if (auto state = weak.lock()) state->callbacks.erase(id);
        });
    }

    void notify(const Args&... args) const {
        auto state = state_;
        auto snapshot = state->callbacks;
        for (auto& [id, callback] : snapshot) {
            if (state->callbacks.count(id)) callback(args...);
        }
    }

    size_t size() const { return state_->callbacks.size(); }

  private:
    struct State {
        std::map<std::uint64_t, Callback> callbacks;
        std::uint64_t nextID = 1;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace corvane
