#include "CorvaneApp/ui/shell/DesktopShell.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMessageBox>

#include "CorvaneApp/dashboard/PopoverState.h"
#include "CorvaneApp/dashboard/SettingsPageState.h"
#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/shell/DBusNotificationDeliverer.h"
#include "CorvaneApp/ui/tray/PopoverWindow.h"
#include "CorvaneApp/ui/tray/TrayController.h"
#include "CorvaneApp/ui/tray/TrayHost.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

DesktopShell::DesktopShell(Session& session, Executor& mainSequence, Options options)
    : session_(session),
      main_(mainSequence),
      options_(std::move(options)),
      pageContext_{session, mainSequence, [this](DashPage page) { openDashboard(page); },
                   [this] { openOnboarding(); }} {
    TrayActions trayActions;
    trayActions.onPauseResume = [this] { session_.model().togglePause(); };
    trayActions.onOpenDashboard = [this] { openDashboard(); };
    trayActions.onPreferences = [this] { openDashboard(DashPage::settings); };
    trayActions.onAbout = [this] { showAbout(); };
    trayActions.onQuit = [this] {
        if (options_.quit) options_.quit();
    };
    trayActions.onActivate = [this] { togglePopover(); };
    tray_ = std::make_unique<TrayController>(std::move(trayActions));

    PopoverActions popoverActions;
    popoverActions.onStatusAction = [this](StatusAction::Kind kind) { onStatusAction(kind); };
    popoverActions.onFooterAction = [this](FooterAction::Kind kind) {
        if (kind == FooterAction::Kind::dashboard) {
            popover_->close();
            openDashboard();
        } else if (options_.quit) {
            options_.quit();
        }
    };
    popover_ = std::make_unique<PopoverWindow>(std::move(popoverActions));
    dashboard_ = std::make_unique<DashboardWindow>(pageContext_);

    AppModel& model = session_.model();
    model.setRequests([this, requests = model.requests()]() mutable {
        requests.requestOnboarding = [this] { openOnboarding(); };
        requests.requestDashboardShow = [this] { openDashboard(); };
        requests.onSignedOut = [this] {
            dashboard_->close();
            openOnboarding();
        };
        return requests;
    }());
    modelSubscription_ = model.observe([this](ModelParts parts) { modelChanged(parts); });
    // Coming to the front is when the owner may look at payouts: the coordinator's payout
    // choices become the baseline a refused change rolls back to, if none is known yet.
    QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, dashboard_.get(),
                     [this](Qt::ApplicationState state) {
                         if (state == Qt::ApplicationActive)
                             session_.configStore().refreshPayoutPrefsBaselineOnActivation();
                     });
    tray_->render(trayMenuState(model));
    session_.notifications().setDeliverer(std::make_shared<DBusNotificationDeliverer>());
    session_.notifications().setDiagnoseHandler([this] { diagnose(); });
}

DesktopShell::~DesktopShell() = default;

void DesktopShell::start() {
    session_.configStore().refreshPayoutPrefsBaselineOnActivation();
    if (TrayHost::present()) {
        tray_->show();
        return;
    }
    // Listening before saying so: whoever reads the line may bring a host at once.
    trayHost_ = std::make_unique<TrayHost>([this] {
        log::get("DesktopApp")->info("a tray host appeared; the icon registers with it");
        tray_->show();
    });
    log::get("DesktopApp")
        ->warn("No system tray is available: the dashboard stands in for the tray icon");
    openDashboard();
}

void DesktopShell::modelChanged(ModelParts parts) {
    AppModel& model = session_.model();
    if (parts.intersects({ModelPart::status, ModelPart::pause}))
        tray_->render(trayMenuState(model));
    if (popover_->isVisible()) popover_->view().render(popoverState(model));
    dashboard_->modelChanged(parts);
}

void DesktopShell::openDashboard(std::optional<DashPage> page) {
    if (page) dashboard_->showPage(*page);
    dashboard_->show();
    dashboard_->raise();
    dashboard_->activateWindow();
    // A window opened after a while shows fresh account figures.
    session_.model().refreshFromAPIIfStale(15.0);
}

void DesktopShell::diagnose() {
    openDashboard(DashPage::settings);
    const auto summary = diagnosticsSummary(session_.model(), session_.dataMode(),
                                            NotificationPreferences::read(session_.userDefaults()));
    QGuiApplication::clipboard()->setText(qt(summary));
}

void DesktopShell::togglePopover() {
    if (!popover_->isVisible()) {
        AppModel& model = session_.model();
        model.refreshLocalState(true);  // the numbers shown are this moment's
        model.refreshFromAPIIfStale(15.0);
        popover_->view().render(popoverState(model));
    }
    popover_->toggle();
}

void DesktopShell::activate() {
    openDashboard();
}

void DesktopShell::showAbout() {
    // Not modal: the tray and the worker carry on while it is open.
    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("About Corvane"),
                                qt("Corvane " + options_.version), QMessageBox::Close);
    box->setInformativeText(QStringLiteral(
        "Corvane turns this computer's spare capacity into paid compute. It works only while you "
        "allow it, and every pause is named."));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("aboutBox"));
    box->show();
}

void DesktopShell::openOnboarding() {
    popover_->close();
    if (options_.showOnboarding) {
        options_.showOnboarding();
        return;
    }
    auto* box =
        new QMessageBox(QMessageBox::Information, QStringLiteral("Connect this computer"),
                        QStringLiteral("Enrol this computer from a terminal:"), QMessageBox::Close);
    box->setInformativeText(
        QStringLiteral("corvane enroll --coordinator <URL> --token-stdin < invitation.txt"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
}

void DesktopShell::onStatusAction(StatusAction::Kind kind) {
    AppModel& model = session_.model();
    switch (kind) {
        case StatusAction::Kind::pause:
        case StatusAction::Kind::resume:
            model.togglePause();
            break;
        case StatusAction::Kind::connect:
            openOnboarding();
            break;
        case StatusAction::Kind::retryDownload:
            model.retryDownload();
            break;
        case StatusAction::Kind::editSchedule:
            popover_->close();
            openDashboard(DashPage::schedule);
            break;
    }
}

}  // namespace corvane
