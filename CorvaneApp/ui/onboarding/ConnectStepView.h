#pragma once
// Onboarding's second step: who this computer registers as, and under Advanced the coordinator
// and the invitation code.

#include <QWidget>

#include <functional>
#include <string>

#include "CorvaneApp/dashboard/OnboardingPageState.h"

class QLabel;
class QLineEdit;
class QToolButton;

namespace corvane {

struct ConnectStepActions {
    std::function<void(bool)> onShowAdvanced;
    std::function<void(std::string)> onURLEdited;
    std::function<void(std::string)> onInvitationEdited;
    std::function<void()> onSubmit;  // Return in a field
};

class ConnectStepView final : public QWidget {
  public:
    explicit ConnectStepView(ConnectStepActions actions, QWidget* parent = nullptr);
    void render(const OnboardingConnectState& state);

  private:
    ConnectStepActions actions_;
    QLabel* title_;
    QLabel* body_;
    QLabel* registerAs_;
    QLabel* computerName_;
    QLabel* identity_;
    QToolButton* advanced_;
    QWidget* advancedBox_;
    QLabel* urlLabel_;
    QLineEdit* url_;
    QLabel* invitationLabel_;
    QLineEdit* invitation_;
};

}  // namespace corvane
