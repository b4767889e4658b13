#pragma once
// What the page tests' sessions have in common beyond their model and settings store: no
// onboarding, no login item of their own, notifications that are only logged (into a scratch
// folder), and no uninstall (pages reach it only through a button these tests never press).

#include <memory>
#include <optional>
#include <stdexcept>

#include "CorvaneApp/app/Session.h"
#include "tests/support/ScratchFolder.h"

namespace corvane::testing {

class PageTestSession : public Session {
  public:
    explicit PageTestSession(Executor& mainSequence) : main_(mainSequence) {}

    std::unique_ptr<OnboardingViewModel> makeOnboarding(std::function<void()>) override {
        return nullptr;
    }
    void finishOnboarding() override {}
    DataMode dataMode() const override { return DataMode::real; }
    NotificationBridge& notifications() override {
        if (!notifications_) {
            NotificationBridge::Dependencies deps;
            deps.log = std::make_shared<NotificationEventLog>(
                NotificationEventLog::Options{logFolder_.path() / "notifications.log",
                                              logFolder_.path() / "notifications.1.log"});
            notifications_.emplace(main_, model(), userDefaults(), std::move(deps));
        }
        return *notifications_;
    }
    bool launchesAtLogin() override { return launchesAtLogin_; }
    void setLaunchesAtLogin(bool enabled) override { launchesAtLogin_ = enabled; }
    void uninstall(std::function<void(UninstallReport)>) override {
        throw std::logic_error("a page test session cannot uninstall");
    }

  protected:
    // The bridge watches the model, which a derived session owns: it goes first.
    void dropNotifications() { notifications_.reset(); }

  private:
    Executor& main_;
    ScratchFolder logFolder_;
    std::optional<NotificationBridge> notifications_;
    bool launchesAtLogin_ = false;
};

}  // namespace corvane::testing
