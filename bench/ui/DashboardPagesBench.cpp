// dashboard_pages_bench [ROUNDS]: the dashboard offscreen on the sample account, the earnings
// range at 90 days. Each round opens a new window on the overview and switches to the earnings
// page: the state is computed, the charts built, the page laid out and painted (grab). Then status
// ticks that change no earnings: they must build no chart again. Prints each measurement next to
// its target; exits 1 when one is missed.

#include <QApplication>
#include <QElapsedTimer>
#include <QFont>
#include <QLocale>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/dashboard/pages/EarningsPage.h"
#include "CorvaneApp/ui/harness/ScreenshotHarness.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/ChartView.h"

using namespace corvane;

namespace {

constexpr double kSwitchTargetMs = 50;
constexpr int kTicks = 200;

void settle() {
    for (int round = 0; round < 5; ++round) QCoreApplication::processEvents(QEventLoop::AllEvents);
}

double percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(share * double(values.size())))];
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::setenv("TZ", "UTC", 1);
    QApplication app(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    theme::apply(app, theme::Variant::light);

    QtExecutor mainSequence(app);
    DemoSession::Options options;
    options.version = "bench";
    options.referenceDate = dateFromUnixSeconds(kScreenshotReferenceUnixSeconds);
    options.simulateModelDownload = false;
    options.startBackgroundTasks = false;
    options.now = [at = options.referenceDate] { return at; };
    DemoSession session(mainSequence, std::move(options));
    session.launch();
    applyScreenshotScenario(*findScreenshotScenario("earnings-default"), session);
    session.userDefaults().setString("cvn.earnings.range", "90d");
    session.model().selectEarningsRange(EarningsRange::quarter);
    settle();
    const auto days = session.model().earnings().currentEarningsSnapshot().daily.size();
    if (days != 90) {
        std::printf("the sample account shows %zu days, not 90\n", days);
        return 1;
    }

    PageContext context{session, mainSequence, [](DashPage) {}, [] {}};
    std::vector<double> switches;
    for (int round = 0; round < rounds; ++round) {
        DashboardWindow window(context);
        window.setAttribute(Qt::WA_DontShowOnScreen);
        window.resize(DashboardWindow::defaultWidth, DashboardWindow::defaultHeight);
        window.showPage(DashPage::overview);
        window.show();
        settle();
        QElapsedTimer timer;
        timer.start();
        window.showPage(DashPage::earnings);
        const QImage picture = window.grab().toImage();  // laid out and painted
        switches.push_back(double(timer.nsecsElapsed()) / 1e6);
        if (picture.isNull()) return 1;
    }

    DashboardWindow window(context);
    window.setAttribute(Qt::WA_DontShowOnScreen);
    window.showPage(DashPage::earnings);
    window.show();
    settle();
    auto subscription =
        session.model().observe([&window](ModelParts parts) { window.modelChanged(parts); });
    auto& page = static_cast<EarningsPage&>(window.page(DashPage::earnings));
    const int builtBefore = page.areaChart().rebuildCount() + page.hourBars().rebuildCount();
    QElapsedTimer timer;
    timer.start();
    for (int tick = 0; tick < kTicks; ++tick) {
        const auto status = tick % 2 ? WorkerStatus::idle : WorkerStatus::earning;
        session.model().setStatusPresentation(WorkerStatusPresentation::defaultFor(status));
        session.model().refreshStatus(true);
        settle();
    }
    const double tickMs = double(timer.nsecsElapsed()) / 1e6 / kTicks;
    const int rebuilt =
        page.areaChart().rebuildCount() + page.hourBars().rebuildCount() - builtBefore;

    const double median = percentile(switches, 0.5), worst = percentile(switches, 1.0);
    std::printf(
        "switch to earnings, 90 days: median %.1f ms, p90 %.1f ms, max %.1f ms over %d "
        "(target < %.0f ms)\n",
        median, percentile(switches, 0.9), worst, rounds, kSwitchTargetMs);
    std::printf(
        "status tick on the earnings page: %.2f ms each, charts built again: %d over %d "
        "ticks (target 0)\n",
        tickMs, rebuilt, kTicks);
    return median < kSwitchTargetMs && rebuilt == 0 ? 0 : 1;
}
