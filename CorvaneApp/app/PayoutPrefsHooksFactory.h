#pragma once
// The payout-preference hooks of the settings store, through the account client: the push sends
// the pair and turns the coordinator's two refusals into the store's, and the baseline is the
// pair the coordinator's dashboard reports ("ach" and "weekly" where it names none).

#include <functional>
#include <memory>

#include "CorvaneApp/config/PayoutPrefsSync.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"

namespace corvane {

// `client` is asked on each call, off the main sequence; null means not enrolled (the store's
// missing-credentials error).
PayoutPrefsHooks makePayoutPrefsHooks(
    std::function<std::shared_ptr<const CoordinatorAPIProtocol>()> client);

}  // namespace corvane
