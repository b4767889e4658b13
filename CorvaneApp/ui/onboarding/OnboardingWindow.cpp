#include "CorvaneApp/ui/onboarding/OnboardingWindow.h"

#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "CorvaneApp/ui/onboarding/ConfigureStepView.h"
#include "CorvaneApp/ui/onboarding/ConnectStepView.h"
#include "CorvaneApp/ui/onboarding/DoneStepView.h"
#include "CorvaneApp/ui/onboarding/WelcomeStepView.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

OnboardingWindow::OnboardingWindow(OnboardingViewModel& model, std::function<void()> onClose)
    : QWidget(nullptr, Qt::Window),
      model_(model),
      onClose_(std::move(onClose)),
      steps_(new QStackedWidget) {
    setObjectName(QStringLiteral("onboardingWindow"));
    resize(defaultWidth, defaultHeight);
    setMinimumSize(520, 480);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    // The steps as a row of marks: where the owner is and what is behind.
    auto* strip = new QFrame(this);
    strip->setObjectName(QStringLiteral("sidebar"));
    auto* marks = new QHBoxLayout(strip);
    marks->setContentsMargins(28, 12, 28, 12);
    marks->setSpacing(18);
    auto* brand = new QLabel(QStringLiteral("Corvane"), strip);
    theme::setRole(*brand, "heading");
    marks->addWidget(brand);
    marks->addStretch(1);
    for (int i = 0; i < 4; ++i) {
        auto* mark = new QLabel(strip);
        mark->setObjectName(QStringLiteral("stepMark"));
        marks->addWidget(mark);
        marks_.push_back(mark);
    }
    column->addWidget(strip);

    welcome_ = new WelcomeStepView;
    connect_ = new ConnectStepView(
        ConnectStepActions{[this](bool show) { model_.setShowAdvancedOptions(show); },
                           [this](std::string url) { model_.setCoordinatorURL(std::move(url)); },
                           [this](std::string code) { model_.setEnrollmentToken(std::move(code)); },
                           [this] { primary(); }});
    configure_ = new ConfigureStepView(ConfigureStepActions{
        [this](int minutes) { model_.setMinIdleMinutes(minutes); },
        [this](bool required) { model_.setRequireACPower(required); },
        [this](OnboardingSchedulePreset preset) { model_.applySchedulePreset(preset); },
        [this](ClockTime time) { model_.updateCustomStart(onboardingTimeToday(model_, time)); },
        [this](ClockTime time) { model_.updateCustomEnd(onboardingTimeToday(model_, time)); }});
    done_ = new DoneStepView;
    for (QWidget* step : {static_cast<QWidget*>(welcome_), static_cast<QWidget*>(connect_),
                          static_cast<QWidget*>(configure_), static_cast<QWidget*>(done_)}) {
        steps_->addWidget(step);
    }
    // Large fonts or a small screen scroll the step instead of clipping it.
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("onboardingScroll"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* page = new QWidget;
    page->setObjectName(QStringLiteral("onboardingPage"));
    auto* pageColumn = new QVBoxLayout(page);
    pageColumn->setContentsMargins(36, 28, 36, 12);
    pageColumn->addWidget(steps_, 1);
    scroll->setWidget(page);
    scroll->viewport()->setAutoFillBackground(false);
    page->setAutoFillBackground(false);
    column->addWidget(scroll, 1);

    // Made after the steps, so that Tab goes through a step's fields before its buttons.
    error_ = new QLabel(this);
    busy_ = new QProgressBar(this);
    back_ = new QPushButton(this);
    primary_ = new QPushButton(this);
    auto* footer = new QVBoxLayout;
    footer->setContentsMargins(36, 8, 36, 20);
    footer->setSpacing(10);
    error_->setObjectName(QStringLiteral("onboardingError"));
    error_->setWordWrap(true);
    error_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    theme::setRole(*error_, "error");
    error_->hide();
    footer->addWidget(error_);
    auto* buttons = new QHBoxLayout;
    back_->setObjectName(QStringLiteral("onboardingBack"));
    QObject::connect(back_, &QPushButton::clicked, this, [this] { model_.goBack(); });
    buttons->addWidget(back_);
    buttons->addStretch(1);
    busy_->setObjectName(QStringLiteral("onboardingBusy"));
    busy_->setRange(0, 0);  // no end known: the request runs
    busy_->setTextVisible(false);
    busy_->setFixedWidth(120);
    busy_->hide();
    buttons->addWidget(busy_);
    primary_->setObjectName(QStringLiteral("onboardingPrimary"));
    primary_->setDefault(true);
    primary_->setMinimumWidth(150);
    QObject::connect(primary_, &QPushButton::clicked, this, [this] { primary(); });
    buttons->addWidget(primary_);
    footer->addLayout(buttons);
    column->addLayout(footer);

    subscription_ = model_.observe([this] { refresh(); });
    refresh();
}

OnboardingWindow::~OnboardingWindow() = default;

void OnboardingWindow::refresh() {
    auto state = onboardingPageState(model_);
    if (shown_ == state) return;
    render(state);
    shown_ = std::move(state);
}

void OnboardingWindow::render(const OnboardingPageState& state) {
    const bool stepChanged = !shown_ || shown_->step != state.step;
    if (windowTitle() != qt(state.windowTitle)) setWindowTitle(qt(state.windowTitle));
    for (std::size_t i = 0; i < marks_.size() && i < state.steps.size(); ++i) {
        const auto& mark = state.steps[i];
        setText(*marks_[i], mark.title);
        theme::setRole(*marks_[i], mark.current ? "heading" : "muted");
        marks_[i]->setAccessibleName(qt(mark.title));
    }
    welcome_->render(state.welcome);
    connect_->render(state.connect);
    configure_->render(state.configure);
    done_->render(state.done);
    steps_->setCurrentIndex(int(state.step));

    setText(*error_, state.error.value_or(""));
    setVisibleIfChanged(*error_, state.error.has_value());
    setVisibleIfChanged(*busy_, state.working);
    if (state.working != (cursor().shape() == Qt::BusyCursor)) {
        if (state.working) {
            setCursor(Qt::BusyCursor);
        } else {
            unsetCursor();
        }
    }
    setVisibleIfChanged(*back_, state.back.has_value());
    if (state.back) {
        setText(*back_, state.back->title);
        back_->setAccessibleName(qt(state.back->title));
        if (back_->isEnabled() != state.back->enabled) back_->setEnabled(state.back->enabled);
    }
    setText(*primary_, state.primary.title);
    primary_->setAccessibleName(qt(state.primary.title));
    if (primary_->isEnabled() != state.primary.enabled) primary_->setEnabled(state.primary.enabled);
    // A new step starts where the keyboard continues.
    if (stepChanged && isVisible()) primary_->setFocus(Qt::OtherFocusReason);
}

void OnboardingWindow::primary() {
    // The button is disabled while a request runs; the model also refuses a second one.
    switch (model_.step()) {
        case OnboardingStep::welcome:
            model_.advance();
            break;
        case OnboardingStep::connect:
            model_.connect();
            break;
        case OnboardingStep::configure:
            model_.saveConfiguration();
            break;
        case OnboardingStep::done:
            model_.finish();
            break;
    }
}

void OnboardingWindow::closeEvent(QCloseEvent* event) {
    QWidget::closeEvent(event);
    if (onClose_) onClose_();
}

}  // namespace corvane
