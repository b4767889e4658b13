#pragma once
// The records of pushing the payout method and schedule to the coordinator after a local save,
// and the hooks through which the application reaches the coordinator for it.

#include <functional>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>

namespace corvane {

struct PayoutPrefsSyncPayload {
    std::string method;
    std::string schedule;

    friend bool operator==(const PayoutPrefsSyncPayload&, const PayoutPrefsSyncPayload&) = default;
};

struct QueuedPayoutPrefsSync {
    PayoutPrefsSyncPayload payload;
    std::string defaultsNamespace;  // "<coordinator_url>|<worker_id>"

    friend bool operator==(const QueuedPayoutPrefsSync&, const QueuedPayoutPrefsSync&) = default;
};

// How the coordinator refused a payout change, or why it couldn't be asked.
class PayoutPrefsSyncError : public std::runtime_error {
  public:
    enum class Kind { setupRequired, payoutCycleConflict, missingCredentials };

    static PayoutPrefsSyncError setupRequired(std::string requiredSetup,
                                              std::optional<std::string> detail = {});
    static PayoutPrefsSyncError payoutCycleConflict(std::optional<std::string> detail = {});
    static PayoutPrefsSyncError missingCredentials();

    Kind kind() const { return kind_; }
    // The setup the method needs ("paypal_email", ...); empty for the other kinds.
    const std::string& requiredSetup() const { return requiredSetup_; }
    const std::optional<std::string>& detail() const { return detail_; }

  private:
    PayoutPrefsSyncError(Kind kind, std::string requiredSetup, std::optional<std::string> detail);

    Kind kind_;
    std::string requiredSetup_;
    std::optional<std::string> detail_;
};

// Installed by the application. Both are blocking and run off the main sequence; they should
// return early once `stop` is requested.
struct PayoutPrefsHooks {
    // Sends the pair; throws PayoutPrefsSyncError for a refusal, anything else for a failure.
    std::function<void(const PayoutPrefsSyncPayload&, std::stop_token stop)> push;
    // The coordinator's current pair; absent (or a throw) when it can't be had.
    std::function<std::optional<PayoutPrefsSyncPayload>(std::stop_token stop)> fetchBaseline;
};

}  // namespace corvane
