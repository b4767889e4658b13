#include "CorvaneApp/ui/dashboard/pages/EarningsPage.h"

#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QStandardPaths>
#include <QVBoxLayout>

#include <cmath>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Cards.h"
#include "CorvaneApp/ui/widgets/ChartView.h"
#include "CorvaneApp/ui/widgets/MetricCard.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/SegmentedControl.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

std::optional<std::string> askWithDialog(QWidget* parent, const std::string& suggested) {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (folder.isEmpty()) folder = QDir::homePath();
    const QString chosen = QFileDialog::getSaveFileName(parent, QStringLiteral("Export earnings"),
                                                        QDir(folder).filePath(qt(suggested)),
                                                        QStringLiteral("CSV files (*.csv)"));
    if (chosen.isEmpty()) return std::nullopt;
    return chosen.toStdString();
}

}  // namespace

EarningsPage::EarningsPage(PageContext& context, QWidget* parent)
    : DashboardPage(parent),
      context_(context),
      selection_(context.model(), context.session.userDefaults()) {
    pickSavePath_ = [this](const std::string& suggested) { return askWithDialog(this, suggested); };
    const auto& info = dashPageInfo(DashPage::earnings);
    setObjectName(QStringLiteral("earningsPage"));
    setAccessibleName(qt(info.title));
    auto* scroll = makePageScroll(*this);
    auto* content = new QWidget(scroll);
    scroll->setWidget(content);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(12);

    auto* header = new PageHeader(qt(info.title), qt(info.line), content);
    ranges_ = new SegmentedControl(
        QStringLiteral("Earnings range"), [this](std::size_t index) { selectRange(index); },
        header);
    ranges_->setObjectName(QStringLiteral("earningsRange"));
    header->trailing().addWidget(ranges_, 0, Qt::AlignVCenter);
    header->trailing().addSpacing(8);
    export_ = new QPushButton(header);
    export_->setObjectName(QStringLiteral("exportEarningsCSV"));
    export_->setAccessibleName(QStringLiteral("Export the chart's daily earnings as CSV"));
    QObject::connect(export_, &QPushButton::clicked, this, [this] { exportCSV(); });
    header->trailing().addWidget(export_, 0, Qt::AlignVCenter);
    column->addWidget(header);

    auto* status = new QHBoxLayout;
    loading_ = makeNamedLabel(content, "rangeLoading", "muted");
    exportOutcome_ = makeNamedLabel(content, "exportOutcome", "muted");
    exportOutcome_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    status->addWidget(loading_);
    status->addWidget(exportOutcome_, 1);
    loading_->setVisible(false);
    exportOutcome_->setVisible(false);
    column->addLayout(status);

    auto* metrics = new QHBoxLayout;
    metrics->setSpacing(12);
    today_ = new MetricCard(QStringLiteral("todayEarnings"), content);
    range_ = new MetricCard(QStringLiteral("rangeTotal"), content);
    pace_ = new MetricCard(QStringLiteral("recentPace"), content);
    month_ = new MetricCard(QStringLiteral("monthToDate"), content);
    monthBar_ = new QProgressBar(month_);
    monthBar_->setObjectName(QStringLiteral("monthProgress"));
    monthBar_->setTextVisible(false);
    monthBar_->setRange(0, 1000);
    month_->addBelow(monthBar_);
    for (MetricCard* metric : {today_, range_, pace_, month_}) metrics->addWidget(metric, 1);
    column->addLayout(metrics);

    projectionNote_ = makeNamedLabel(content, "projectionNote", "muted");
    lagNote_ = makeNamedLabel(content, "recentUnpaidLagNote", "muted");
    column->addWidget(projectionNote_);
    column->addWidget(lagNote_);

    auto* areaCard = makeCard(content);
    auto* areaColumn = new QVBoxLayout(areaCard);
    areaColumn->setContentsMargins(14, 12, 14, 10);
    area_ = new ChartView(areaCard);
    area_->setObjectName(QStringLiteral("earningsAreaChart"));
    area_->setMinimumHeight(230);
    areaColumn->addWidget(area_);
    column->addWidget(areaCard);

    auto* bottom = new QHBoxLayout;
    bottom->setSpacing(12);
    auto* hoursCard = makeCard(content);
    auto* hoursColumn = new QVBoxLayout(hoursCard);
    hoursColumn->setContentsMargins(14, 12, 14, 10);
    hours_ = new ChartView(hoursCard);
    hours_->setObjectName(QStringLiteral("earningsHourBars"));
    hours_->setMinimumHeight(220);
    hoursColumn->addWidget(hours_);
    bottom->addWidget(hoursCard, 11);

    auto* jobsCard = makeCard(content, "Recent jobs");
    auto* jobsColumn = new QVBoxLayout(jobsCard);
    jobsColumn->setContentsMargins(14, 12, 14, 12);
    jobsColumn->setSpacing(2);
    jobsTitle_ = makeNamedLabel(jobsCard, "jobsTitle", "heading");
    jobsCaption_ = makeNamedLabel(jobsCard, "jobsCaption", "muted");
    jobsColumn->addWidget(jobsTitle_);
    jobsColumn->addWidget(jobsCaption_);
    jobsColumn->addSpacing(6);
    jobsEmpty_ = makeNamedLabel(jobsCard, "jobsEmpty", "muted");
    jobsColumn->addWidget(jobsEmpty_);
    jobsGrid_ = new QGridLayout;
    jobsGrid_->setHorizontalSpacing(12);
    jobsGrid_->setVerticalSpacing(6);
    jobsGrid_->setColumnStretch(0, 1);
    jobsColumn->addLayout(jobsGrid_);
    jobsColumn->addStretch(1);
    bottom->addWidget(jobsCard, 9);
    column->addLayout(bottom);
    column->addStretch(1);
}

ModelParts EarningsPage::observedParts() const {
    return {ModelPart::earnings, ModelPart::account};
}

std::string EarningsPage::locale() const {
    return QLocale().name().toStdString();
}

void EarningsPage::refresh() {
    render(earningsPageState(context_.model(), selection_.inForce(), locale()));
}

void EarningsPage::shown() {
    selection_.restore();
    refresh();
}

void EarningsPage::prepareScene(std::string_view) {
    refresh();
}

void EarningsPage::selectRange(std::size_t index) {
    if (index >= allEarningsRanges.size()) return;
    selection_.write(segmentLabel(allEarningsRanges[index]));
    refresh();
}

void EarningsPage::exportCSV() {
    const AppModel& model = context_.model();
    const auto path = pickSavePath_ ? pickSavePath_(earningsExportFileName(model)) : std::nullopt;
    if (!path) return;
    const ExportOutcome outcome = exportEarningsCSV(model, *path);
    setText(*exportOutcome_, outcome.text);
    theme::setRole(*exportOutcome_, outcome.failed ? "error" : "muted");
    setVisibleIfChanged(*exportOutcome_, true);
}

void EarningsPage::render(const EarningsPageState& state) {
    if (shown_ == state) return;
    std::vector<SegmentedControl::Segment> segments;
    for (std::size_t i = 0; i < state.rangeLabels.size(); ++i) {
        const std::string& title = state.rangeLabels[i];
        segments.push_back({title, "earningsRange" + title, i == std::size_t(state.selectedRange),
                            "Show " + std::string(longName(allEarningsRanges[i]))});
    }
    ranges_->render(segments);
    setText(*export_, state.exportTitle);
    setText(*loading_, state.loadingNote);
    setVisibleIfChanged(*loading_, !state.loadingNote.empty());

    today_->render(state.todayTitle, state.today, state.todayDelta);
    range_->render(state.rangeTitle, state.rangeTotal, state.rangeCaption);
    pace_->render(state.paceTitle, state.pace, state.paceCaption);
    month_->render(state.monthTitle, state.monthToDate, state.monthProjection);
    monthBar_->setValue(int(std::lround(state.monthFraction * 1000)));
    monthBar_->setAccessibleName(qt(state.monthToDate + ", " + state.monthProjection));
    setVisibleIfChanged(*monthBar_, !state.monthProjection.empty());
    setText(*projectionNote_, state.projectionNote);
    setText(*lagNote_, state.unpaidLagNote.value_or(""));
    setVisibleIfChanged(*lagNote_, state.unpaidLagNote.has_value());

    area_->render(state.areaChart);
    hours_->render(state.hourBars);
    renderJobs(state);
    shown_ = state;
}

void EarningsPage::renderJobs(const EarningsPageState& state) {
    setText(*jobsTitle_, state.jobsTitle);
    setText(*jobsCaption_, state.jobsCaption);
    setText(*jobsEmpty_, state.jobsEmpty);
    setVisibleIfChanged(*jobsEmpty_, state.jobs.empty());
    if (shown_ && shown_->jobs == state.jobs) return;
    while (QLayoutItem* item = jobsGrid_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    int row = 0;
    for (const auto& job : state.jobs) {
        auto* title = new QLabel(qt(job.title), this);
        title->setToolTip(qt(job.jobID));
        auto* details = new QLabel(qt(job.audioSize + " · " + job.completed), this);
        theme::setRole(*details, "muted");
        auto* amount = new QLabel(qt(job.earnings), this);
        amount->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        QFont strong = amount->font();
        strong.setWeight(QFont::DemiBold);
        amount->setFont(strong);
        jobsGrid_->addWidget(title, row, 0);
        jobsGrid_->addWidget(amount, row, 1, 2, 1);
        jobsGrid_->addWidget(details, row + 1, 0);
        title->setAccessibleName(
            qt(job.title + ", " + job.audioSize + ", " + job.earnings + ", " + job.completed));
        row += 2;
    }
}

}  // namespace corvane
