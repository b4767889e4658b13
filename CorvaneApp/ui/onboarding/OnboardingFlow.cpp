#include "CorvaneApp/ui/onboarding/OnboardingFlow.h"

#include <algorithm>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/onboarding/OnboardingWindow.h"

namespace corvane {

namespace {

constexpr const char* kWidthKey = "cvn.onboarding.width";
constexpr const char* kHeightKey = "cvn.onboarding.height";

}  // namespace

struct OnboardingFlow::Open {
    std::unique_ptr<OnboardingViewModel> model;
    std::unique_ptr<OnboardingWindow> window;  // destroyed first: it watches the model
    Subscription untilIdle;
    bool enrolled = false;  // the session has been told
};

OnboardingFlow::OnboardingFlow(Session& session, Executor& mainSequence, Options options)
    : session_(session),
      main_(mainSequence),
      options_(std::move(options)),
      alive_(std::make_shared<OnboardingFlow*>(this)) {}

OnboardingFlow::~OnboardingFlow() {
    alive_.reset();
    // A request still running is waited for here, at the end of the process only.
    open_.reset();
    retiring_.clear();
}

OnboardingWindow* OnboardingFlow::window() const {
    return open_ ? open_->window.get() : nullptr;
}

OnboardingViewModel* OnboardingFlow::model() const {
    return open_ ? open_->model.get() : nullptr;
}

void OnboardingFlow::show() {
    if (!open_) {
        auto open = std::make_shared<Open>();
        open->model = session_.makeOnboarding([this] { end(true); });
        open->window = std::make_unique<OnboardingWindow>(*open->model, [this] { end(false); });
        auto& defaults = session_.userDefaults();
        open->window->resize(
            std::max(int(defaults.integer(kWidthKey).value_or(OnboardingWindow::defaultWidth)),
                     open->window->minimumWidth()),
            std::max(int(defaults.integer(kHeightKey).value_or(OnboardingWindow::defaultHeight)),
                     open->window->minimumHeight()));
        open_ = std::move(open);
        log::get("OnboardingFlow")->info("showing onboarding");
    }
    open_->window->show();
    open_->window->raise();
    open_->window->activateWindow();
}

void OnboardingFlow::end(bool finished) {
    if (!open_) return;
    auto open = std::move(open_);
    auto& defaults = session_.userDefaults();
    defaults.setInteger(kWidthKey, open->window->width());
    defaults.setInteger(kHeightKey, open->window->height());
    // Closing at `done` keeps what was written as much as the button does; only the dashboard
    // stays shut.
    const bool enrolled = finished || open->model->step() == OnboardingStep::done;
    open->enrolled = enrolled;
    if (finished) open->window->hide();  // a close has hidden it already
    retire(std::move(open));
    if (enrolled) {
        session_.finishOnboarding();
        if (finished && options_.onFinished) options_.onFinished();
    } else {
        log::get("OnboardingFlow")->info("onboarding closed before the end");
    }
}

// The window may be inside one of its own handlers: it goes on the next turn of the loop, and
// with its model only once no request of that model runs. A save that lands after the window
// closed has enrolled the computer all the same: the session is told then.
void OnboardingFlow::retire(std::shared_ptr<Open> open) {
    retiring_.push_back(open);
    std::weak_ptr<Open> weak = open;
    auto release = [alive = std::weak_ptr<OnboardingFlow*>(alive_), weak] {
        auto self = alive.lock();
        auto held = weak.lock();
        if (!self || !held || held->model->isWorking()) return;
        if (!held->enrolled && held->model->step() == OnboardingStep::done) {
            held->enrolled = true;
            (*self)->session_.finishOnboarding();
        }
        std::erase((*self)->retiring_, held);
    };
    open->untilIdle = open->model->observe([&main = main_, release] { main.post(release); });
    main_.post(release);
}

}  // namespace corvane
