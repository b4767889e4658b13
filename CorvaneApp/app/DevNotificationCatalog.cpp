#include "CorvaneApp/app/DevNotificationCatalog.h"

#include "CorvaneApp/app/NotificationBridge.h"

namespace corvane {

const std::vector<DevNotificationEntry>& DevNotificationCatalog::entries() {
    using K = DevNotificationEntry::Kind;
    static const std::string delayed = " · arrives in ~30 sec";
    static const std::string payoutTitle = NotificationBridge::payoutTitle(12.40, "paypal");
    static const std::string payoutBody(NotificationBridge::payoutBody);
    static const std::string offline(NotificationBridge::offlineTitle);
    static const std::string offlineBody = "Worker hasn't checked in for 12 minutes.";
    static const std::vector<DevNotificationEntry> catalogue{
        {K::payoutIssued, "Payout issued", payoutTitle, payoutBody, 0},
        {K::payoutIssued, "Payout issued" + delayed, payoutTitle, payoutBody, delayedSeconds},
        {K::workerOffline, offline, offline, offlineBody, 0},
        {K::workerOffline, offline + delayed, offline, offlineBody, delayedSeconds},
        {K::dailySummary, "Daily earnings summary",
         std::string(NotificationBridge::dailySummaryTitle),
         "Schedules the 10pm recurring summary with sample totals. Won't fire instantly — the "
         "system will deliver it at the next 22:00 boundary",
         0},
    };
    return catalogue;
}

}  // namespace corvane
