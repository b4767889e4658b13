#include "CorvaneApp/ui/dashboard/pages/OverviewPage.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include <cmath>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Cards.h"
#include "CorvaneApp/ui/widgets/ChartView.h"
#include "CorvaneApp/ui/widgets/MetricCard.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/StatusBlock.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
OverviewPage::OverviewPage(PageContext& context, QWidget* parent)
    : DashboardPage(parent), context_(context) {
    const auto& info = dashPageInfo(DashPage::overview);
    setObjectName(QStringLiteral("overviewPage"));
    setAccessibleName(qt(info.title));
    auto* scroll = makePageScroll(*this);
    auto* content = new QWidget(scroll);
    scroll->setWidget(content);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(14);
    column->addWidget(new PageHeader(qt(info.title), qt(info.line), content));

    // The hero: the status on the left, today's earnings on the right.
    auto* hero = makeCard(content);
    auto* heroRow = new QHBoxLayout(hero);
    heroRow->setContentsMargins(18, 16, 18, 16);
    heroRow->setSpacing(24);
    auto* statusColumn = new QVBoxLayout;
    statusColumn->setSpacing(6);
    status_ = new StatusBlock(hero);
    statusColumn->addWidget(status_);
    explanation_ = makeNamedLabel(hero, "statusExplanation", "muted");
    statusColumn->addWidget(explanation_);
    statusColumn->addStretch(1);
    heroRow->addLayout(statusColumn, 1);
    auto* todayColumn = new QVBoxLayout;
    todayColumn->setSpacing(2);
    todayTitle_ = makeNamedLabel(hero, "todayTitle", "muted");
    today_ = makeNamedLabel(hero, "todayEarnings", "hero");
    today_->setWordWrap(false);
    todayDelta_ = makeNamedLabel(hero, "todayDelta", "muted");
    pace_ = makeNamedLabel(hero, "recentPace");
    activity_ = makeNamedLabel(hero, "todayActivity", "muted");
    for (QLabel* text : {todayTitle_, today_, todayDelta_, pace_, activity_}) {
        text->setAlignment(Qt::AlignRight);
        todayColumn->addWidget(text);
    }
    heroRow->addLayout(todayColumn, 1);
    column->addWidget(hero);

    // The balance: three figures side by side.
    auto* balances = new QHBoxLayout;
    balances->setSpacing(14);
    available_ = new MetricCard(QStringLiteral("availableBalance"), content);
    held_ = new MetricCard(QStringLiteral("heldBalance"), content);
    week_ = new MetricCard(QStringLiteral("weekEarnings"), content);
    for (MetricCard* metric : {available_, held_, week_}) balances->addWidget(metric, 1);
    column->addLayout(balances);

    // A model download on its way, or failed with its retry.
    downloadCard_ = makeCard(content, "Model download");
    auto* download = new QGridLayout(downloadCard_);
    download->setContentsMargins(18, 14, 18, 14);
    download->setHorizontalSpacing(16);
    download->setVerticalSpacing(4);
    downloadTitle_ = makeNamedLabel(downloadCard_, "downloadTitle", "heading");
    downloadBody_ = makeNamedLabel(downloadCard_, "downloadBody");
    downloadBar_ = new QProgressBar(downloadCard_);
    downloadBar_->setObjectName(QStringLiteral("downloadProgress"));
    downloadBar_->setTextVisible(false);
    downloadDetail_ = makeNamedLabel(downloadCard_, "downloadDetail", "muted");
    retry_ = new QPushButton(downloadCard_);
    retry_->setObjectName(QStringLiteral("retryDownload"));
    QObject::connect(retry_, &QPushButton::clicked, this,
                     [this] { context_.model().retryDownload(); });
    download->addWidget(downloadTitle_, 0, 0);
    download->addWidget(retry_, 0, 1, 2, 1, Qt::AlignVCenter);
    download->addWidget(downloadBody_, 1, 0);
    download->addWidget(downloadBar_, 2, 0, 1, 2);
    download->addWidget(downloadDetail_, 3, 0, 1, 2);
    download->setColumnStretch(0, 1);
    downloadCard_->setVisible(false);
    column->addWidget(downloadCard_);

    // The last hour of memory and CPU.
    auto* charts = new QHBoxLayout;
    charts->setSpacing(14);
    for (ChartView** chart : {&memory_, &cpu_}) {
        auto* frame = makeCard(content);
        auto* inner = new QVBoxLayout(frame);
        inner->setContentsMargins(14, 12, 14, 10);
        *chart = new ChartView(frame);
        (*chart)->setMinimumHeight(250);
        inner->addWidget(*chart);
        charts->addWidget(frame, 1);
    }
    memory_->setObjectName(QStringLiteral("memoryChart"));
    cpu_->setObjectName(QStringLiteral("cpuChart"));
    column->addLayout(charts);
    column->addStretch(1);
}

ModelParts OverviewPage::observedParts() const {
    return {ModelPart::status,    ModelPart::pause,  ModelPart::earnings, ModelPart::account,
            ModelPart::resources, ModelPart::models, ModelPart::machine};
}

void OverviewPage::refresh() {
    render(overviewPageState(context_.model()));
}

void OverviewPage::render(const OverviewPageState& state) {
    if (shown_ == state) return;
    status_->render(state.status, state.statusLabel, state.statusLine);
    setText(*explanation_, state.statusExplanation.value_or(""));
    setVisibleIfChanged(*explanation_, state.statusExplanation.has_value());
    setText(*todayTitle_, state.todayTitle);
    setText(*today_, state.today);
    today_->setAccessibleName(qt(state.todayTitle + ": " + state.today));
    setText(*todayDelta_, state.todayDelta);
    setVisibleIfChanged(*todayDelta_, !state.todayDelta.empty());
    setText(*pace_, state.pace);
    setText(*activity_, state.activity);
    available_->render(state.availableTitle, state.available, "");
    held_->render(state.heldTitle, state.held, "");
    week_->render(state.weekTitle, state.week, "");

    setVisibleIfChanged(*downloadCard_, state.download.has_value());
    if (state.download) {
        const auto& card = *state.download;
        setText(*downloadTitle_, card.title);
        setText(*downloadBody_, card.body);
        setText(*downloadDetail_, card.detail);
        theme::setRole(*downloadDetail_, card.failed ? "error" : "muted");
        setText(*retry_, card.retryTitle);
        retry_->setAccessibleName(qt(card.retryTitle + " of the model"));
        setVisibleIfChanged(*retry_, card.failed);
        setVisibleIfChanged(*downloadBar_, !card.failed);
        if (card.fraction) {
            downloadBar_->setRange(0, 1000);
            downloadBar_->setValue(int(std::lround(*card.fraction * 1000)));
        } else {
            downloadBar_->setRange(0, 0);  // busy: the size is not known yet
        }
        downloadBar_->setAccessibleName(qt(card.title + ": " + card.detail));
    }
    memory_->render(state.memoryChart);
    cpu_->render(state.cpuChart);
    shown_ = state;
}

}  // namespace corvane
