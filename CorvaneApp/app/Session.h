#pragma once
// The running application as its front ends (the tray, the windows, the headless loop) see it,
// whichever sources stand behind it: a real session (AppSession) or the sample one.

#include <functional>
#include <memory>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/DemoTools.h"
#include "CorvaneApp/app/NotificationBridge.h"
#include "CorvaneApp/app/OnboardingViewModel.h"
#include "CorvaneApp/app/UninstallController.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/config/WorkerConfigStore.h"

namespace corvane {

class Session {
  public:
    virtual ~Session() = default;

    // Starts the session's work; the model exists from here on.
    virtual void launch() = 0;
    // Stops everything in order: shards in flight are reported, pending settings are saved.
    virtual void terminate() = 0;

    virtual AppModel& model() = 0;
    virtual WorkerConfigStore& configStore() = 0;
    virtual UserDefaults& userDefaults() = 0;
    // What `corvane status` prints: the words, the job in hand and the worker's last error.
    virtual WorkerStatusRecord statusRecord() = 0;

    // A new onboarding over this session's coordinator, credential store and config file, on
    // the session's main sequence; its `done` button calls `onFinish`. Nothing of an earlier one
    // is kept: a registration dies with its view model.
    virtual std::unique_ptr<OnboardingViewModel> makeOnboarding(std::function<void()> onFinish) = 0;
    // Onboarding has written the enrolment: the session takes it up, and the model asks for the
    // worker.
    virtual void finishOnboarding() = 0;
    virtual DataMode dataMode() const = 0;

    // The owner's notifications (present after launch()); the desktop gives them its deliverer.
    virtual NotificationBridge& notifications() = 0;
    // Whether Corvane starts when the owner signs in, and changing that (throws with why when it
    // cannot be changed).
    virtual bool launchesAtLogin() = 0;
    virtual void setLaunchesAtLogin(bool enabled) = 0;
    // Signs out and removes Corvane from this computer; `done` on the main sequence says what
    // went and what stayed. The application ends afterwards.
    virtual void uninstall(std::function<void(UninstallReport)> done) = 0;
    // The sample session's tools; a real session has none.
    virtual DemoTools* demoTools() { return nullptr; }
};

}  // namespace corvane
