#include "CorvaneApp/app/AccountState.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/app/WorkerStatus.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

void AccountState::applyDashboard(const WorkerDashboard& dashboard) {
    ModelChanges::Batch batch(changes_);
    constexpr auto part = ModelPart::account;
    changes_.assign(coordinatorWorkerStatus_,
                    dashboard.workerState ? dashboard.workerState->status : std::nullopt, part);
    changes_.assign(heldBalance_, std::optional<double>(dashboard.earningsUSD.held), part);
    changes_.assign(availableBalance_, std::optional<double>(dashboard.earningsUSD.available),
                    part);
    changes_.assign(lifetimeEarnings_,
                    std::optional<double>(dashboard.payoutSummary.totalEarnedUSD), part);
    changes_.assign(payoutHistory_, dashboard.payoutHistory, part);
    changes_.assign(recentActivity_, dashboard.activity, part);
}

void AccountState::applyLatestAppVersion(const AppVersion& version,
                                         std::string_view runningVersion) {
    ModelChanges::Batch batch(changes_);
    changes_.assign(latestAppVersion_, std::optional<AppVersion>(version), ModelPart::account);
    // The banner waits for an installer; nothing is downloaded or replaced.
    changes_.assign(updateAvailable_, false, ModelPart::account);
    if (isVersionNewer(version.version, runningVersion)) {
        log::get("AppModel")
            ->info(
                "update available: {} (running {}) — banner suppressed until auto-update pipeline "
                "lands",
                version.version, runningVersion);
    }
}

void AccountState::setTopJobs(std::vector<JobRecord> jobs) {
    changes_.assign(topJobs_, std::move(jobs), ModelPart::account);
}

void AccountState::setLastRefreshAt(std::optional<Date> date) {
    changes_.assign(lastRefreshAt_, date, ModelPart::account);
}

void AccountState::reset() {
    ModelChanges::Batch batch(changes_);
    constexpr auto part = ModelPart::account;
    changes_.assign(heldBalance_, std::nullopt, part);
    changes_.assign(availableBalance_, std::nullopt, part);
    changes_.assign(lifetimeEarnings_, std::nullopt, part);
    changes_.assign(payoutHistory_, std::vector<WorkerDashboard::PayoutDisbursement>{}, part);
    changes_.assign(recentActivity_, std::vector<WorkerDashboard::ActivityItem>{}, part);
    changes_.assign(lastRefreshAt_, std::nullopt, part);
}

bool AccountState::coordinatorReportsBusy() const {
    auto trimmed = corvaneTrimmed(coordinatorWorkerStatus_);
    return trimmed && asciiLowercased(*trimmed) == "busy";
}

std::vector<WorkerDashboard::ActivityItem> AccountState::recentEstimatedActivity(
    Date now, std::int64_t windowMinutes) const {
    const Date from = addSeconds(now, -double(windowMinutes) * 60);
    std::vector<WorkerDashboard::ActivityItem> out;
    for (const auto& item : recentActivity_) {
        if (item.status != "estimated") continue;
        auto created = AppModelDateParser::parseCoordinatorTimestamp(item.createdAt);
        if (created && *created >= from && *created <= now) out.push_back(item);
    }
    return out;
}

bool AccountState::isVersionNewer(std::string_view version, std::string_view current) {
    auto parse = [](std::string_view text) {
        std::vector<long> parts;
        while (true) {
            const auto dot = text.find('.');
            const std::string piece(text.substr(0, dot));
            char* end = nullptr;
            const long value = std::strtol(piece.c_str(), &end, 10);
            parts.push_back(end && *end == '\0' && !piece.empty() ? value : 0);
            if (dot == std::string_view::npos) break;
            text.remove_prefix(dot + 1);
        }
        return parts;
    };
    const auto a = parse(version);
    const auto b = parse(current);
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        const long x = i < a.size() ? a[i] : 0;
        const long y = i < b.size() ? b[i] : 0;
        if (x != y) return x > y;
    }
    return false;
}

}  // namespace corvane
