#include "CorvaneApp/ui/TrayController.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include <exception>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

const char* const kFallbackText = "Corvane";

// Menu texts treat '&' as a mnemonic marker; a status line is shown as it is.
QString menuText(const std::string& text) {
    return QString::fromStdString(text).replace(u'&', QStringLiteral("&&"));
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

TrayController::TrayController(TrayActions actions, StatusProvider status)
    : actions_(std::move(actions)),
      status_(std::move(status)),
      menu_(std::make_unique<QMenu>()),
      trayIcon_(std::make_unique<QSystemTrayIcon>()) {
    statusAction_ = menu_->addAction(QString::fromLatin1(kFallbackText));
    statusAction_->setEnabled(false);
    menu_->addSeparator();
    addItem(*menu_, QStringLiteral("Open Dashboard"), actions_.onOpenDashboard);
    addItem(*menu_, QStringLiteral("Preferences…"), actions_.onPreferences);
    menu_->addSeparator();
    addItem(*menu_, QStringLiteral("About Corvane"), actions_.onAbout);
    addItem(*menu_, QStringLiteral("Quit Corvane"), actions_.onQuit);

    trayIcon_->setContextMenu(menu_.get());
    QObject::connect(trayIcon_.get(), &QSystemTrayIcon::activated, menu_.get(),
                     [this](QSystemTrayIcon::ActivationReason reason) {
                         const bool click = reason == QSystemTrayIcon::Trigger ||
                                            reason == QSystemTrayIcon::DoubleClick;
                         if (click && actions_.onActivate) actions_.onActivate();
                     });
    apply(TrayStatus{});
    refresh();
}

TrayController::~TrayController() = default;

void TrayController::show() {
    trayIcon_->show();
}

void TrayController::refresh() {
    if (!status_) return;
    try {
        apply(status_());
    } catch (const std::exception& error) {
        log::get("TrayController")
            ->error("Could not read the status for the tray: {}", error.what());
    }
}

void TrayController::apply(const TrayStatus& status) {
    const QString line = status.statusLine.empty() ? QString::fromLatin1(kFallbackText)
                                                   : menuText(status.statusLine);
    if (statusAction_->text() != line) statusAction_->setText(line);

    const QString tooltip = status.tooltip.empty() ? QString::fromLatin1(kFallbackText)
                                                   : QString::fromStdString(status.tooltip);
    if (trayIcon_->toolTip() != tooltip) trayIcon_->setToolTip(tooltip);

    if (shownIconName_ != status.iconName || trayIcon_->icon().isNull()) {
        shownIconName_ = status.iconName;
        trayIcon_->setIcon(icons_.icon(status.iconName));
    }
}

}  // namespace corvane
