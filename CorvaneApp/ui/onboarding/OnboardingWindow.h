#pragma once
// The onboarding window: the four steps of enrolment over an onboarding view model. It renders
// the page state computed from the model whenever the model changes and forwards what the owner
// does; registration and the save run off the Qt thread inside the model, and the buttons show
// them running.

#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

#include "CorvaneApp/dashboard/OnboardingPageState.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;

namespace corvane {

class ConfigureStepView;
class ConnectStepView;
class DoneStepView;
class WelcomeStepView;

class OnboardingWindow final : public QWidget {
  public:
    static constexpr int defaultWidth = 640, defaultHeight = 700;

    // `onClose`: the owner closed the window (its owner decides what that ends).
    OnboardingWindow(OnboardingViewModel& model, std::function<void()> onClose);
    ~OnboardingWindow() override;

    // Renders the model's state now; unchanged, nothing is touched.
    void refresh();
    const OnboardingPageState& shownState() const { return *shown_; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void render(const OnboardingPageState& state);
    void primary();

    OnboardingViewModel& model_;
    std::function<void()> onClose_;
    Subscription subscription_;
    std::vector<QLabel*> marks_;
    QStackedWidget* steps_;
    WelcomeStepView* welcome_;
    ConnectStepView* connect_;
    ConfigureStepView* configure_;
    DoneStepView* done_;
    QLabel* error_ = nullptr;
    QProgressBar* busy_ = nullptr;
    QPushButton* back_ = nullptr;
    QPushButton* primary_ = nullptr;
    std::optional<OnboardingPageState> shown_;
};

}  // namespace corvane
