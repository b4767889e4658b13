#pragma once
// The running application as its front ends (the tray, the headless loop) see it: the delegate
// that runs the worker and the model that says what it is doing, wired to each other — the
// model's requests reach the delegate, the delegate's model download reaches the model, and the
// payout-preference hooks of the settings store go through the account client.

#include <functional>
#include <memory>
#include <optional>

#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/LoginItemManager.h"
#include "CorvaneApp/app/NotificationBridge.h"
#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"

namespace corvane {

class AppSession final : public Session {
  public:
    AppSession(Executor& mainSequence, AppEnvironment environment);
    ~AppSession() override;
    AppSession(const AppSession&) = delete;
    AppSession& operator=(const AppSession&) = delete;

    // The delegate's launch, then the model (which asks for the worker when enrolled).
    void launch() override;
    void terminate() override;

    AppDelegate& delegate() { return *delegate_; }
    // Present after launch().
    AppModel& model() override { return *model_; }
    WorkerConfigStore& configStore() override { return delegate_->configStore(); }
    UserDefaults& userDefaults() override { return delegate_->userDefaults(); }

    // The model as the status surfaces show it now, the delegate's model download included;
    // "Offline" before launch() and after terminate().
    WorkerStatusPresentation refreshedPresentation();
    // The line under the status: a pause's own reason when someone other than the owner paused.
    std::string statusSubtitle() const;
    WorkerStatusRecord statusRecord() override;
    // Registers with the coordinator the owner names, stores the token in the session's credential
    // store and writes the session's config.yaml.
    std::unique_ptr<OnboardingViewModel> makeOnboarding(std::function<void()> onFinish) override;
    // Reads the new config.yaml's settings, then tells the model (which asks for the worker).
    void finishOnboarding() override;
    DataMode dataMode() const override { return DataMode::real; }
    NotificationBridge& notifications() override { return *notifications_; }
    bool launchesAtLogin() override { return loginItems_.isEnabled(); }
    void setLaunchesAtLogin(bool enabled) override { loginItems_.setEnabled(enabled); }
    void uninstall(std::function<void(UninstallReport)> done) override;

    // A client when the config file and the token both exist.
    static std::shared_ptr<const CoordinatorAPI> coordinatorAPI(const AppEnvironment& environment,
                                                                KeychainStore& keychain);

  private:
    void syncModelDownload();
    void forgetEnrollment();
    void installPayoutPrefsHooks();

    Executor& main_;
    std::shared_ptr<AppDelegate> delegate_;
    std::unique_ptr<AppModel> model_;
    std::unique_ptr<NotificationBridge> notifications_;
    LoginItemManager loginItems_;
    Subscription delegateSubscription_;
    std::optional<OnboardingMachineFacts> onboardingFacts_;  // read once, when first asked
    TaskBackgroundRunner runner_;
    std::unique_ptr<BackgroundJob> uninstallJob_;
    std::shared_ptr<AppSession*> alive_ = std::make_shared<AppSession*>(this);
};

}  // namespace corvane
