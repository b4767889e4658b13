#include "CorvaneApp/app/AccountRefresher.h"

#include <cmath>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
AccountRefresher::AccountRefresher(Executor& mainSequence, std::shared_ptr<BackgroundRunner> runner,
                                   std::shared_ptr<SleepProvider> sleeper)
    : main_(mainSequence),
      runner_(std::move(runner)),
      sleeper_(std::move(sleeper)),
      alive_(std::make_shared<AccountRefresher*>(this)) {}

AccountRefresher::~AccountRefresher() {
    alive_.reset();
    // Cancelling joins: a body still waiting on the network is stopped first.
    refreshJob_.reset();
    rangeJob_.reset();
    histogramJob_.reset();
}

std::function<void(std::function<void(AccountRefresher&)>)> AccountRefresher::poster() {
    // Taken on the main sequence when a job starts: the job never reads the refresher's fields,
    // which its destructor may be tearing down while the job winds up.
    return [main = &main_, alive = std::weak_ptr<AccountRefresher*>(alive_)](
               std::function<void(AccountRefresher&)> work) {
        main->post([alive, work = std::move(work)] {
            if (auto self = alive.lock()) work(**self);
        });
    };
}

std::optional<EarningsRangeSnapshot> AccountRefresher::loadEarningsSnapshot(
    const CoordinatorAPIProtocol& api, EarningsRange range, std::stop_token stop) {
    try {
        const auto days = earningsRangeDays(range);
        auto rows = api.dailyEarnings(days, !days, stop);
        auto hours = api.hourlyEarnings(days, !days, stop).hours;
        return EarningsRangeSnapshot::fromRows(std::move(rows), std::move(hours));
    } catch (const std::exception& error) {
        log::get("AppModel")
            ->error("Supplemental earnings fetch failed for {}: {}", rawValue(range), error.what());
        return std::nullopt;
    }
}

void AccountRefresher::refresh(API api, FetchAppVersion fetchVersion, EarningsRange visible,
                               std::function<void(Outcome)> done) {
    if (refreshJob_) return;
    refreshJob_ = runner_->run([deliver = poster(), sleeper = sleeper_, api = std::move(api),
                                fetchVersion = std::move(fetchVersion), visible,
                                done = std::move(done)](std::stop_token stop) {
        auto outcome = fetch(*sleeper, api, fetchVersion, visible, stop);
        if (stop.stop_requested()) return;
        deliver([done, outcome = std::move(outcome)](AccountRefresher& self) {
            self.refreshJob_.reset();
            done(outcome);
        });
    });
}

AccountRefresher::Outcome AccountRefresher::fetch(SleepProvider& sleeper, const API& api,
                                                  const FetchAppVersion& fetchVersion,
                                                  EarningsRange visible, std::stop_token stop) {
    Outcome outcome;
    if (fetchVersion) {
        try {
            outcome.appVersion = fetchVersion(stop);
        } catch (const std::exception&) {  // the version check never gets in the way
        }
    }
    if (!api) {
        log::get("AppModel")
            ->info(
                "No coordinator API client (worker not enrolled), skipping authenticated refresh");
        return outcome;
    }
    for (int attempt = 1; attempt <= dashboardAttempts && !stop.stop_requested(); ++attempt) {
        std::string failure;
        try {
            outcome.dashboard = api->dashboard(stop);
            outcome.month = loadEarningsSnapshot(*api, EarningsRange::month, stop);
            bool supplementalFailed = !outcome.month;
            if (visible != EarningsRange::month) {
                if (auto snapshot = loadEarningsSnapshot(*api, visible, stop))
                    outcome.visible = {visible, *snapshot};
            }
            try {
                outcome.summary = api->earningsSummary(stop);
            } catch (const std::exception& error) {
                log::get("AppModel")
                    ->error("Supplemental dashboard fetch failed for /earnings/summary: {}",
                            error.what());
                supplementalFailed = true;
            }
            try {
                outcome.topJobs = api->topJobs(stop);
            } catch (const std::exception& error) {
                log::get("AppModel")
                    ->error("Supplemental dashboard fetch failed for /jobs/top: {}", error.what());
                supplementalFailed = true;
            }
            if (supplementalFailed) {
                log::get("AppModel")
                    ->info(
                        "API refresh completed with supplemental endpoint failures; leaving "
                        "stale-data indicator active");
            } else {
                outcome.succeeded = true;
                log::get("AppModel")->info("API refresh succeeded (attempt {})", attempt);
            }
            return outcome;
        } catch (const CoordinatorAPIError& error) {
            if (error.kind() == CoordinatorAPIError::Kind::unauthorized) {
                log::get("AppModel")->error("401 from coordinator — signing out");
                outcome.signOut = true;
                return outcome;
            }
            if (error.isServerError()) {
                log::get("AppModel")
                    ->error("5xx ({}) on attempt {}/{}", error.statusCode(), attempt,
                            dashboardAttempts);
                if (attempt < dashboardAttempts) {
                    if (!sleeper.sleep(std::pow(2.0, attempt), stop)) return outcome;
                    continue;
                }
            } else {
                log::get("AppModel")
                    ->error("Network error refreshing from coordinator: {}", error.what());
            }
            failure = error.what();
        } catch (const std::exception& error) {
            log::get("AppModel")
                ->error("Network error refreshing from coordinator: {}", error.what());
            failure = error.what();
        }
        log::get("AppModel")
            ->error("API refresh failed after retries: {}. Keeping last-good values.", failure);
        return outcome;
    }
    return outcome;
}

void AccountRefresher::loadRange(API api, EarningsRange range,
                                 std::function<void(std::optional<EarningsRangeSnapshot>)> done) {
    auto previous = std::move(rangeJob_);  // cancelled once the new one is in place
    rangeJob_ = runner_->run([deliver = poster(), api = std::move(api), range,
                              done = std::move(done)](std::stop_token stop) {
        auto snapshot = loadEarningsSnapshot(*api, range, stop);
        deliver([done, snapshot = std::move(snapshot)](AccountRefresher&) { done(snapshot); });
    });
}

void AccountRefresher::loadHistogram(
    API api, std::string workerID, int days,
    std::function<void(std::optional<ActivityHistogramResponse>, std::optional<std::string>)>
        done) {
    histogramJob_ =
        runner_->run([deliver = poster(), api = std::move(api), workerID = std::move(workerID),
                      days, done = std::move(done)](std::stop_token stop) {
            std::optional<ActivityHistogramResponse> response;
            std::optional<std::string> error;
            try {
                response = api->activityHistogram(workerID, days, stop);
            } catch (const std::exception& failure) {
                error = failure.what();
            }
            if (stop.stop_requested()) return;
            deliver([done, response = std::move(response),
                     error = std::move(error)](AccountRefresher&) { done(response, error); });
        });
}

void AccountRefresher::loadAppVersion(FetchAppVersion fetchVersion,
                                      std::function<void(std::optional<AppVersion>)> done) {
    versionJob_ = runner_->run([deliver = poster(), fetchVersion = std::move(fetchVersion),
                                done = std::move(done)](std::stop_token stop) {
        std::optional<AppVersion> version;
        try {
            version = fetchVersion(stop);
        } catch (const std::exception& error) {
            log::get("AppModel")->info("version check failed: {}", error.what());
        }
        if (stop.stop_requested()) return;
        deliver([done, version = std::move(version)](AccountRefresher&) { done(version); });
    });
}

}  // namespace corvane
