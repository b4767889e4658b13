#include "CorvaneApp/ui/shell/DesktopApp.h"

#include <QApplication>
#include <QIcon>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include "CorvaneApp/app/WorkerStatusPublisher.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/onboarding/OnboardingFlow.h"
#include "CorvaneApp/ui/shell/DesktopShell.h"
#include "CorvaneApp/ui/shell/PaintLog.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/shell/SignalPipe.h"
#include "CorvaneApp/ui/shell/SingleInstance.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"

namespace corvane {
namespace {

void configureApplication(QApplication& app) {
    // No display name: Qt would append it to every window title ("Corvane — Overview — Corvane").
    QApplication::setApplicationName(QStringLiteral("Corvane"));
    // Ties our windows and the tray item to corvane.desktop.
    QGuiApplication::setDesktopFileName(QStringLiteral("corvane"));
    // A tray application: closing its last window doesn't end it.
    QApplication::setQuitOnLastWindowClosed(false);
    theme::apply(app);
    // The installed icon when the theme has it, else the glyph of a working worker.
    app.setWindowIcon(QIcon::fromTheme(QStringLiteral("corvane"), TrayIconSet().icon("earning")));
}

// Ends the session once, whichever way the process ends.
class ShutdownOnce {
  public:
    void attach(Session* session) { session_ = session; }
    // False when the session's end threw.
    bool run() {
        if (done_ || session_ == nullptr) return ok_;
        done_ = true;
        try {
            session_->terminate();
        } catch (const std::exception& error) {
            ok_ = false;
            log::get("DesktopApp")->error("Shutdown failed: {}", error.what());
        }
        return ok_;
    }

  private:
    Session* session_ = nullptr;
    bool done_ = false;
    bool ok_ = true;
};

// Qt ends the process with exit() when the display's connection breaks (a display server that
// went away). The session is then ended from an exit handler, so that shards in flight are still
// reported as in a normal stop. The handler needs a way back to this run: the one pointer below,
// set only while the loop runs.
ShutdownOnce* exitShutdown = nullptr;

void endSessionAtExit() {
    if (exitShutdown == nullptr) return;
    log::get("DesktopApp")->warn("the display went away; stopping the worker");
    std::exchange(exitShutdown, nullptr)->run();
}

}  // namespace

int runDesktop(int argc, char** argv, const SessionFactory& makeSession, DesktopOptions options) {
    auto logger = log::get("DesktopApp");
    QApplication app(argc, argv);
    configureApplication(app);
    QtExecutor mainSequence(app);

    // Before anything else: a second start only brings the running one forward.
    DesktopShell* shellForActivation = nullptr;
    auto claim = SingleInstance::claim([&shellForActivation] {
        if (shellForActivation) shellForActivation->activate();
    });
    if (claim.outcome == SingleInstance::Outcome::another) {
        std::cout << "Corvane is already running; its dashboard was brought forward.\n";
        return 0;
    }

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

    std::unique_ptr<Session> session;
    try {
        session = makeSession(mainSequence);
        if (session) session->launch();
    } catch (const std::exception& error) {
        logger->error("Could not start the desktop session: {}", error.what());
        return 1;
    }
    if (!session) {
        logger->error("Could not start the desktop session: no session was built");
        return 1;
    }
    shutdown.attach(session.get());
    exitShutdown = &shutdown;
    std::atexit(endSessionAtExit);
    std::optional<WorkerStatusPublisher> statusFile;
    if (options.publishStatus) statusFile.emplace(*session, mainSequence, workerStatusFilePath());

    const auto paintLog = PaintLog::installIfRequested();
    OnboardingFlow onboarding(*session, mainSequence, {[&shellForActivation] {
        if (shellForActivation) shellForActivation->openDashboard();
    }});
    DesktopShell shell(*session, mainSequence,
                       {options.version, quit, [&onboarding] { onboarding.show(); }});
    shellForActivation = &shell;
    shell.start();
    // A computer that is not enrolled yet starts with the way to enrol it.
    if (session->model().phase() != AppPhase::enrolled) onboarding.show();

    const int loopResult = QApplication::exec();
    shellForActivation = nullptr;
    const bool shutDownCleanly = shutdown.run();
    statusFile.reset();
    exitShutdown = nullptr;
    session.reset();
    return shutDownCleanly ? loopResult : 1;
}

}  // namespace corvane
