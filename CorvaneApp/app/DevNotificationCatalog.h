#pragma once
// The sample notifications of the demo session's "Test notifications": each kind with sample
// content, some delayed so that the owner can look away from the window before they arrive.

#include <string>
#include <vector>

namespace corvane {

struct DevNotificationEntry {
    enum class Kind { payoutIssued, workerOffline, dailySummary };
    Kind kind;
    std::string label;  // the row's button; delayed rows end in " · arrives in ~30 sec"
    std::string title;
    std::string body;
    double delaySeconds = 0;
    friend bool operator==(const DevNotificationEntry&, const DevNotificationEntry&) = default;
};

struct DevNotificationCatalog {
    static constexpr double delayedSeconds = 30;
    static const std::vector<DevNotificationEntry>& entries();
};

}  // namespace corvane
