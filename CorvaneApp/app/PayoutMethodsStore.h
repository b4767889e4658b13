#pragma once
// The owner's payout destinations as the coordinator keeps them: the list, adding one, making one
// primary and removing one. The calls run on a background runner and their answers come back on
// the main sequence; observers hear of each change there.
//
// An add whose answer was lost (the connection dropped) may have been carried out. Before the next
// add the list is fetched again, and a destination already on it counts as added, so a retry
// never leaves the same destination twice.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/platform/BackgroundRunner.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

class PayoutMethodsStore {
  public:
    using ClientProvider = std::function<std::shared_ptr<const CoordinatorAPIProtocol>()>;
    // Absent: accepted.
    using AddDone = std::function<void(const std::optional<CoordinatorAPIError>&)>;

    enum class LoadFailure {
        noClient,     // not enrolled: nothing to ask
        unavailable,  // the coordinator has no such endpoint yet
        failed,       // anything else; a retry may help
    };
    struct ActionFailure {
        enum class Kind { makePrimary, remove, cannotRemove };
        Kind kind;
        WorkerPayoutMethod method;
        std::optional<std::string> detail;  // the coordinator's own words, when it gave some
        friend bool operator==(const ActionFailure&, const ActionFailure&) = default;
    };
    struct State {
        std::vector<WorkerPayoutMethod> methods;  // as the coordinator listed them
        std::optional<std::string> primaryMethodId;
        bool hasLoaded = false;  // a list has arrived at least once
        bool isRefreshing = false;
        std::optional<LoadFailure> loadFailure;  // of the last load
        bool isActing = false;                   // a make-primary or removal is under way
        std::optional<ActionFailure> methodActionError;
        friend bool operator==(const State&, const State&) = default;
    };

    PayoutMethodsStore(Executor& mainSequence, std::shared_ptr<BackgroundRunner> runner,
                       ClientProvider client);
    ~PayoutMethodsStore();
    PayoutMethodsStore(const PayoutMethodsStore&) = delete;
    PayoutMethodsStore& operator=(const PayoutMethodsStore&) = delete;

    [[nodiscard]] Subscription observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }
    const State& state() const { return state_; }

    // Fetches the list; a newer refresh replaces one in flight.
    void refresh();
    // Sends the new destination and then fetches the list, so that `done` finds it listed. Not
    // enrolled, `done` hears `unauthorized` at once. One add at a time: a call while another is
    // under way is ignored (the sheet that asks waits for its answer).
    void add(AddPayoutMethodRequest request, AddDone done);
    bool isAdding() const { return addJob_ != nullptr; }
    // One action at a time; ignored while another is under way.
    void makePrimary(const WorkerPayoutMethod& method);
    // A method the coordinator marked as not removable is refused without asking.
    void remove(const WorkerPayoutMethod& method);

    // Whether `method` is the destination `request` would add.
    static bool sameDestination(const WorkerPayoutMethod& method,
                                const AddPayoutMethodRequest& request);
    // 404 and its kin: the coordinator does not serve payout methods yet.
    static bool isUnavailable(const CoordinatorAPIError& error);

  private:
    struct Listing {
        std::optional<WorkerPayoutMethodsResponse> response;
        std::optional<LoadFailure> failure;
    };
    static Listing fetchList(const CoordinatorAPIProtocol& api, std::stop_token stop);
    std::shared_ptr<const CoordinatorAPIProtocol> client() const;
    void applyListing(const Listing& listing);
    template <typename Work>
    std::unique_ptr<BackgroundJob> runInBackground(Work work);
    void changed();
    void act(const WorkerPayoutMethod& method, ActionFailure::Kind kind);

    Executor& main_;
    std::shared_ptr<BackgroundRunner> runner_;
    ClientProvider client_;
    State state_;
    bool lastAddUncertain_ = false;
    std::uint64_t refreshGeneration_ = 0;  // a replaced refresh's late answer is dropped
    std::unique_ptr<BackgroundJob> refreshJob_;
    std::unique_ptr<BackgroundJob> addJob_;
    std::unique_ptr<BackgroundJob> actionJob_;
    ObserverList<> observers_;
    // Lets answers posted from background work find out whether the store still exists.
    std::shared_ptr<PayoutMethodsStore*> alive_;
};

}  // namespace corvane
