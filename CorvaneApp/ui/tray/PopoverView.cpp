#include "CorvaneApp/ui/tray/PopoverView.h"

#include <QFrame>
#include <QLabel>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/ButtonRow.h"
#include "CorvaneApp/ui/widgets/DownloadRow.h"
#include "CorvaneApp/ui/widgets/PreOnboardingView.h"
#include "CorvaneApp/ui/widgets/ResourceBars.h"
#include "CorvaneApp/ui/widgets/StatusBlock.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

QFrame* separator(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Plain);
    line->setForegroundRole(QPalette::Mid);
    return line;
}

std::string objectNameFor(StatusAction::Kind kind) {
    switch (kind) {
        case StatusAction::Kind::pause:
            return "pauseButton";
        case StatusAction::Kind::resume:
            return "resumeButton";
        case StatusAction::Kind::connect:
            return "connectButton";
        case StatusAction::Kind::retryDownload:
            return "retryDownloadButton";
        case StatusAction::Kind::editSchedule:
            return "editScheduleButton";
    }
    return "statusAction";
}

}  // namespace

PopoverView::PopoverView(PopoverActions actions, QWidget* parent)
    : QWidget(parent), actions_(std::move(actions)), stack_(new QStackedWidget(this)) {
    setObjectName(QStringLiteral("popover"));
    setAccessibleName(QStringLiteral("Corvane status"));
    setFixedWidth(width);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(stack_);

    welcome_ = new PreOnboardingView(
        [this] {
            if (actions_.onStatusAction) actions_.onStatusAction(StatusAction::Kind::connect);
        },
        stack_);
    auto* content = new QWidget(stack_);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(16, 16, 16, 12);
    column->setSpacing(10);
    status_ = new StatusBlock(content);
    column->addWidget(status_);
    today_ = new QLabel(content);
    today_->setObjectName(QStringLiteral("todayEarnings"));
    column->addWidget(today_);
    column->addWidget(separator(content));
    cpu_ = new ResourceBars(QStringLiteral("CPU"), content);
    ram_ = new ResourceBars(QStringLiteral("Memory"), content);
    column->addWidget(cpu_);
    column->addWidget(ram_);
    note_ = new QLabel(content);
    note_->setWordWrap(true);
    theme::setRole(*note_, "muted");
    QFont small = note_->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    note_->setFont(small);
    column->addWidget(note_);
    download_ = new DownloadRow(
        [this] {
            if (actions_.onStatusAction) actions_.onStatusAction(StatusAction::Kind::retryDownload);
        },
        content);
    column->addWidget(download_);
    actionRow_ = new ButtonRow(
        [this](std::size_t index) {
            if (shown_ && index < shown_->actions.size() && actions_.onStatusAction)
                actions_.onStatusAction(shown_->actions[index].kind);
        },
        content);
    column->addWidget(actionRow_);
    stack_->addWidget(welcome_);
    stack_->addWidget(content);

    // The footer stays whether or not the computer is enrolled.
    outer->addWidget(separator(this));
    footerRow_ = new ButtonRow(
        [this](std::size_t index) {
            if (shown_ && index < shown_->footer.size() && actions_.onFooterAction)
                actions_.onFooterAction(shown_->footer[index].kind);
        },
        this);
    footerRow_->setContentsMargins(16, 4, 16, 12);
    outer->addWidget(footerRow_);
}

void PopoverView::render(const PopoverState& state) {
    if (shown_ == state) return;
    shown_ = state;
    std::vector<ButtonRow::Item> footer;
    for (const auto& action : state.footer) {
        footer.push_back(
            {action.title,
             action.kind == FooterAction::Kind::quit ? "quitButton" : "dashboardButton", true, ""});
    }
    footerRow_->render(footer);
    if (state.preOnboarding) {
        welcome_->render(*state.preOnboarding);
        stack_->setCurrentWidget(welcome_);
        return;
    }
    stack_->setCurrentIndex(1);
    status_->render(state.status, state.statusLabel, state.statusLine);
    setText(*today_, state.todayEarnings);
    cpu_->render(state.cpuBars);
    ram_->render(state.ramBars);
    setText(*note_, state.barsNote);
    download_->render(state.download);
    std::vector<ButtonRow::Item> actions;
    for (const auto& action : state.actions)
        actions.push_back({action.title, objectNameFor(action.kind), action.enabled, action.hint});
    actionRow_->render(actions);
}

}  // namespace corvane
