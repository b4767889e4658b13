#pragma once
// What the page tests' sessions have in common beyond their model and settings store: no
// onboarding, no login item of their own, and no notifications or uninstall (pages reach those
// only when the owner presses their buttons, which these tests never do).

#include <memory>
#include <stdexcept>

#include "CorvaneApp/app/Session.h"

namespace corvane::testing {

class PageTestSession : public Session {
  public:
    std::unique_ptr<OnboardingViewModel> makeOnboarding(std::function<void()>) override {
        return nullptr;
    }
    void finishOnboarding() override {}
    DataMode dataMode() const override { return DataMode::real; }
    NotificationBridge& notifications() override {
        throw std::logic_error("a page test session has no notifications");
    }
    bool launchesAtLogin() override { return launchesAtLogin_; }
    void setLaunchesAtLogin(bool enabled) override { launchesAtLogin_ = enabled; }
    void uninstall(std::function<void(UninstallReport)>) override {
        throw std::logic_error("a page test session cannot uninstall");
    }

  private:
    bool launchesAtLogin_ = false;
};

}  // namespace corvane::testing
