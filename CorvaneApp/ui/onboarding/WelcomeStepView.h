#pragma once
// Onboarding's first step: what Corvane does with this computer and what a computer like it
// earns.

#include <QWidget>

#include "CorvaneApp/dashboard/OnboardingPageState.h"

class QLabel;

namespace corvane {

class WelcomeStepView final : public QWidget {
  public:
    explicit WelcomeStepView(QWidget* parent = nullptr);
    void render(const OnboardingWelcomeState& state);

  private:
    QLabel* title_;
    QLabel* body_;
};

}  // namespace corvane
