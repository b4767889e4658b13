#pragma once
// The client for everything a signed-in owner sees: dashboard, earnings, top jobs, payout methods
// and preferences, the activity histogram and the published version. Separate from the work
// loop's client; every call is blocking, throws CoordinatorAPIError only, and retries nothing.

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/coordinator/CoordinatorAPIError.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

// The abstract form, so that the app model can be driven without a network.
class CoordinatorAPIProtocol {
  public:
    virtual ~CoordinatorAPIProtocol() = default;
    virtual WorkerDashboard dashboard(std::stop_token stop = {}) const = 0;
    virtual EarningsSummary earningsSummary(std::stop_token stop = {}) const = 0;
    // `days` absent and `allTime` false asks for the coordinator's default window.
    virtual std::vector<DailyEarning> dailyEarnings(std::optional<int> days, bool allTime,
                                                    std::stop_token stop = {}) const = 0;
    virtual EarningsByHour hourlyEarnings(std::optional<int> days, bool allTime,
                                          std::stop_token stop = {}) const = 0;
    virtual std::vector<JobRecord> topJobs(std::stop_token stop = {}) const = 0;
    virtual WorkerPayoutMethodsResponse payoutMethods(std::stop_token stop = {}) const = 0;
    virtual void addPayoutMethod(const AddPayoutMethodRequest& request,
                                 std::stop_token stop = {}) const = 0;
    virtual void setPrimaryPayoutMethod(const std::string& id, std::stop_token stop = {}) const = 0;
    virtual void removePayoutMethod(const std::string& id, std::stop_token stop = {}) const = 0;
    virtual PayoutPreferences putPayoutPrefs(const std::string& method, const std::string& schedule,
                                             std::stop_token stop = {}) const = 0;
    virtual ActivityHistogramResponse activityHistogram(const std::string& workerID, int days,
                                                        std::stop_token stop = {}) const = 0;
};

// The zone the owner lives in, as an IANA identifier ("Europe/Berlin"): $TZ, /etc/timezone, or
// the target of /etc/localtime; "UTC" when none says.
std::string currentTimeZoneIdentifier();

struct CoordinatorAPIOptions {
    std::shared_ptr<const http::Session> session;  // absent: one with the client's time-outs
    std::function<std::string()> timeZoneIdentifier = currentTimeZoneIdentifier;
};

class CoordinatorAPI final : public CoordinatorAPIProtocol {
  public:
    static constexpr double requestTimeoutSeconds = 15.0;
    static constexpr double resourceTimeoutSeconds = 30.0;
    static constexpr double appVersionTimeoutSeconds = 10.0;
    static constexpr const char* defaultProductionURL = "https://coordinator.corvane.computer";

    using Options = CoordinatorAPIOptions;

    CoordinatorAPI(std::string baseURL, std::string token, std::string workerID,
                   Options options = {});

    const std::string& baseURL() const { return baseURL_; }
    const std::string& workerID() const { return workerID_; }

    WorkerDashboard dashboard(std::stop_token stop = {}) const override;
    EarningsSummary earningsSummary(std::stop_token stop = {}) const override;
    std::vector<DailyEarning> dailyEarnings(std::optional<int> days, bool allTime,
                                            std::stop_token stop = {}) const override;
    EarningsByHour hourlyEarnings(std::optional<int> days, bool allTime,
                                  std::stop_token stop = {}) const override;
    std::vector<JobRecord> topJobs(std::stop_token stop = {}) const override;
    WorkerPayoutMethodsResponse payoutMethods(std::stop_token stop = {}) const override;
    void addPayoutMethod(const AddPayoutMethodRequest& request,
                         std::stop_token stop = {}) const override;
    void setPrimaryPayoutMethod(const std::string& id, std::stop_token stop = {}) const override;
    void removePayoutMethod(const std::string& id, std::stop_token stop = {}) const override;
    PayoutPreferences putPayoutPrefs(const std::string& method, const std::string& schedule,
                                     std::stop_token stop = {}) const override;
    ActivityHistogramResponse activityHistogram(const std::string& workerID, int days,
                                                std::stop_token stop = {}) const override;

    // The published version; needs no credentials.
    static AppVersion fetchAppVersion(std::string_view baseURL,
                                      std::shared_ptr<const http::Session> session = nullptr,
                                      std::stop_token stop = {});

    // `base` + "?" + "days=N", "all_time=true" and "tz=<zone>", those that apply, joined by "&".
    std::string earningsPath(std::string_view base, std::optional<int> days, bool allTime) const;
    // The zone as it goes in a query; "UTC" when it can't be encoded.
    std::string encodedTimeZone() const;

    // One call: the path resolved against the base URL, the headers, the status handled. Returns
    // the body of a 2xx answer.
    std::string request(std::string_view path, std::string_view method,
                        const std::optional<std::string>& body, bool authenticated,
                        std::stop_token stop = {}) const;

  private:
    template <typename Record>
    Record get(std::string_view path, std::stop_token stop) const;
    http::Request makeRequest(const std::string& url, std::string_view method,
                              bool authenticated) const;

    std::string baseURL_;
    std::string token_;
    std::string workerID_;
    std::shared_ptr<const http::Session> session_;
    std::function<std::string()> timeZoneIdentifier_;
};

}  // namespace corvane
