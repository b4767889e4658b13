#pragma once
// What the popover and the dashboard show while the computer is not enrolled: a welcome and the
// button that opens onboarding.

#include <QWidget>

#include <functional>

#include "CorvaneApp/dashboard/ShellState.h"

class QLabel;
class QPushButton;

namespace corvane {

class PreOnboardingView final : public QWidget {
  public:
    PreOnboardingView(std::function<void()> onConnect, QWidget* parent = nullptr);
    void render(const PreOnboardingState& state);

  private:
    QLabel* title_;
    QLabel* body_;
    QPushButton* connect_;
};

}  // namespace corvane
