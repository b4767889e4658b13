#pragma once
// Onboarding's last step: what was stored and written, and what happens when earning starts.

#include <QWidget>

#include <vector>

#include "CorvaneApp/dashboard/OnboardingPageState.h"

class QGridLayout;
class QLabel;

namespace corvane {

class DoneStepView final : public QWidget {
  public:
    explicit DoneStepView(QWidget* parent = nullptr);
    void render(const OnboardingDoneState& state);

  private:
    QLabel* title_;
    QLabel* body_;
    QGridLayout* rows_;
    QLabel* note_;
    std::vector<OnboardingDoneState::Row> shownRows_;
};

}  // namespace corvane
