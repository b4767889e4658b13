#pragma once
// Who opens and ends the onboarding window of a session: one window at a time, a fresh view
// model each time it opens (a registration dies with its window), the session told when the
// owner finishes. A window closed while its request still runs is let go once the request lands,
// so that closing never waits on the network.

#include <functional>
#include <memory>
#include <vector>

#include "CorvaneApp/app/Session.h"

namespace corvane {

class OnboardingWindow;

class OnboardingFlow {
  public:
    struct Options {
        // After the session took up the new enrolment from the `done` button: the dashboard
        // opens so that the owner sees the model download.
        std::function<void()> onFinished;
    };

    OnboardingFlow(Session& session, Executor& mainSequence, Options options);
    ~OnboardingFlow();
    OnboardingFlow(const OnboardingFlow&) = delete;
    OnboardingFlow& operator=(const OnboardingFlow&) = delete;

    // Opens the window, or brings the open one forward.
    void show();
    bool isOpen() const { return open_ != nullptr; }
    // The open window; null when none is.
    OnboardingWindow* window() const;
    OnboardingViewModel* model() const;

  private:
    struct Open;
    // `finished`: the owner pressed the `done` button, else the window was closed.
    void end(bool finished);
    void retire(std::shared_ptr<Open> open);

    Session& session_;
    Executor& main_;
    Options options_;
    std::shared_ptr<Open> open_;
    std::vector<std::shared_ptr<Open>> retiring_;  // closed, their request still under way
    std::shared_ptr<OnboardingFlow*> alive_;       // posted work finds the flow gone after this
};

}  // namespace corvane
