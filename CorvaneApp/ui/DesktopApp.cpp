#include "CorvaneApp/ui/DesktopApp.h"

#include <QApplication>
#include <QIcon>
#include <QStyle>
#include <QStyleFactory>
#include <QSystemTrayIcon>

#include <csignal>
#include <cstring>
#include <exception>
#include <optional>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/QtExecutor.h"
#include "CorvaneApp/ui/SignalPipe.h"
#include "CorvaneApp/ui/TrayController.h"

namespace corvane {
namespace {

void configureApplication(QApplication& app) {
    QApplication::setApplicationName(QStringLiteral("Corvane"));
    QApplication::setApplicationDisplayName(QStringLiteral("Corvane"));
    // Ties our windows and the tray item to corvane.desktop.
    QGuiApplication::setDesktopFileName(QStringLiteral("corvane"));
    // A tray application: closing its last window doesn't end it.
    QApplication::setQuitOnLastWindowClosed(false);
    // Light only, whatever the desktop's theme.
    if (auto* fusion = QStyleFactory::create(QStringLiteral("Fusion"))) {
        QApplication::setStyle(fusion);
        QApplication::setPalette(fusion->standardPalette());
    }
    // The installed icon when the theme has it, else the glyph of a working worker.
    app.setWindowIcon(QIcon::fromTheme(QStringLiteral("corvane"), TrayIconSet().icon("earning")));
}

// Calls the session's shutdown once, whichever way the process ends.
class ShutdownOnce {
  public:
    void attach(DesktopSession* session) { session_ = session; }
    // False when shutdown() threw.
    bool run() {
        if (done_ || session_ == nullptr) return ok_;
        done_ = true;
        try {
            session_->shutdown();
        } catch (const std::exception& error) {
            ok_ = false;
            log::get("DesktopApp")->error("Shutdown failed: {}", error.what());
        }
        return ok_;
    }

  private:
    DesktopSession* session_ = nullptr;
    bool done_ = false;
    bool ok_ = true;
};

}  // namespace

int runDesktop(int argc, char** argv, const DesktopSessionFactory& makeSession,
               DesktopOptions options) {
    auto logger = log::get("DesktopApp");
    QApplication app(argc, argv);
    configureApplication(app);
    QtExecutor mainSequence(app);

    ShutdownOnce shutdown;
    auto quit = [&shutdown] {
        shutdown.run();
        QCoreApplication::quit();
    };
    // Installed before the session is built, so an early SIGTERM waits in the pipe for the loop.
    std::optional<SignalPipe> signalPipe;
    try {
        signalPipe.emplace({SIGTERM, SIGINT}, [&logger, &quit](int signalNumber) {
            logger->info("Received {}; shutting down", ::strsignal(signalNumber));
            quit();
        });
    } catch (const std::exception& error) {
        logger->error("Could not handle termination signals: {}", error.what());
    }

    std::unique_ptr<DesktopSession> session;
    try {
        session = makeSession(mainSequence);
    } catch (const std::exception& error) {
        logger->error("Could not start the desktop session: {}", error.what());
        return 1;
    }
    if (!session) {
        logger->error("Could not start the desktop session: no session was built");
        return 1;
    }
    shutdown.attach(session.get());

    TrayActions actions;
    actions.onOpenDashboard = [&session] { session->openDashboard(); };
    actions.onPreferences = [&session] { session->showPreferences(); };
    actions.onAbout = [&session] { session->about(); };
    actions.onQuit = quit;
    actions.onActivate = [&session] { session->openDashboard(); };
    TrayController tray(std::move(actions), [&session] { return session->trayStatus(); });
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        logger->warn("No system tray is available: Corvane keeps working without its tray icon");
    }
    tray.show();
    auto refreshTimer =
        mainSequence.scheduleRepeating(options.statusRefreshSeconds, [&tray] { tray.refresh(); });

    const int loopResult = QApplication::exec();
    refreshTimer.cancel();
    const bool shutDownCleanly = shutdown.run();
    session.reset();
    return shutDownCleanly ? loopResult : 1;
}

}  // namespace corvane
