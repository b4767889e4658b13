#include "CorvaneApp/ui/dashboard/DashboardWindow.h"

#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/PreOnboardingView.h"
#include "CorvaneApp/ui/widgets/StatusBlock.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

constexpr const char* kPageKey = "cvn.page";
constexpr const char* kWidthKey = "cvn.dashboard.width";
constexpr const char* kHeightKey = "cvn.dashboard.height";

}  // namespace

DashboardWindow::DashboardWindow(PageContext& context)
    : QWidget(nullptr, Qt::Window),
      context_(context),
      content_(new QStackedWidget(this)),
      pagesStack_(new QStackedWidget(this)) {
    setObjectName(QStringLiteral("dashboardWindow"));
    setMinimumSize(minimumWidth, minimumHeight);
    auto& defaults = context_.session.userDefaults();
    resize(std::max<int>(int(defaults.integer(kWidthKey).value_or(defaultWidth)), minimumWidth),
           std::max<int>(int(defaults.integer(kHeightKey).value_or(defaultHeight)), minimumHeight));

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);

    auto* sidebar = new QFrame(this);
    sidebar->setObjectName(QStringLiteral("sidebar"));
    sidebar->setFixedWidth(236);
    auto* side = new QVBoxLayout(sidebar);
    side->setContentsMargins(12, 16, 12, 16);
    side->setSpacing(4);
    auto* brand = new QLabel(QStringLiteral("Corvane"), sidebar);
    theme::setRole(*brand, "heading");
    side->addWidget(brand);
    side->addSpacing(8);
    for (std::size_t i = 0; i < allDashPages.size(); ++i) {
        const DashPage page = allDashPages[i];
        const auto& info = dashPageInfo(page);
        auto* entry = new QPushButton(buttonText(info.title), sidebar);
        entry->setObjectName(QStringLiteral("sidebarEntry"));
        entry->setProperty("page", qt(rawValue(page)));
        entry->setCheckable(true);
        entry->setAccessibleName(qt(info.title));
        entry->setAccessibleDescription(qt(info.line));
        entry->setToolTip(qt(info.line));
        QObject::connect(entry, &QPushButton::clicked, this, [this, page] { showPage(page); });
        // Ctrl+1 … Ctrl+6 reach the pages from anywhere in the window.
        auto* shortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + int(i))), this);
        QObject::connect(shortcut, &QShortcut::activated, this, [this, page] { showPage(page); });
        side->addWidget(entry);
        entries_[i] = entry;
    }
    side->addStretch(1);
    shardIndicator_ = new QLabel(sidebar);
    shardIndicator_->setObjectName(QStringLiteral("shardIndicator"));
    theme::setRole(*shardIndicator_, "muted");
    side->addWidget(shardIndicator_);
    status_ = new StatusBlock(sidebar);
    side->addWidget(status_);
    row->addWidget(sidebar);

    welcome_ = new PreOnboardingView([this] { context_.openOnboarding(); }, content_);
    content_->addWidget(welcome_);
    content_->addWidget(pagesStack_);
    row->addWidget(content_, 1);

    for (const DashPage page : allDashPages) {
        auto view = makeDashboardPage(page, context_);
        pages_[page] = view.get();
        pagesStack_->addWidget(view.release());  // the stack owns its pages
    }
    auto* close = new QShortcut(QKeySequence::Close, this);
    QObject::connect(close, &QShortcut::activated, this, &QWidget::close);

    current_ = dashPageFromDefault(defaults.string(kPageKey));
    showPage(current_);
}

DashboardWindow::~DashboardWindow() = default;

void DashboardWindow::showPage(DashPage page) {
    current_ = page;
    context_.session.userDefaults().setString(kPageKey, std::string(rawValue(page)));
    for (std::size_t i = 0; i < allDashPages.size(); ++i)
        entries_[i]->setChecked(allDashPages[i] == page);
    pagesStack_->setCurrentWidget(pages_.at(page));
    setWindowTitle(qt(dashboardWindowTitle(page)));
    if (isVisible()) {
        pages_.at(page)->refresh();
        pages_.at(page)->shown();
    }
}

void DashboardWindow::renderFrame() {
    const AppModel& model = context_.model();
    const bool enrolled = model.phase() == AppPhase::enrolled;
    content_->setCurrentIndex(enrolled ? 1 : 0);
    if (!enrolled) welcome_->render(PreOnboardingState{});
    auto sidebar = sidebarState(model, current_);
    if (shownSidebar_ == sidebar) return;
    status_->render(sidebar.status, sidebar.statusLabel, sidebar.statusLine);
    setText(*shardIndicator_, sidebar.shardIndicator.value_or(""));
    setVisibleIfChanged(*shardIndicator_, sidebar.shardIndicator.has_value());
    shownSidebar_ = std::move(sidebar);
}

void DashboardWindow::modelChanged(ModelParts parts) {
    if (!isVisible()) return;  // rendered in full when shown
    if (parts.intersects({ModelPart::status, ModelPart::pause})) renderFrame();
    DashboardPage& shown = *pages_.at(current_);
    if (parts.intersects(shown.observedParts()) || parts.contains(ModelPart::status))
        shown.refresh();
}

void DashboardWindow::renderAll() {
    renderFrame();
    pages_.at(current_)->refresh();
}

void DashboardWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    renderAll();
    pages_.at(current_)->shown();
}

void DashboardWindow::closeEvent(QCloseEvent* event) {
    auto& defaults = context_.session.userDefaults();
    defaults.setInteger(kWidthKey, width());
    defaults.setInteger(kHeightKey, height());
    event->accept();  // hides it; the application lives on in the tray
}

}  // namespace corvane
