#include "CorvaneApp/ui/tray/TrayController.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include <exception>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

const char* const kFallbackText = "Corvane";

// Menu texts treat '&' as a mnemonic marker; a status line is shown as it is.
QString menuText(const std::string& text) {
    return qt(text).replace(u'&', QStringLiteral("&&"));
}

QAction* addItem(QMenu& menu, const QString& text, const std::function<void()>& callback) {
    QAction* action = menu.addAction(text);
    QObject::connect(action, &QAction::triggered, action, [callback, text] {
        // A click must not unwind through Qt's event loop.
        try {
            if (callback) callback();
        } catch (const std::exception& error) {
            log::get("TrayController")->error("{} failed: {}", text.toStdString(), error.what());
        }
    });
    return action;
}

}  // namespace

TrayController::TrayController(TrayActions actions)
    : actions_(std::move(actions)),
      menu_(std::make_unique<QMenu>()),
      tooltip_(QString::fromLatin1(kFallbackText)) {
    statusAction_ = menu_->addAction(QString::fromLatin1(kFallbackText));
    statusAction_->setEnabled(false);
    pauseAction_ = addItem(*menu_, QStringLiteral("Pause"), actions_.onPauseResume);
    pauseAction_->setVisible(false);
    menu_->addSeparator();
    addItem(*menu_, QStringLiteral("Open Dashboard"), actions_.onOpenDashboard);
    addItem(*menu_, QStringLiteral("Preferences…"), actions_.onPreferences);
    menu_->addSeparator();
    addItem(*menu_, QStringLiteral("About Corvane"), actions_.onAbout);
    addItem(*menu_, QStringLiteral("Quit Corvane"), actions_.onQuit);
}

TrayController::~TrayController() = default;

void TrayController::show() {
    if (trayIcon_) return;
    trayIcon_ = std::make_unique<QSystemTrayIcon>(icons_.icon(shownIconName_));
    trayIcon_->setContextMenu(menu_.get());
    trayIcon_->setToolTip(tooltip_);
    QObject::connect(trayIcon_.get(), &QSystemTrayIcon::activated, menu_.get(),
                     [this](QSystemTrayIcon::ActivationReason reason) {
                         const bool click = reason == QSystemTrayIcon::Trigger ||
                                            reason == QSystemTrayIcon::DoubleClick;
                         if (click && actions_.onActivate) actions_.onActivate();
                     });
    trayIcon_->show();
}

void TrayController::render(const TrayMenuState& state) {
    if (shown_ == state) return;
    const QString line =
        state.statusLine.empty() ? QString::fromLatin1(kFallbackText) : menuText(state.statusLine);
    if (statusAction_->text() != line) statusAction_->setText(line);
    pauseAction_->setVisible(state.pauseAction.has_value());
    if (state.pauseAction) {
        const QString title = qt(state.pauseAction->title);
        if (pauseAction_->text() != title) pauseAction_->setText(title);
        pauseAction_->setEnabled(state.pauseAction->enabled);
        pauseAction_->setToolTip(qt(state.pauseAction->hint));
    }
    const QString tooltip =
        state.tooltip.empty() ? QString::fromLatin1(kFallbackText) : qt(state.tooltip);
    if (tooltip_ != tooltip) {
        tooltip_ = tooltip;
        if (trayIcon_) trayIcon_->setToolTip(tooltip);
    }
    if (shownIconName_ != state.iconName) {
        shownIconName_ = state.iconName;
        if (trayIcon_) trayIcon_->setIcon(icons_.icon(state.iconName));
    }
    shown_ = state;
}

}  // namespace corvane
