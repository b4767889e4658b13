#include "CorvaneApp/ui/dashboard/pages/SchedulePage.h"

#include <QCheckBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Cards.h"
#include "CorvaneApp/ui/widgets/LimitSlider.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/ScheduleHeatmap.h"
#include "CorvaneApp/ui/widgets/SegmentedControl.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

using CellState = HeatmapState::CellState;

// A legend's colour square.
class Swatch final : public QWidget {
  public:
    Swatch(CellState state, QWidget* parent) : QWidget(parent), state_(state) {
        setFixedSize(ScheduleHeatmap::cellSize, ScheduleHeatmap::cellSize);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        ScheduleHeatmap::paintCell(painter, QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), state_,
                                   palette());
    }

  private:
    CellState state_;
};

}  // namespace

SchedulePage::SchedulePage(PageContext& context, QWidget* parent)
    : DashboardPage(parent),
      context_(context),
      editor_(context.session.configStore().scheduleGrid()),
      tab_(schedulePageTabFromRaw(
          context.session.userDefaults().string(std::string(kScheduleTabKey)))) {
    const auto& info = dashPageInfo(DashPage::schedule);
    setObjectName(QStringLiteral("schedulePage"));
    setAccessibleName(qt(info.title));

    auto* scroll = scroll_ = makePageScroll(*this);
    scroll->setObjectName(QStringLiteral("scheduleScroll"));
    auto* body = new QWidget(scroll);
    body->setObjectName(QStringLiteral("scheduleBody"));
    scroll->setWidget(body);
    auto* column = new QVBoxLayout(body);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(14);
    column->addWidget(new PageHeader(qt(info.title), qt(info.line), body));

    // The head: the estimate and the two rates.
    auto* head = makeCard(body);
    auto* headRow = new QHBoxLayout(head);
    headRow->setContentsMargins(18, 14, 18, 14);
    headRow->setSpacing(28);
    auto* estimateColumn = new QVBoxLayout;
    estimateColumn->setSpacing(2);
    estimateTitle_ = makeLabel(head, "muted");
    estimate_ = makeLabel(head, "hero");
    estimate_->setObjectName(QStringLiteral("monthlyEstimate"));
    estimateBasis_ = makeLabel(head, "muted");
    estimateColumn->addWidget(estimateTitle_);
    estimateColumn->addWidget(estimate_);
    estimateColumn->addWidget(estimateBasis_);
    headRow->addLayout(estimateColumn, 1);
    for (auto* rate : {&awayRate_, &inUseRate_}) {
        auto* box = new QVBoxLayout;
        box->setSpacing(2);
        (*rate)[1] = makeLabel(head, "muted");
        (*rate)[0] = makeLabel(head, "title");
        (*rate)[2] = makeLabel(head, "muted");
        box->addWidget((*rate)[1]);
        box->addWidget((*rate)[0]);
        box->addWidget((*rate)[2]);
        headRow->addLayout(box);
    }
    awayRate_[0]->setObjectName(QStringLiteral("awayRate"));
    inUseRate_[0]->setObjectName(QStringLiteral("inUseRate"));
    column->addWidget(head);

    // The limits above the quiet hours: side by side they need more than the window's width.
    auto* middle = new QVBoxLayout;
    middle->setSpacing(14);

    // The limits, in two tabs.
    auto* limits = makeCard(body);
    auto* limitsColumn = new QVBoxLayout(limits);
    limitsColumn->setContentsMargins(18, 14, 18, 16);
    limitsColumn->setSpacing(10);
    tabs_ = new SegmentedControl(
        QStringLiteral("Limits"),
        [this](std::size_t index) {
            selectTab(index == 0 ? SchedulePageTab::away : SchedulePageTab::inUse);
        },
        limits);
    tabs_->setObjectName(QStringLiteral("scheduleTabs"));
    limitsColumn->addWidget(tabs_);

    auto* awayPage = tabPages_[0] = new QWidget(limits);
    auto* away = new QVBoxLayout(awayPage);
    away->setContentsMargins(0, 4, 0, 0);
    away->setSpacing(8);
    awayHeading_ = makeLabel(awayPage, "heading");
    awayLine_ = makeLabel(awayPage, "muted", true);
    away->addWidget(awayHeading_);
    away->addWidget(awayLine_);
    idle_ = new LimitSlider([this](int v) { change(ScheduleSetting::idleMinutes, v); }, awayPage);
    idle_->slider().setObjectName(QStringLiteral("idleMinutesSlider"));
    away->addWidget(idle_);
    const std::array<std::pair<ScheduleSetting, const char*>, 2> toggleSettings{
        std::pair{ScheduleSetting::pauseOnMeeting, "pauseOnMeetingToggle"},
        std::pair{ScheduleSetting::pauseOnHeavyApp, "pauseOnHeavyAppToggle"}};
    for (std::size_t i = 0; i < toggleSettings.size(); ++i) {
        auto* toggle = new QCheckBox(awayPage);
        toggle->setObjectName(QString::fromLatin1(toggleSettings[i].second));
        const auto setting = toggleSettings[i].first;
        QObject::connect(toggle, &QCheckBox::toggled, this,
                         [this, setting](bool on) { change(setting, on ? 1 : 0); });
        auto* detail = makeLabel(awayPage, "muted", true);
        detail->setContentsMargins(24, 0, 0, 0);
        away->addWidget(toggle);
        away->addWidget(detail);
        toggles_[i] = toggle;
        toggleDetails_[i] = detail;
    }
    away->addSpacing(6);
    awayLimitsHeading_ = makeLabel(awayPage, "heading");
    awayLimitsLine_ = makeLabel(awayPage, "muted", true);
    away->addWidget(awayLimitsHeading_);
    away->addWidget(awayLimitsLine_);
    awayCpu_ =
        new LimitSlider([this](int v) { change(ScheduleSetting::awayCpuCeiling, v); }, awayPage);
    awayCpu_->slider().setObjectName(QStringLiteral("awayCpuSlider"));
    awayRam_ =
        new LimitSlider([this](int v) { change(ScheduleSetting::awayRamCeilingGB, v); }, awayPage);
    awayRam_->slider().setObjectName(QStringLiteral("awayRamSlider"));
    away->addWidget(awayCpu_);
    away->addWidget(awayRam_);
    away->addStretch(1);
    limitsColumn->addWidget(awayPage);

    auto* inUsePage = tabPages_[1] = new QWidget(limits);
    auto* inUse = new QVBoxLayout(inUsePage);
    inUse->setContentsMargins(0, 4, 0, 0);
    inUse->setSpacing(8);
    inUseHeading_ = makeLabel(inUsePage, "heading");
    inUseLine_ = makeLabel(inUsePage, "muted", true);
    inUse->addWidget(inUseHeading_);
    inUse->addWidget(inUseLine_);
    inUseCpu_ =
        new LimitSlider([this](int v) { change(ScheduleSetting::inUseCpuCeiling, v); }, inUsePage);
    inUseCpu_->slider().setObjectName(QStringLiteral("inUseCpuSlider"));
    inUseRam_ = new LimitSlider([this](int v) { change(ScheduleSetting::inUseRamCeilingGB, v); },
                                inUsePage);
    inUseRam_->slider().setObjectName(QStringLiteral("inUseRamSlider"));
    inUse->addWidget(inUseCpu_);
    inUse->addWidget(inUseRam_);
    inUse->addStretch(1);
    limitsColumn->addWidget(inUsePage);
    middle->addWidget(limits);

    // The quiet hours.
    auto* quiet = quietCard_ = makeCard(body);
    auto* quietColumn = new QVBoxLayout(quiet);
    quietColumn->setContentsMargins(18, 14, 18, 16);
    quietColumn->setSpacing(8);
    quietTitle_ = makeLabel(quiet, "heading");
    quietLine_ = makeLabel(quiet, "muted", true);
    quietColumn->addWidget(quietTitle_);
    quietColumn->addWidget(quietLine_);
    heatmap_ = new ScheduleHeatmap(
        {[this](HeatmapCell cell) { paintCell(cell); }, [this] { finishPaint(); },
         [this](HeatmapCell cell) { toggleCell(cell); }},
        quiet);
    quietColumn->addWidget(heatmap_, 0, Qt::AlignLeft);
    const std::array<CellState, 3> legendStates{CellState::allowedBusy, CellState::quietSuggest,
                                                CellState::blocked};
    for (std::size_t i = 0; i < legendStates.size(); ++i) {
        auto* entry = new QHBoxLayout;
        entry->setSpacing(8);
        entry->addWidget(new Swatch(legendStates[i], quiet));
        legend_[i] = makeLabel(quiet, "");
        legend_[i]->setObjectName(QStringLiteral("legendEntry"));
        entry->addWidget(legend_[i], 1);
        quietColumn->addLayout(entry);
    }
    auto* banner = new QFrame(quiet);
    banner->setObjectName(QStringLiteral("suggestionBanner"));
    banner->setFrameShape(QFrame::StyledPanel);
    auto* bannerRow = new QHBoxLayout(banner);
    bannerRow->setContentsMargins(10, 8, 10, 8);
    banner_ = makeNamedLabel(banner, "suggestionText");
    bannerRow->addWidget(banner_, 1);
    apply_ = new QPushButton(banner);
    apply_->setObjectName(QStringLiteral("applySuggestions"));
    QObject::connect(apply_, &QPushButton::clicked, this, [this] { applySuggestions(); });
    bannerRow->addWidget(apply_, 0, Qt::AlignTop);
    quietColumn->addSpacing(4);
    quietColumn->addWidget(banner);
    quietColumn->addStretch(1);
    middle->addWidget(quiet);
    column->addLayout(middle);

    // What other settings would earn.
    auto* scenarios = makeCard(body);
    auto* scenarioColumn = new QVBoxLayout(scenarios);
    scenarioColumn->setContentsMargins(18, 14, 18, 16);
    scenarioColumn->setSpacing(8);
    scenarioTitle_ = makeLabel(scenarios, "heading");
    scenarioColumn->addWidget(scenarioTitle_);
    scenarioGrid_ = new QGridLayout;
    scenarioGrid_->setHorizontalSpacing(24);
    scenarioGrid_->setVerticalSpacing(6);
    scenarioGrid_->setColumnStretch(0, 1);
    scenarioColumn->addLayout(scenarioGrid_);
    column->addWidget(scenarios);
    column->addStretch(1);

    storeSubscription_ = context_.session.configStore().observe([this](WorkerConfigStore::Field) {
        if (isVisible()) refresh();
    });
    historySubscription_ = history_.observe([this] {
        if (isVisible()) refresh();
    });
}

SchedulePage::~SchedulePage() {
    *alive_ = false;
}

void SchedulePage::refresh() {
    auto& store = context_.session.configStore();
    editor_.follow(store.scheduleGrid());
    render(schedulePageState(context_.model(), store.settings(), editor_.grid(), tab_, history_));
}

void SchedulePage::shown() {
    AppModel& model = context_.model();
    const std::string workerID = model.machine().workerID;
    history_.beginLoad(workerID);
    model.loadActivityHistogram(historyDays, [this, alive = std::weak_ptr<bool>(alive_), workerID](
                                                 std::optional<ActivityHistogramResponse> response,
                                                 std::optional<std::string> error) {
        const auto page = alive.lock();
        if (!page || !*page) return;
        if (response) {
            history_.completeLoad(workerID, std::move(*response));
        } else {
            history_.failLoad(workerID,
                              error.value_or("The activity history could not be loaded."));
        }
    });
}

void SchedulePage::prepareScene(std::string_view sceneID) {
    selectTab(sceneID == "schedule-in-use-tab" ? SchedulePageTab::inUse : SchedulePageTab::away);
    // The suggestions sit below the limits: that scene shows them.
    if (sceneID == "schedule-with-suggestion")
        scroll_->verticalScrollBar()->setValue(quietCard_->y() - 14);
}

void SchedulePage::selectTab(SchedulePageTab tab) {
    tab_ = tab;
    context_.session.userDefaults().setString(std::string(kScheduleTabKey),
                                              std::string(rawValue(tab)));
    refresh();
}

void SchedulePage::change(ScheduleSetting setting, int value) {
    auto& store = context_.session.configStore();
    switch (setting) {
        case ScheduleSetting::idleMinutes:
            return store.setIdleMinutes(value);
        case ScheduleSetting::pauseOnMeeting:
            return store.setPauseOnMeeting(value != 0);
        case ScheduleSetting::pauseOnHeavyApp:
            return store.setPauseOnHeavyApp(value != 0);
        case ScheduleSetting::awayCpuCeiling:
            return store.setAwayCpuCeiling(value);
        case ScheduleSetting::awayRamCeilingGB:
            return store.setAwayRamCeilingGB(value);
        case ScheduleSetting::inUseCpuCeiling:
            return store.setInUseCpuCeiling(value);
        case ScheduleSetting::inUseRamCeilingGB:
            return store.setInUseRamCeilingGB(value);
    }
}

void SchedulePage::paintCell(HeatmapCell cell) {
    if (editor_.paintDraggedCell(cell)) refresh();
}

void SchedulePage::finishPaint() {
    // One save per drag, whatever it crossed.
    if (editor_.finishDragPaint()) context_.session.configStore().setScheduleGrid(editor_.grid());
}

void SchedulePage::toggleCell(HeatmapCell cell) {
    if (editor_.isDragging() || !editor_.toggleCell(cell)) return;
    context_.session.configStore().setScheduleGrid(editor_.grid());
}

void SchedulePage::applySuggestions() {
    const auto engine = history_.suggestionEngine();
    if (!engine || editor_.isDragging()) return;
    ScheduleGrid grid = editor_.grid();
    if (engine->applySuggestions(grid) > 0) context_.session.configStore().setScheduleGrid(grid);
}

void SchedulePage::render(const SchedulePageState& state) {
    if (shown_ == state) return;
    setText(*estimateTitle_, state.estimateTitle);
    setText(*estimate_, state.estimateText);
    setText(*estimateBasis_, state.estimateBasis);
    for (auto [labels, rate] :
         {std::pair{&awayRate_, &state.away}, std::pair{&inUseRate_, &state.inUse}}) {
        setText(*(*labels)[0], rate->rate);
        setText(*(*labels)[1], rate->title);
        setText(*(*labels)[2], rate->line);
    }
    tabs_->render({{state.tabTitles[0], "awayTab", state.tab == SchedulePageTab::away, {}},
                   {state.tabTitles[1], "inUseTab", state.tab == SchedulePageTab::inUse, {}}});
    // A hidden tab takes no room: the card is as tall as the tab shown.
    const std::size_t shown = state.tab == SchedulePageTab::away ? 0 : 1;
    for (std::size_t i = 0; i < tabPages_.size(); ++i) {
        if (tabPages_[i]->isHidden() == (i == shown)) tabPages_[i]->setVisible(i == shown);
    }

    setText(*awayHeading_, state.awayHeading);
    setText(*awayLine_, state.awayLine);
    idle_->render(state.idle);
    for (std::size_t i = 0; i < toggles_.size() && i < state.toggles.size(); ++i) {
        const auto& toggle = state.toggles[i];
        setText(*toggles_[i], toggle.label);
        toggles_[i]->setAccessibleDescription(qt(toggle.detail));
        setText(*toggleDetails_[i], toggle.detail);
        if (toggles_[i]->isChecked() != toggle.on) {
            const QSignalBlocker quiet(toggles_[i]);
            toggles_[i]->setChecked(toggle.on);
        }
    }
    setText(*awayLimitsHeading_, state.awayLimitsHeading);
    setText(*awayLimitsLine_, state.awayLimitsLine);
    awayCpu_->render(state.awayCpu);
    awayRam_->render(state.awayRam);
    setText(*inUseHeading_, state.inUseHeading);
    setText(*inUseLine_, state.inUseLine);
    inUseCpu_->render(state.inUseCpu);
    inUseRam_->render(state.inUseRam);

    setText(*quietTitle_, state.quietTitle);
    setText(*quietLine_, state.quietLine);
    heatmap_->render(state.heatmap);
    for (std::size_t i = 0; i < legend_.size() && i < state.heatmap.legend.size(); ++i)
        setText(*legend_[i], state.heatmap.legend[i].label);
    setText(*banner_, state.bannerText);
    setText(*apply_, state.applyTitle);
    apply_->setAccessibleName(qt(state.applyTitle));
    apply_->setAccessibleDescription(qt(state.bannerText));
    if (apply_->isEnabled() != state.canApplySuggestions)
        apply_->setEnabled(state.canApplySuggestions);

    setText(*scenarioTitle_, state.scenarioTitle);
    if (scenarioCells_.empty()) {
        for (std::size_t c = 0; c < state.scenarioColumns.size(); ++c) {
            auto* header = makeLabel(this, "muted");
            setText(*header, state.scenarioColumns[c]);
            scenarioGrid_->addWidget(header, 0, int(c), c == 0 ? Qt::AlignLeft : Qt::AlignRight);
        }
    }
    while (scenarioCells_.size() < state.scenarios.size()) {
        std::array<QLabel*, 4> cells{};
        const int row = int(scenarioCells_.size()) + 1;
        for (int c = 0; c < 4; ++c) {
            cells[std::size_t(c)] = makeLabel(this, "");
            scenarioGrid_->addWidget(cells[std::size_t(c)], row, c,
                                     c == 0 ? Qt::AlignLeft : Qt::AlignRight);
        }
        scenarioCells_.push_back(cells);
    }
    for (std::size_t r = 0; r < state.scenarios.size(); ++r) {
        const auto& row = state.scenarios[r];
        const std::array<const std::string*, 4> texts{&row.label, &row.away, &row.inUse,
                                                      &row.monthly};
        for (std::size_t c = 0; c < 4; ++c) {
            setText(*scenarioCells_[r][c], *texts[c]);
            theme::setRole(*scenarioCells_[r][c], row.highlight ? "heading" : "");
        }
    }
    shown_ = state;
}

}  // namespace corvane
