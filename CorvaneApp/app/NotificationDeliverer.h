#pragma once
// What the notifications need of the desktop: whether notifications may be shown, to ask for
// that, to show one now (replacing an earlier one of the same id), to take one back, and to hear
// which action the owner chose on one. The desktop's notification service stands behind it in the
// tray application; a headless worker has one that shows nothing.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

enum class NotificationAuthorizationStatus { authorized, denied, notDetermined, unknown };

struct NotificationAction {
    std::string identifier;  // "diagnose"
    std::string title;       // "Diagnose"
    friend bool operator==(const NotificationAction&, const NotificationAction&) = default;
};

struct NotificationRequest {
    std::string id;  // a later request of the same id replaces the earlier notification
    std::string title;
    std::string body;
    std::string categoryIdentifier;  // "worker-offline"; may be empty
    std::vector<NotificationAction> actions;
    friend bool operator==(const NotificationRequest&, const NotificationRequest&) = default;
};

// Every callback comes on the main sequence, once.
class NotificationDeliverer {
  public:
    virtual ~NotificationDeliverer() = default;

    virtual void authorizationStatus(std::function<void(NotificationAuthorizationStatus)> done) = 0;
    // `granted`, or an error's text when asking failed.
    virtual void requestAuthorization(
        std::function<void(bool granted, std::optional<std::string> error)> done) = 0;
    // Absent error: shown.
    virtual void deliver(const NotificationRequest& request,
                         std::function<void(std::optional<std::string> error)> done) = 0;
    // Takes back a notification of this id, shown or not; nothing when there is none.
    virtual void withdraw(const std::string& id) = 0;
    // Called with a notification's id and the action's identifier when the owner picks one.
    virtual void setActionHandler(
        std::function<void(const std::string& id, const std::string& action)> handler) = 0;
};

// Shows nothing: a worker without a desktop still logs every attempt, and nothing else happens.
class SilentNotificationDeliverer final : public NotificationDeliverer {
  public:
    void authorizationStatus(std::function<void(NotificationAuthorizationStatus)> done) override {
        done(NotificationAuthorizationStatus::authorized);
    }
    void requestAuthorization(std::function<void(bool, std::optional<std::string>)> done) override {
        done(true, std::nullopt);
    }
    void deliver(const NotificationRequest&,
                 std::function<void(std::optional<std::string>)> done) override {
        done(std::nullopt);
    }
    void withdraw(const std::string&) override {}
    void setActionHandler(std::function<void(const std::string&, const std::string&)>) override {}
};

}  // namespace corvane
