#include "CorvaneApp/ui/dashboard/pages/ModelsPage.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QRadioButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Cards.h"
#include "CorvaneApp/ui/widgets/DiskAllocationBarView.h"
#include "CorvaneApp/ui/widgets/ModelRowView.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/SegmentedControl.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

// The side cards: narrow enough that the rows beside them keep room for their texts.
constexpr int kSideWidth = 260;

using Kind = DiskAllocationBar::Segment::Kind;

class Swatch final : public QWidget {
  public:
    Swatch(Kind kind, QWidget* parent) : QWidget(parent), kind_(kind) { setFixedSize(10, 10); }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(DiskAllocationBarView::colorFor(kind_, palette()));
        painter.drawRoundedRect(QRectF(rect()), 2, 2);
    }

  private:
    Kind kind_;
};

constexpr std::array kFilters{ModelsPageFilter::all, ModelsPageFilter::installed,
                              ModelsPageFilter::available, ModelsPageFilter::update};

}  // namespace

ModelsPage::ModelsPage(PageContext& context, QWidget* parent)
    : DashboardPage(parent), context_(context) {
    const auto& info = dashPageInfo(DashPage::models);
    setObjectName(QStringLiteral("modelsPage"));
    setAccessibleName(qt(info.title));

    auto* scroll = makePageScroll(*this);
    scroll->setObjectName(QStringLiteral("modelsScroll"));
    auto* body = new QWidget(scroll);
    scroll->setWidget(body);
    auto* page = new QVBoxLayout(body);
    page->setContentsMargins(28, 24, 28, 24);
    page->setSpacing(14);
    page->addWidget(new PageHeader(qt(info.title), qt(info.line), body));
    auto* columns = new QHBoxLayout;
    columns->setSpacing(14);
    page->addLayout(columns);
    page->addStretch(1);
    auto* mainColumn = new QVBoxLayout;
    mainColumn->setSpacing(14);
    auto* side = new QVBoxLayout;
    side->setSpacing(14);
    columns->addLayout(mainColumn, 1);
    columns->addLayout(side, 0);

    // The disk.
    auto* hero = makeCard(body);
    auto* heroColumn = new QVBoxLayout(hero);
    heroColumn->setContentsMargins(18, 14, 18, 14);
    heroColumn->setSpacing(8);
    diskTitle_ = makeLabel(hero, "heading");
    heroColumn->addWidget(diskTitle_);
    diskBar_ = new DiskAllocationBarView(hero);
    heroColumn->addWidget(diskBar_);
    // Two entries a line: in one line the legend is wider than the column.
    auto* legend = new QGridLayout;
    legend->setHorizontalSpacing(6);
    legend->setVerticalSpacing(4);
    const std::array kinds{Kind::system, Kind::models, Kind::headroom};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const int line = int(i / 2), at = int(i % 2) * 2;
        legend->addWidget(new Swatch(kinds[i], hero), line, at);
        diskLegend_[i] = makeLabel(hero, "muted");
        diskLegend_[i]->setObjectName(QStringLiteral("diskLegend"));
        legend->addWidget(diskLegend_[i], line, at + 1);
    }
    legend->setColumnMinimumWidth(1, 200);
    legend->setColumnStretch(3, 1);
    heroColumn->addLayout(legend);
    removal_ = makeNamedLabel(hero, "removalText", "muted");
    heroColumn->addWidget(removal_);
    mainColumn->addWidget(hero);

    // The filter and the categories.
    filters_ = new SegmentedControl(
        QStringLiteral("Filter models"),
        [this](std::size_t index) {
            if (index < kFilters.size()) filter_ = kFilters[index];
            refresh();
        },
        body);
    filters_->setObjectName(QStringLiteral("modelFilters"));
    mainColumn->addWidget(filters_);
    empty_ = makeLabel(body, "muted");
    empty_->setObjectName(QStringLiteral("emptyText"));
    mainColumn->addWidget(empty_);
    for (int i = 0; i < 4; ++i) {
        const bool first = i == 0;
        auto* section = makeCard(body);
        auto* sectionColumn = new QVBoxLayout(section);
        sectionColumn->setContentsMargins(18, first ? 14 : 10, 18, first ? 14 : 10);
        sectionColumn->setSpacing(4);
        CategoryView view;
        auto* top = new QHBoxLayout;
        view.name = makeLabel(section, "heading");
        top->addWidget(view.name);
        view.usage = makeLabel(section, "muted");
        top->addWidget(view.usage);
        top->addStretch(1);
        view.allow = new QCheckBox(QStringLiteral("Serve"), section);
        view.allow->setObjectName(first ? QStringLiteral("allowTranscription")
                                        : QStringLiteral("allowCategory"));
        top->addWidget(view.allow);
        sectionColumn->addLayout(top);
        view.line = makeLabel(section, "muted", true);
        sectionColumn->addWidget(view.line);
        view.paused = makeLabel(section, "error", true);
        sectionColumn->addWidget(view.paused);
        view.rows = new QVBoxLayout;
        view.rows->setSpacing(6);
        sectionColumn->addLayout(view.rows);
        if (first) {
            QObject::connect(view.allow, &QCheckBox::toggled, this, [this](bool on) {
                context_.session.userDefaults().setBool(ModelsPagePrefs::allowTranscriptionKey, on);
                refresh();
            });
        }
        mainColumn->addWidget(section);
        categories_.push_back(view);
    }
    mainColumn->addStretch(1);

    // Who picks the models.
    auto* mode = makeCard(body);
    mode->setFixedWidth(kSideWidth);
    auto* modeColumn = new QVBoxLayout(mode);
    modeColumn->setContentsMargins(16, 14, 16, 14);
    modeColumn->setSpacing(6);
    modeQuestion_ = makeLabel(mode, "heading");
    modeColumn->addWidget(modeQuestion_);
    auto* modeGroup = new QButtonGroup(mode);
    for (std::size_t i = 0; i < modes_.size(); ++i) {
        modes_[i] = new QRadioButton(mode);
        modes_[i]->setObjectName(i == 0 ? QStringLiteral("modeAuto")
                                        : QStringLiteral("modeManual"));
        modeGroup->addButton(modes_[i], int(i));
        modeLines_[i] = makeLabel(mode, "muted", true);
        modeLines_[i]->setContentsMargins(22, 0, 0, 4);
        modeColumn->addWidget(modes_[i]);
        modeColumn->addWidget(modeLines_[i]);
        QObject::connect(modes_[i], &QRadioButton::toggled, this, [this, i](bool on) {
            if (!on) return;
            context_.session.userDefaults().setString(
                ModelsPagePrefs::modeKey,
                std::string(rawValue(i == 0 ? ModelsPageMode::automatic : ModelsPageMode::manual)));
            refresh();
        });
    }
    modeLine_ = makeNamedLabel(mode, "modeLine");
    modeColumn->addWidget(modeLine_);
    side->addWidget(mode);

    // The budget.
    auto* budget = makeCard(body);
    budget->setFixedWidth(kSideWidth);
    auto* budgetColumn = new QVBoxLayout(budget);
    budgetColumn->setContentsMargins(16, 14, 16, 14);
    budgetColumn->setSpacing(6);
    budgetTitle_ = makeLabel(budget, "muted", true);
    budgetColumn->addWidget(budgetTitle_);
    budgetText_ = makeLabel(budget, "", true);
    budgetColumn->addWidget(budgetText_);
    auto* budgetRow = new QHBoxLayout;
    budget_ = new QSlider(Qt::Horizontal, budget);
    budget_->setObjectName(QStringLiteral("diskBudget"));
    budget_->setAccessibleName(QStringLiteral("Maximum space Corvane can use"));
    budget_->setFocusPolicy(Qt::StrongFocus);
    budgetRow->addWidget(budget_, 1);
    budgetValue_ = makeLabel(budget, "heading");
    budgetValue_->setObjectName(QStringLiteral("diskBudgetValue"));
    budgetRow->addWidget(budgetValue_);
    budgetColumn->addLayout(budgetRow);
    freeText_ = makeNamedLabel(budget, "freeText", "muted");
    budgetColumn->addWidget(freeText_);
    QObject::connect(budget_, &QSlider::valueChanged, this, [this](int gigabytes) {
        context_.session.userDefaults().setNumber(ModelsPagePrefs::diskBudgetKey, gigabytes);
        refresh();
    });
    budgetColumn->addSpacing(6);
    purgeTitle_ = makeLabel(budget, "heading");
    budgetColumn->addWidget(purgeTitle_);
    purge_ = new QComboBox(budget);
    purge_->setObjectName(QStringLiteral("purgeDays"));
    purge_->setAccessibleName(QStringLiteral("Evict after unused for"));
    purgeTitle_->setBuddy(purge_);
    budgetColumn->addWidget(purge_);
    QObject::connect(purge_, &QComboBox::activated, this, [this](int index) {
        context_.session.userDefaults().setInteger(ModelsPagePrefs::purgeDaysKey,
                                                   purge_->itemData(index).toInt());
        refresh();
    });
    purgeText_ = makeLabel(budget, "muted", true);
    budgetColumn->addWidget(purgeText_);
    budgetColumn->addSpacing(6);
    integrityTitle_ = makeLabel(budget, "heading");
    budgetColumn->addWidget(integrityTitle_);
    integrityText_ = makeLabel(budget, "muted", true);
    budgetColumn->addWidget(integrityText_);
    side->addWidget(budget);
    side->addStretch(1);
}

ModelRowView* ModelsPage::row(std::string_view rowID) {
    return findChild<ModelRowView*>(qt("modelRow-" + std::string(rowID)));
}

void ModelsPage::refresh() {
    render(modelsPageState(context_.model(), ModelsPagePrefs::load(context_.session.userDefaults()),
                           filter_, lastRemoval_));
}

void ModelsPage::shown() {
    context_.model().refreshVolumeInfo();
}

void ModelsPage::act(const ModelsPageRow& row, ModelsPageRow::Action action) {
    const auto identifier = modelIdentifierForRow(row.id);
    if (!identifier) return;
    AppModel& model = context_.model();
    const auto& requests = model.requests();
    switch (action) {
        case ModelsPageRow::Action::install:
            if (requests.requestModelInstall) requests.requestModelInstall(*identifier);
            break;
        case ModelsPageRow::Action::retry:
            // Whisper's download is the one the application retries; Parakeet's starts again.
            if (*identifier == whisperModelIdentifier()) {
                model.retryDownload();
            } else if (requests.requestModelInstall) {
                requests.requestModelInstall(*identifier);
            }
            break;
        case ModelsPageRow::Action::remove: {
            const std::uint64_t freed =
                requests.requestModelRemove ? requests.requestModelRemove(*identifier) : 0;
            lastRemoval_ = ModelRemoval{row.name, freed};
            model.refreshVolumeInfo();
            break;
        }
    }
    refresh();
}

void ModelsPage::renderRows(CategoryView& view, const std::vector<ModelsPageRow>& rows) {
    while (view.rowViews.size() < rows.size()) {
        auto* rowView = new ModelRowView(
            [this](const ModelsPageRow& row, ModelsPageRow::Action action) { act(row, action); },
            this);
        view.rows->addWidget(rowView);
        view.rowViews.push_back(rowView);
    }
    for (std::size_t i = 0; i < view.rowViews.size(); ++i) {
        setVisibleIfChanged(*view.rowViews[i], i < rows.size());
        if (i < rows.size()) view.rowViews[i]->render(rows[i]);
    }
}

void ModelsPage::render(const ModelsPageState& state) {
    if (shown_ == state) return;
    setText(*diskTitle_, state.diskTitle);
    diskBar_->render(state.disk);
    for (std::size_t i = 0; i < diskLegend_.size(); ++i) {
        const bool present = i < state.diskLegend.size();
        setText(*diskLegend_[i], present ? state.diskLegend[i].text : "");
    }
    setText(*removal_, state.removalText.value_or(""));
    setVisibleIfChanged(*removal_, state.removalText.has_value());

    std::vector<SegmentedControl::Segment> segments;
    for (const auto& option : state.filters) {
        segments.push_back(
            {option.title, "filter-" + std::string(rawValue(option.filter)), option.selected, {}});
    }
    filters_->render(segments);
    setText(*empty_, state.emptyText.value_or(""));
    setVisibleIfChanged(*empty_, state.emptyText.has_value());

    for (std::size_t i = 0; i < categories_.size() && i < state.categories.size(); ++i) {
        auto& view = categories_[i];
        const auto& category = state.categories[i];
        setText(*view.name, category.name);
        setText(*view.line, category.line);
        setText(*view.usage, category.usage);
        setVisibleIfChanged(*view.usage, !category.usage.empty());
        view.allow->setEnabled(category.open);
        view.allow->setAccessibleName(qt("Serve " + category.name));
        if (view.allow->isChecked() != category.allowed) {
            const QSignalBlocker quiet(view.allow);
            view.allow->setChecked(category.allowed);
        }
        // A closed category is off by nature; only a switched-off open one says it is paused.
        const bool paused = category.open && !category.allowed;
        setText(*view.paused, paused ? category.pausedText : "");
        setVisibleIfChanged(*view.paused, paused);
        renderRows(view, category.rows);
    }

    setText(*modeQuestion_, state.modeQuestion);
    for (std::size_t i = 0; i < modes_.size() && i < state.modes.size(); ++i) {
        setText(*modes_[i], state.modes[i].title);
        modes_[i]->setAccessibleDescription(qt(state.modes[i].line));
        setText(*modeLines_[i], state.modes[i].line);
        if (modes_[i]->isChecked() != state.modes[i].selected) {
            const QSignalBlocker quiet(modes_[i]);
            modes_[i]->setChecked(state.modes[i].selected);
        }
    }
    setText(*modeLine_, state.modeLine);

    setText(*budgetTitle_, state.budgetTitle);
    setText(*budgetText_, state.budgetText);
    {
        const QSignalBlocker quiet(budget_);
        budget_->setRange(state.budgetMinimum, state.budgetMaximum);
        budget_->setValue(state.budgetGB);
    }
    budget_->setAccessibleDescription(qt(state.budgetValueText));
    setText(*budgetValue_, state.budgetValueText);
    setText(*freeText_, state.freeText);
    setVisibleIfChanged(*freeText_, !state.freeText.empty());
    setText(*purgeTitle_, state.purgeTitle);
    if (!shown_ || shown_->purgeChoices != state.purgeChoices) {
        const QSignalBlocker quiet(purge_);
        purge_->clear();
        for (int days : state.purgeChoices)
            purge_->addItem(qt(std::to_string(days) + " days"), days);
    }
    if (const int at = purge_->findData(state.purgeDays); at != purge_->currentIndex()) {
        const QSignalBlocker quiet(purge_);
        purge_->setCurrentIndex(at);
    }
    setText(*purgeText_, state.purgeText);
    setText(*integrityTitle_, state.integrityTitle);
    setText(*integrityText_, state.integrityText);
    shown_ = state;
}

}  // namespace corvane
