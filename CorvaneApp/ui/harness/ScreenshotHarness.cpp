#include "CorvaneApp/ui/harness/ScreenshotHarness.h"

#include <QApplication>
#include <QBuffer>
#include <QFont>
#include <QLocale>
#include <QVBoxLayout>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>

#include "CorvaneApp/dashboard/PopoverState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/onboarding/OnboardingWindow.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/tray/PopoverView.h"

namespace corvane {
namespace {

// Lets posted work (the demo account's answers, layout) land before a picture is taken.
void settle() {
    for (int round = 0; round < 5; ++round) QCoreApplication::processEvents(QEventLoop::AllEvents);
}

}  // namespace

QImage renderScene(const ScreenshotScenarioInfo& scenario, DemoSession& session,
                   Executor& mainSequence) {
    applyScreenshotScenario(scenario, session);
    settle();
    // After the account's answers have landed, or they would overwrite the records a scene sets.
    if (scenario.prepare) {
        scenario.prepare(session);
        settle();
    }
    if (scenario.surface.kind == ScreenshotSurface::Kind::popover) {
        QWidget frame;
        frame.setAttribute(Qt::WA_DontShowOnScreen);
        frame.setAutoFillBackground(true);
        auto* layout = new QVBoxLayout(&frame);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* view = new PopoverView({}, &frame);
        layout->addWidget(view);
        view->render(popoverState(session.model()));
        frame.show();
        settle();
        frame.adjustSize();
        settle();
        return frame.grab().toImage();
    }
    if (scenario.surface.kind == ScreenshotSurface::Kind::onboarding) {
        // The owner's walk to the step, each answer of the sample coordinator landing between.
        auto model = session.makeOnboarding({});
        for (int turn = 0; advanceOnboardingScene(scenario.surface, *model); ++turn) {
            if (turn > 20) throw std::runtime_error("the onboarding scene never settled");
            settle();
        }
        OnboardingWindow window(*model, {});
        window.setAttribute(Qt::WA_DontShowOnScreen);
        window.resize(OnboardingWindow::defaultWidth, OnboardingWindow::defaultHeight);
        window.show();
        settle();
        window.refresh();
        settle();
        return window.grab().toImage();
    }
    PageContext context{session, mainSequence, [](DashPage) {}, [] {}};
    DashboardWindow window(context);
    window.setAttribute(Qt::WA_DontShowOnScreen);
    window.resize(DashboardWindow::defaultWidth, DashboardWindow::defaultHeight);
    window.showPage(scenario.surface.page);
    window.show();
    settle();
    window.page(scenario.surface.page).prepareScene(scenario.id);
    window.renderAll();
    settle();
    return window.grab().toImage();
}

int runScreenshotHarness(int argc, char** argv, const ScreenshotLaunchArgs& args,
                         const std::string& version, std::ostream& out, theme::Variant variant) {
    auto fail = [&out](const std::string& text) {
        out << "ERROR: " << text << std::endl;
        return 1;
    };
    // Pinned before Qt starts: no display needed, one pixel per point, one zone and locale.
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::setenv("QT_SCALE_FACTOR", "1", 1);
    ::unsetenv("QT_SCREEN_SCALE_FACTORS");
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    QApplication app(argc, argv);
    QApplication::setEffectEnabled(Qt::UI_AnimateCombo, false);
    QApplication::setEffectEnabled(Qt::UI_AnimateTooltip, false);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    theme::apply(app, variant);

    const auto* scenario = findScreenshotScenario(args.scenario);
    if (!scenario) return fail("unknown scenario id: " + args.scenario);
    log::get("ScreenshotController")->info("applying scenario {}", args.scenario);

    QtExecutor mainSequence(app);
    DemoSession::Options options;
    options.version = version;
    options.referenceDate = dateFromUnixSeconds(kScreenshotReferenceUnixSeconds);
    options.simulateModelDownload = false;
    options.startBackgroundTasks = false;
    options.now = [at = options.referenceDate] { return at; };
    options.sessionElapsed = [] { return 10.0; };  // a shard is running in every picture
    DemoSession session(mainSequence, std::move(options));
    session.launch();

    QImage image;
    try {
        image = renderScene(*scenario, session, mainSequence);
    } catch (const std::exception& error) {
        log::get("ScreenshotController")->error("{}", error.what());
    }
    QByteArray png;
    QBuffer buffer(&png);
    if (image.isNull() || !buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "PNG"))
        return fail("snapshot failed for scenario " + args.scenario);
    if (!args.captureTo) return fail("write failed for (no --capture-to path)");
    try {
        writeFileAtomically(*args.captureTo, std::string_view(png.constData(), png.size()));
    } catch (const std::exception& error) {
        log::get("ScreenshotController")->error("{}", error.what());
        return fail("write failed for " + args.captureTo->string());
    }
    log::get("ScreenshotController")
        ->info("captured {} → {}", args.scenario, args.captureTo->string());
    out << "OK " << args.captureTo->string() << std::endl;
    session.terminate();
    return 0;
}

}  // namespace corvane
