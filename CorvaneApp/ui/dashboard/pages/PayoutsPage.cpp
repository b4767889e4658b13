#include "CorvaneApp/ui/dashboard/pages/PayoutsPage.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTableWidget>
#include <QVBoxLayout>

#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/dashboard/pages/AddPayoutMethodSheet.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Cards.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

QPushButton* button(QWidget* parent, const char* objectName) {
    auto* push = new QPushButton(parent);
    push->setObjectName(QString::fromLatin1(objectName));
    return push;
}

void setButton(QPushButton& push, std::string_view title, bool enabled, std::string_view hint) {
    setText(push, title);
    push.setAccessibleName(qt(title));
    push.setToolTip(qt(hint));
    push.setAccessibleDescription(qt(hint));
    if (push.isEnabled() != enabled) push.setEnabled(enabled);
}

void setOptionalText(QLabel& text, const std::optional<std::string>& value) {
    setText(text, value.value_or(""));
    setVisibleIfChanged(text, value.has_value());
}

}  // namespace

PayoutsPage::PayoutsPage(PageContext& context, QWidget* parent)
    : DashboardPage(parent),
      context_(context),
      methods_(std::make_unique<PayoutMethodsStore>(
          context.mainSequence, context.model().backgroundRunner(),
          [&context] { return context.model().coordinatorAPI(); })) {
    const auto& info = dashPageInfo(DashPage::payouts);
    setObjectName(QStringLiteral("payoutsPage"));
    setAccessibleName(qt(info.title));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    scroll_ = new QScrollArea(this);
    scroll_->setObjectName(QStringLiteral("payoutsScroll"));
    scroll_->setWidgetResizable(true);
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->viewport()->setBackgroundRole(QPalette::Window);
    outer->addWidget(scroll_);

    auto* content = new QWidget(scroll_);
    content->setBackgroundRole(QPalette::Window);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(14);

    auto* header = new PageHeader(qt(info.title), qt(info.line), content);
    refresh_ = button(header, "refreshPayouts");
    add_ = button(header, "addPayoutMethod");
    header->trailing().addWidget(refresh_);
    header->trailing().addWidget(add_);
    QObject::connect(refresh_, &QPushButton::clicked, this, [this] {
        methods_->refresh();
        context_.model().refreshFromAPI();
    });
    QObject::connect(add_, &QPushButton::clicked, this, [this] { sheet_->open(); });
    column->addWidget(header);

    auto* banner = makeCard(content, "Payout schedule");
    auto* bannerColumn = new QVBoxLayout(banner);
    bannerColumn->setContentsMargins(16, 12, 16, 12);
    bannerColumn->setSpacing(4);
    scheduleBanner_ = makeNamedLabel(banner, "payoutScheduleBanner", "heading");
    intro_ = makeLabel(banner, "muted", true);
    bannerColumn->addWidget(scheduleBanner_);
    bannerColumn->addWidget(intro_);
    setupBanner_ = makeNamedLabel(banner, "payoutSetupBanner", "error");
    syncBanner_ = makeNamedLabel(banner, "payoutSyncBanner", "error");
    bannerColumn->addWidget(setupBanner_);
    bannerColumn->addWidget(syncBanner_);
    column->addWidget(banner);

    auto* balances = new QHBoxLayout;
    balances->setSpacing(12);
    for (auto [widgets, name] :
         {std::pair{&available_, "availableBalance"}, std::pair{&held_, "heldBalance"},
          std::pair{&estimated_, "estimatedBalance"}}) {
        auto* frame = makeCard(content, name);
        *widgets = makeBalanceCard(frame, name);
        balances->addWidget(frame, 1);
    }
    column->addLayout(balances);

    auto* methodsCard = makeCard(content, "Payout methods");
    auto* methods = new QVBoxLayout(methodsCard);
    methods->setContentsMargins(16, 14, 16, 14);
    methods->setSpacing(8);
    methodsHeading_ = makeLabel(methodsCard, "heading", true);
    methodsStatus_ = makeNamedLabel(methodsCard, "payoutMethodsStatus", "muted");
    methodActionError_ = makeNamedLabel(methodsCard, "payoutMethodActionError", "error");
    methods->addWidget(methodsHeading_);
    methods->addWidget(methodsStatus_);
    methods->addWidget(methodActionError_);
    methodRows_ = new QVBoxLayout;
    methodRows_->setSpacing(0);
    methods->addLayout(methodRows_);
    emptyTitle_ = makeNamedLabel(methodsCard, "payoutMethodsEmpty");
    emptyBody_ = makeLabel(methodsCard, "muted", true);
    emptyAdd_ = button(methodsCard, "addFirstPayoutMethod");
    QObject::connect(emptyAdd_, &QPushButton::clicked, this, [this] { sheet_->open(); });
    methods->addWidget(emptyTitle_);
    methods->addWidget(emptyBody_);
    methods->addWidget(emptyAdd_, 0, Qt::AlignLeft);
    methods->addSpacing(6);
    optionsHeading_ = makeLabel(methodsCard, "muted", true);
    methods->addWidget(optionsHeading_);
    options_ = new QWidget(methodsCard);
    options_->setObjectName(QStringLiteral("payoutOptions"));
    new QGridLayout(options_);
    methods->addWidget(options_);
    column->addWidget(methodsCard);

    auto* preferences = makeCard(content, "Payout preferences");
    auto* prefsColumn = new QVBoxLayout(preferences);
    prefsColumn->setContentsMargins(16, 14, 16, 14);
    prefsColumn->setSpacing(8);
    preferencesHeading_ = makeLabel(preferences, "heading", true);
    preferencesCaption_ = makeLabel(preferences, "muted", true);
    prefsColumn->addWidget(preferencesHeading_);
    prefsColumn->addWidget(preferencesCaption_);
    auto* pickers = new QHBoxLayout;
    pickers->setSpacing(10);
    methodPickerLabel_ = makeLabel(preferences, "", false);
    methodPicker_ = new QComboBox(preferences);
    methodPicker_->setObjectName(QStringLiteral("payoutMethodPicker"));
    methodPickerLabel_->setBuddy(methodPicker_);
    schedulePickerLabel_ = makeLabel(preferences, "", false);
    schedulePicker_ = new QComboBox(preferences);
    schedulePicker_->setObjectName(QStringLiteral("payoutSchedulePicker"));
    schedulePickerLabel_->setBuddy(schedulePicker_);
    pickers->addWidget(methodPickerLabel_);
    pickers->addWidget(methodPicker_);
    pickers->addSpacing(16);
    pickers->addWidget(schedulePickerLabel_);
    pickers->addWidget(schedulePicker_);
    pickers->addStretch(1);
    prefsColumn->addLayout(pickers);
    // Only the owner's own choices go to the settings store (activated, not every index change).
    QObject::connect(methodPicker_, &QComboBox::activated, this, [this](int index) {
        if (!shownPreferences_ || index < 0 ||
            std::size_t(index) >= shownPreferences_->methods.size())
            return;
        context_.session.configStore().setPayoutMethod(
            shownPreferences_->methods[std::size_t(index)].value);
    });
    QObject::connect(schedulePicker_, &QComboBox::activated, this, [this](int index) {
        if (!shownPreferences_ || index < 0 ||
            std::size_t(index) >= shownPreferences_->schedules.size())
            return;
        context_.session.configStore().setPayoutSchedule(
            shownPreferences_->schedules[std::size_t(index)].value);
    });
    column->addWidget(preferences);

    auto* historyCard = makeCard(content, "Payout history");
    auto* history = new QVBoxLayout(historyCard);
    history->setContentsMargins(16, 14, 16, 14);
    history->setSpacing(8);
    auto* historyTop = new QHBoxLayout;
    historyHeading_ = makeLabel(historyCard, "heading", false);
    export_ = button(historyCard, "exportPayouts");
    QObject::connect(export_, &QPushButton::clicked, this, [this] { exportHistory(); });
    historyTop->addWidget(historyHeading_);
    historyTop->addStretch(1);
    historyTop->addWidget(export_);
    history->addLayout(historyTop);
    exportStatus_ = makeNamedLabel(historyCard, "exportPayoutsStatus", "muted");
    exportStatus_->hide();
    history->addWidget(exportStatus_);
    history_ = new QTableWidget(historyCard);
    history_->setObjectName(QStringLiteral("payoutHistoryTable"));
    history_->setAccessibleName(QStringLiteral("Payout history"));
    history_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    history_->setSelectionBehavior(QAbstractItemView::SelectRows);
    history_->setShowGrid(false);
    history_->verticalHeader()->hide();
    history_->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    history_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    history_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    history_->setFrameShape(QFrame::NoFrame);
    history->addWidget(history_);
    historyEmpty_ = makeNamedLabel(historyCard, "payoutHistoryEmpty", "muted");
    history->addWidget(historyEmpty_);
    column->addWidget(historyCard);
    column->addStretch(1);
    scroll_->setWidget(content);

    sheet_ = new AddPayoutMethodSheet(
        [this](AddPayoutMethodRequest request, AddPayoutMethodSheet::Answer answer) {
            methods_->add(std::move(request), std::move(answer));
        },
        *this);

    methodsSubscription_ = methods_->observe([this] {
        if (isVisible()) refresh();
    });
    settingsSubscription_ =
        context_.session.configStore().observe([this](WorkerConfigStore::Field field) {
            using F = WorkerConfigStore::Field;
            if (field != F::payoutMethod && field != F::payoutSchedule &&
                field != F::payoutPrefsRequiredSetup && field != F::payoutPrefsSyncBannerText)
                return;
            if (isVisible()) refresh();
        });
}

PayoutsPage::~PayoutsPage() = default;

PayoutsPage::BalanceWidgets PayoutsPage::makeBalanceCard(QWidget* parent, const char* objectName) {
    auto* column = new QVBoxLayout(parent);
    column->setContentsMargins(16, 12, 16, 12);
    column->setSpacing(4);
    BalanceWidgets widgets{makeLabel(parent, "muted", false), makeLabel(parent, "hero", false),
                           makeLabel(parent, "heading", true), makeLabel(parent, "muted", true)};
    widgets.value->setObjectName(QString::fromLatin1(objectName) + QStringLiteral("Value"));
    widgets.headline->setObjectName(QString::fromLatin1(objectName) + QStringLiteral("Headline"));
    widgets.caption->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    column->addWidget(widgets.title);
    column->addWidget(widgets.value);
    column->addWidget(widgets.headline);
    column->addWidget(widgets.caption, 1);
    return widgets;
}

void PayoutsPage::renderBalance(BalanceWidgets& card, const BalanceCard& state) {
    setText(*card.title, state.title);
    card.title->parentWidget()->setAccessibleName(qt(state.title));
    setText(*card.value, state.value);
    setOptionalText(*card.headline, state.headline);
    setText(*card.caption, state.caption);
}

void PayoutsPage::shown() {
    methods_->refresh();
}

void PayoutsPage::refresh() {
    auto state =
        payoutsPageState(context_.model(), methods_->state(), context_.session.configStore());
    if (shown_ == state) return;
    setButton(*refresh_, state.refreshTitle, state.refreshEnabled, "");
    setButton(*add_, state.addTitle, state.addEnabled, "");
    setText(*scheduleBanner_, state.scheduleBanner);
    setText(*intro_, state.intro);
    setOptionalText(*setupBanner_, state.setupBanner);
    setOptionalText(*syncBanner_, state.syncBanner);
    renderBalance(available_, state.available);
    renderBalance(held_, state.held);
    renderBalance(estimated_, state.estimated);
    renderMethods(state);
    renderPreferences(state.preferences);
    renderHistory(state);
    shown_ = std::move(state);
}

void PayoutsPage::renderMethods(const PayoutsPageState& state) {
    setText(*methodsHeading_, state.methodsHeading);
    setOptionalText(*methodsStatus_, state.methodsStatus);
    setOptionalText(*methodActionError_, state.methodActionError);
    setOptionalText(*emptyTitle_, state.emptyTitle);
    setOptionalText(*emptyBody_, state.emptyBody);
    setButton(*emptyAdd_, state.addTitle, state.addEnabled, "");
    setVisibleIfChanged(*emptyAdd_, state.emptyTitle.has_value());
    setText(*optionsHeading_, state.optionsHeading);
    if (!shown_ || shown_->options != state.options) {
        auto* grid = static_cast<QGridLayout*>(options_->layout());
        while (auto* item = grid->takeAt(0)) {
            delete item->widget();
            delete item;
        }
        grid->setContentsMargins(0, 0, 0, 0);
        grid->setHorizontalSpacing(16);
        for (std::size_t i = 0; i < state.options.size(); ++i) {
            const auto& option = state.options[i];
            auto* name = makeLabel(options_, "", false);
            auto* note = makeLabel(options_, "muted", false);
            auto* minimum = makeLabel(options_, "muted", false);
            setText(*name, option.label);
            setText(*note, option.note);
            setText(*minimum, option.minimum);
            grid->addWidget(name, int(i), 0);
            grid->addWidget(note, int(i), 1);
            grid->addWidget(minimum, int(i), 2);
        }
        grid->setColumnStretch(1, 1);
    }

    if (rowsRendered_ && shownRows_ == state.methods) return;
    rowsRendered_ = true;
    for (auto* row : methodRowWidgets_) {
        methodRows_->removeWidget(row);
        row->hide();
        row->deleteLater();  // it may hold the button whose click led here
    }
    methodRowWidgets_.clear();
    for (const auto& rowState : state.methods) {
        auto* row = new QFrame(this);
        row->setObjectName(QStringLiteral("payoutMethodRow"));
        row->setProperty("methodId", qt(rowState.method.id));
        row->setAccessibleName(qt(rowState.title));
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 8, 0, 8);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(2);
        auto* titleLine = new QHBoxLayout;
        auto* title = makeLabel(row, "heading", false);
        setText(*title, rowState.title);
        titleLine->addWidget(title);
        if (!rowState.primaryBadge.empty()) {
            auto* badge = new QLabel(qt(rowState.primaryBadge), row);
            badge->setObjectName(QStringLiteral("primaryBadge"));
            badge->setStyleSheet(QStringLiteral(
                "QLabel { background: palette(highlight); color: palette(highlighted-text);"
                " border-radius: 4px; padding: 1px 6px; }"));
            titleLine->addWidget(badge);
        }
        titleLine->addStretch(1);
        texts->addLayout(titleLine);
        auto* detail = makeLabel(row, "", false);
        detail->setText(qt(rowState.detail));
        detail->setTextInteractionFlags(Qt::TextSelectableByMouse);
        auto* terms = makeLabel(row, "muted", false);
        terms->setText(qt(rowState.terms));
        texts->addWidget(detail);
        texts->addWidget(terms);
        line->addLayout(texts, 1);
        const WorkerPayoutMethod method = rowState.method;
        if (!rowState.isPrimary) {
            auto* primary = button(row, "makePrimaryButton");
            primary->setProperty("methodId", qt(method.id));
            setButton(*primary, rowState.makePrimaryTitle, rowState.canMakePrimary,
                      "Pay released earnings to " + rowState.title + ".");
            QObject::connect(primary, &QPushButton::clicked, this,
                             [this, method] { methods_->makePrimary(method); });
            line->addWidget(primary, 0, Qt::AlignVCenter);
        }
        auto* remove = button(row, "removeMethodButton");
        remove->setProperty("methodId", qt(method.id));
        setButton(*remove, rowState.removeTitle, rowState.canRemove, rowState.removeHint);
        QObject::connect(remove, &QPushButton::clicked, this,
                         [this, method] { confirmRemoval(method); });
        line->addWidget(remove, 0, Qt::AlignVCenter);
        methodRows_->addWidget(row);
        methodRowWidgets_.push_back(row);
    }
    shownRows_ = state.methods;
}

void PayoutsPage::renderPreferences(const PayoutPreferencesState& state) {
    if (shownPreferences_ == state) return;
    setText(*preferencesHeading_, state.heading);
    setText(*preferencesCaption_, state.caption);
    setText(*methodPickerLabel_, state.methodLabel);
    setText(*schedulePickerLabel_, state.scheduleLabel);
    methodPicker_->setAccessibleName(qt(state.methodLabel));
    schedulePicker_->setAccessibleName(qt(state.scheduleLabel));
    auto fill = [](QComboBox& picker, const std::vector<PayoutChoice>& choices,
                   std::size_t selected) {
        const QSignalBlocker quiet(&picker);
        bool same = picker.count() == int(choices.size());
        for (std::size_t i = 0; same && i < choices.size(); ++i)
            same = picker.itemText(int(i)) == qt(choices[i].title);
        if (!same) {
            picker.clear();
            for (const auto& choice : choices) picker.addItem(qt(choice.title));
        }
        if (picker.currentIndex() != int(selected)) picker.setCurrentIndex(int(selected));
    };
    fill(*methodPicker_, state.methods, state.selectedMethod);
    fill(*schedulePicker_, state.schedules, state.selectedSchedule);
    shownPreferences_ = state;
}

void PayoutsPage::renderHistory(const PayoutsPageState& state) {
    setText(*historyHeading_, state.historyHeading);
    setButton(*export_, state.exportTitle, state.exportEnabled, state.exportTitle);
    setOptionalText(*historyEmpty_, state.historyEmpty);
    setVisibleIfChanged(*history_, !state.history.empty());
    if (shown_ && shown_->history == state.history &&
        shown_->historyColumns == state.historyColumns)
        return;
    history_->setColumnCount(int(state.historyColumns.size()));
    QStringList headers;
    for (const auto& column : state.historyColumns) headers << qt(column);
    history_->setHorizontalHeaderLabels(headers);
    history_->setRowCount(int(state.history.size()));
    for (std::size_t r = 0; r < state.history.size(); ++r) {
        const auto& row = state.history[r];
        const std::string* cells[] = {&row.date,      &row.settled, &row.method,
                                      &row.reference, &row.amount,  &row.status};
        for (int c = 0; c < 6; ++c) {
            auto* item = new QTableWidgetItem(qt(*cells[c]));
            if (c == 4) item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            history_->setItem(int(r), c, item);
        }
    }
    // The whole table shows; the page scrolls, not the table.
    history_->resizeRowsToContents();
    int height = history_->horizontalHeader()->sizeHint().height() + 2;
    for (int r = 0; r < history_->rowCount(); ++r) height += history_->rowHeight(r);
    history_->setFixedHeight(height);
}

void PayoutsPage::confirmRemoval(const WorkerPayoutMethod& method) {
    const auto texts = removalConfirmation(method);
    auto* box = new QMessageBox(QMessageBox::Question, qt(texts.title), qt(texts.text),
                                QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("removePayoutMethodConfirmation"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* confirm = box->addButton(qt(texts.confirm), QMessageBox::DestructiveRole);
    confirm->setObjectName(QStringLiteral("confirmRemoveMethod"));
    auto* cancel = box->addButton(qt(texts.cancel), QMessageBox::RejectRole);
    box->setDefaultButton(cancel);
    box->setEscapeButton(cancel);
    QObject::connect(box, &QMessageBox::buttonClicked, this,
                     [this, confirm, method](QAbstractButton* clicked) {
                         if (clicked == confirm) methods_->remove(method);
                     });
    box->open();  // window-modal, and the event loop runs on
}

void PayoutsPage::exportHistory() {
    if (!shown_) return;
    const auto& state = *shown_;
    const std::string name =
        CSVExporter::suggestedFileName("payouts", context_.model().currentDate());
    std::optional<std::filesystem::path> path;
    if (chooseExportPath_) {
        path = chooseExportPath_(name);
    } else {
        const QString chosen = QFileDialog::getSaveFileName(this, qt(state.exportDialogTitle),
                                                            QDir::home().filePath(qt(name)),
                                                            QStringLiteral("CSV (*.csv)"));
        if (!chosen.isEmpty()) path = chosen.toStdString();
    }
    if (!path) return;
    try {
        CSVExporter::writePayouts(context_.model().account().payoutHistory(), *path);
        theme::setRole(*exportStatus_, "muted");
        setText(*exportStatus_, exportSavedText(path->string()));
    } catch (const std::exception& error) {
        theme::setRole(*exportStatus_, "error");
        setText(*exportStatus_, exportFailedText(error.what()));
    }
    exportStatus_->show();
}

void PayoutsPage::prepareScene(std::string_view sceneID) {
    if (sceneID != "payouts-add-method-invalid") return;
    // What an owner sees after mistyping a bank account: each field says what is wrong.
    sheet_->open(PayoutMethodType::ach);
    sheet_->type(ValidationField::routingNumber, "021-000-022");
    sheet_->type(ValidationField::accountNumber, "123");
    sheet_->type(ValidationField::accountHolderName, "   ");
    sheet_->submit();
}

}  // namespace corvane
