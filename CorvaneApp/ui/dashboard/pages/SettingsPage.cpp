#include "CorvaneApp/ui/dashboard/pages/SettingsPage.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFrame>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTimeEdit>
#include <QVBoxLayout>

#include "CorvaneApp/app/DevNotificationCatalog.h"
#include "CorvaneApp/app/FirstLaunchResetError.h"
#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/SettingRow.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

constexpr int kNotificationToggles = 3;
constexpr int kGeneralToggles = 3;

SettingsPage::Dialogs withDefaults(SettingsPage::Dialogs dialogs, QWidget* page) {
    if (!dialogs.confirm) {
        dialogs.confirm = [page](const SettingsConfirmation& confirmation) {
            QMessageBox box(QMessageBox::Warning, qt(confirmation.title), qt(confirmation.title),
                            QMessageBox::Cancel, page);
            box.setInformativeText(qt(confirmation.text));
            auto* go =
                box.addButton(buttonText(confirmation.confirm), QMessageBox::DestructiveRole);
            box.setDefaultButton(QMessageBox::Cancel);
            box.exec();
            return box.clickedButton() == go;
        };
    }
    if (!dialogs.inform) {
        dialogs.inform = [page](const SettingsMessage& message) {
            QMessageBox box(QMessageBox::Information, qt(message.title), qt(message.title),
                            QMessageBox::Ok, page);
            box.setInformativeText(qt(message.text));
            box.setTextInteractionFlags(Qt::TextSelectableByMouse);  // a command to copy
            box.exec();
        };
    }
    if (!dialogs.quit) dialogs.quit = [] { QCoreApplication::quit(); };
    return dialogs;
}

QCheckBox* makeSwitch(const std::string& id, QWidget* parent) {
    auto* box = new QCheckBox(parent);
    box->setObjectName(qt(id));
    box->setFocusPolicy(Qt::StrongFocus);
    return box;
}

QPushButton* makeButton(const char* objectName, QWidget* parent) {
    auto* button = new QPushButton(parent);
    button->setObjectName(QString::fromLatin1(objectName));
    button->setAutoDefault(false);
    return button;
}

void setEnabledIfChanged(QWidget& widget, bool enabled) {
    if (widget.isEnabled() != enabled) widget.setEnabled(enabled);
}

void setChecked(QCheckBox& box, bool on) {
    if (box.isChecked() == on) return;
    const QSignalBlocker quiet(box);  // the state's own value, not the owner's click
    box.setChecked(on);
}

}  // namespace

SettingsPage::SettingsPage(PageContext& context, Dialogs dialogs, QWidget* parent)
    : DashboardPage(parent), context_(context), dialogs_(withDefaults(std::move(dialogs), this)) {
    const auto& info = dashPageInfo(DashPage::settings);
    setObjectName(QStringLiteral("settingsPage"));
    setAccessibleName(qt(info.title));
    auto* page = new QVBoxLayout(this);
    page->setContentsMargins(28, 24, 28, 0);
    page->setSpacing(16);
    page->addWidget(new PageHeader(qt(info.title), qt(info.line), this));

    scroll_ = new QScrollArea(this);
    scroll_->setObjectName(QStringLiteral("settingsScroll"));
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setWidgetResizable(true);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* content = new QWidget(scroll_);
    content->setObjectName(QStringLiteral("settingsContent"));
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 12, 24);
    column->setSpacing(8);
    scroll_->setWidget(content);
    page->addWidget(scroll_, 1);

    // Notifications
    auto* card = addSection(*column, notificationsHeading_, "notificationsCard");
    auto* rows = static_cast<QVBoxLayout*>(card->layout());
    for (const char* id : {"notifyPayout", "notifyOffline", "notifyDaily"}) {
        auto* box = makeSwitch(id, card);
        auto* row = new SettingRow(box, true, card);
        QObject::connect(box, &QCheckBox::toggled, this,
                         [this, key = std::string(id)](bool on) { toggled(key, on); });
        rows->addWidget(row);
        notificationRows_.emplace_back(row, box);
    }
    dailyTime_ = new QTimeEdit(card);
    dailyTime_->setObjectName(QStringLiteral("dailySummaryTime"));
    dailyTime_->setDisplayFormat(QStringLiteral("HH:mm"));
    QObject::connect(dailyTime_, &QTimeEdit::timeChanged, this, [this] { timeChanged(); });
    dailyTimeRow_ = new SettingRow(dailyTime_, true, card);
    rows->addWidget(dailyTimeRow_);
    notificationsNote_ = new QLabel(card);
    notificationsNote_->setObjectName(QStringLiteral("notificationsNote"));
    notificationsNote_->setWordWrap(true);
    theme::setRole(*notificationsNote_, "error");
    notificationsNote_->hide();
    rows->addWidget(notificationsNote_);

    // General
    card = addSection(*column, generalHeading_, "generalCard");
    rows = static_cast<QVBoxLayout*>(card->layout());
    for (const char* id : {"launchAtLogin", "showInTaskbar", "automaticUpdates"}) {
        auto* box = makeSwitch(id, card);
        auto* row = new SettingRow(box, true, card);
        QObject::connect(box, &QCheckBox::toggled, this,
                         [this, key = std::string(id)](bool on) { toggled(key, on); });
        rows->addWidget(row);
        generalRows_.emplace_back(row, box);
    }
    generalErrorLabel_ = new QLabel(card);
    generalErrorLabel_->setObjectName(QStringLiteral("generalError"));
    generalErrorLabel_->setWordWrap(true);
    theme::setRole(*generalErrorLabel_, "error");
    generalErrorLabel_->hide();
    rows->addWidget(generalErrorLabel_);

    // Updates and diagnostics
    card = addSection(*column, updatesHeading_, "updatesCard");
    rows = static_cast<QVBoxLayout*>(card->layout());
    checkForUpdates_ = makeButton("checkForUpdates", card);
    QObject::connect(checkForUpdates_, &QPushButton::clicked, this, [this] { checkForUpdates(); });
    versionRow_ = new SettingRow(checkForUpdates_, false, card);
    rows->addWidget(versionRow_);
    copyDiagnostics_ = makeButton("copyDiagnostics", card);
    QObject::connect(copyDiagnostics_, &QPushButton::clicked, this, [this] { copyDiagnostics(); });
    diagnosticsRow_ = new SettingRow(copyDiagnostics_, false, card);
    rows->addWidget(diagnosticsRow_);

    // Account
    card = addSection(*column, accountHeading_, "accountCard");
    rows = static_cast<QVBoxLayout*>(card->layout());
    accountLine_ = new QLabel(card);
    accountLine_->setObjectName(QStringLiteral("accountLine"));
    theme::setRole(*accountLine_, "muted");
    rows->addWidget(accountLine_);
    rows->addSpacing(6);
    signOut_ = makeButton("signOut", card);
    QObject::connect(signOut_, &QPushButton::clicked, this, [this] { signOut(); });
    signOutRow_ = new SettingRow(signOut_, false, card);
    rows->addWidget(signOutRow_);
    uninstall_ = makeButton("uninstall", card);
    QObject::connect(uninstall_, &QPushButton::clicked, this, [this] { uninstall(); });
    uninstallRow_ = new SettingRow(uninstall_, false, card);
    rows->addWidget(uninstallRow_);

    // The sample session's dev tools
    devToolsCard_ = addSection(*column, devToolsHeading_, "devToolsCard");
    rows = static_cast<QVBoxLayout*>(devToolsCard_->layout());
    devToolsNote_ = new QLabel(devToolsCard_);
    devToolsNote_->setObjectName(QStringLiteral("devToolsNote"));
    devToolsNote_->setWordWrap(true);
    theme::setRole(*devToolsNote_, "muted");
    rows->addWidget(devToolsNote_);
    reset_ = makeButton("resetToFirstLaunch", devToolsCard_);
    QObject::connect(reset_, &QPushButton::clicked, this, [this] { resetToFirstLaunch(); });
    resetRow_ = new SettingRow(reset_, false, devToolsCard_);
    rows->addWidget(resetRow_);
    testNotificationsHeading_ = new QLabel(devToolsCard_);
    testNotificationsHeading_->setObjectName(QStringLiteral("testNotificationsHeading"));
    theme::setRole(*testNotificationsHeading_, "heading");
    rows->addSpacing(10);
    rows->addWidget(testNotificationsHeading_);
    const auto& entries = DevNotificationCatalog::entries();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        auto* send = makeButton("sendTestNotification", devToolsCard_);
        send->setProperty("entry", int(i));
        QObject::connect(send, &QPushButton::clicked, this, [this, i] { fireTestNotification(i); });
        auto* row = new SettingRow(send, false, devToolsCard_);
        rows->addWidget(row);
        testRows_.emplace_back(row, send);
    }
    fireAll_ = makeButton("fireAllTestNotifications", devToolsCard_);
    auto* fireAllRow = new QHBoxLayout;
    fireAllRow->addStretch(1);
    fireAllRow->addWidget(fireAll_);
    rows->addLayout(fireAllRow);
    QObject::connect(fireAll_, &QPushButton::clicked, this, [this] { fireAll(); });
    devToolsStatusLabel_ = new QLabel(devToolsCard_);
    devToolsStatusLabel_->setObjectName(QStringLiteral("devToolsStatus"));
    devToolsStatusLabel_->setWordWrap(true);
    theme::setRole(*devToolsStatusLabel_, "muted");
    rows->addWidget(devToolsStatusLabel_);
    column->addStretch(1);

    launchesAtLogin_ = context_.session.launchesAtLogin();
}

SettingsPage::~SettingsPage() = default;

QFrame* SettingsPage::addSection(QVBoxLayout& column, QLabel*& heading, const char* objectName) {
    auto* parent = column.parentWidget();
    heading = new QLabel(parent);
    theme::setRole(*heading, "heading");
    if (column.count() > 0) column.addSpacing(12);
    column.addWidget(heading);
    auto* card = new QFrame(parent);
    card->setObjectName(QStringLiteral("card"));
    card->setProperty("section", QString::fromLatin1(objectName));
    auto* rows = new QVBoxLayout(card);
    rows->setContentsMargins(16, 8, 16, 8);
    rows->setSpacing(2);
    column.addWidget(card);
    return card;
}

SettingsPageInputs SettingsPage::inputs() const {
    const auto& defaults = context_.session.userDefaults();
    SettingsPageInputs in;
    in.preferences = NotificationPreferences::read(defaults);
    in.notificationsUnavailable = notificationsAvailable_ == false;
    in.dailyHour = int(defaults.integer(NotificationPreferences::dailyHourKey).value_or(20));
    in.dailyMinute = int(defaults.integer(NotificationPreferences::dailyMinuteKey).value_or(0));
    in.launchesAtLogin = launchesAtLogin_;
    in.showInTaskbar = showInTaskbar_;
    in.automaticUpdates = automaticUpdates_;
    in.generalError = generalError_;
    in.updateCheck = updateCheck_;
    in.diagnosticsCopied = diagnosticsCopied_;
    in.uninstalling = uninstalling_;
    in.demoTools = context_.session.demoTools() != nullptr;
    in.firingTestNotifications = firing_;
    in.devToolsStatus = devToolsStatus_;
    return in;
}

void SettingsPage::refresh() {
    auto state = settingsPageState(context_.model(), inputs());
    if (shown_ == state) return;
    render(state);
    shown_ = std::move(state);
}

void SettingsPage::shown() {
    // The entry may have changed from outside (a file manager, another tool) while away.
    launchesAtLogin_ = context_.session.launchesAtLogin();
    diagnosticsCopied_ = false;
    refresh();
}

void SettingsPage::prepareScene(std::string_view sceneID) {
    if (sceneID != "settings-demo-tools") return;
    refresh();
    if (auto* content = scroll_->widget()) content->adjustSize();
    scroll_->verticalScrollBar()->setValue(scroll_->verticalScrollBar()->maximum());
}

void SettingsPage::render(const SettingsPageState& state) {
    setText(*notificationsHeading_, state.notificationsHeading);
    for (std::size_t i = 0; i < notificationRows_.size() && i < state.notifications.size(); ++i) {
        const auto& toggle = state.notifications[i];
        notificationRows_[i].first->render(toggle.title, toggle.line);
        setChecked(*notificationRows_[i].second, toggle.on);
    }
    dailyTimeRow_->render(state.dailyTimeTitle, state.dailyTimeLine);
    const QTime time(state.dailyHour % 24, state.dailyMinute % 60);
    if (dailyTime_->time() != time) {
        const QSignalBlocker quiet(dailyTime_);
        dailyTime_->setTime(time);
    }
    setEnabledIfChanged(*dailyTime_, state.dailyTimeEnabled);
    setText(*notificationsNote_, state.notificationsNote);
    setVisibleIfChanged(*notificationsNote_, !state.notificationsNote.empty());

    setText(*generalHeading_, state.generalHeading);
    for (std::size_t i = 0; i < generalRows_.size() && i < state.general.size(); ++i) {
        const auto& toggle = state.general[i];
        generalRows_[i].first->render(toggle.title, toggle.line);
        setChecked(*generalRows_[i].second, toggle.on);
    }
    setText(*generalErrorLabel_, state.generalError);
    setVisibleIfChanged(*generalErrorLabel_, !state.generalError.empty());

    setText(*updatesHeading_, state.updatesHeading);
    setText(*checkForUpdates_, state.checkForUpdatesTitle);
    setEnabledIfChanged(*checkForUpdates_, state.checkForUpdatesEnabled);
    versionRow_->render(state.versionLine, state.updateStatus);
    setText(*copyDiagnostics_, state.copyDiagnosticsTitle);
    diagnosticsRow_->render(state.diagnosticsTitle, state.diagnosticsLine);

    setText(*accountHeading_, state.accountHeading);
    setText(*accountLine_, state.accountLine);
    setText(*signOut_, state.signOutTitle);
    signOutRow_->render(state.signOutTitle, state.signOutLine);
    setEnabledIfChanged(*signOut_, state.signOutEnabled);
    setText(*uninstall_, state.uninstallTitle);
    uninstallRow_->render(state.uninstallTitle, state.uninstallLine);
    setEnabledIfChanged(*uninstall_, state.uninstallEnabled);

    setVisibleIfChanged(*devToolsHeading_, state.devTools.has_value());
    setVisibleIfChanged(*devToolsCard_, state.devTools.has_value());
    if (!state.devTools) return;
    const auto& tools = *state.devTools;
    setText(*devToolsHeading_, tools.heading);
    setText(*devToolsNote_, tools.note);
    setText(*reset_, tools.resetTitle);
    resetRow_->render(tools.resetTitle, tools.resetLine);
    setEnabledIfChanged(*reset_, !tools.firing);
    setText(*testNotificationsHeading_, tools.testNotificationsTitle);
    for (std::size_t i = 0; i < testRows_.size() && i < tools.entries.size(); ++i) {
        testRows_[i].first->render(tools.entries[i].label, tools.entries[i].line);
        setText(*testRows_[i].second, tools.sendTitle);
        setEnabledIfChanged(*testRows_[i].second, !tools.firing);
    }
    setText(*fireAll_, tools.fireAllTitle);
    setEnabledIfChanged(*fireAll_, !tools.firing);
    if (fireAll_->accessibleName() != fireAll_->text())
        fireAll_->setAccessibleName(fireAll_->text());
    setText(*devToolsStatusLabel_, tools.status);
    setVisibleIfChanged(*devToolsStatusLabel_, !tools.status.empty());
}

void SettingsPage::toggled(const std::string& id, bool on) {
    auto& defaults = context_.session.userDefaults();
    using P = NotificationPreferences;
    if (id == "notifyPayout" || id == "notifyOffline" || id == "notifyDaily") {
        const auto key = id == "notifyPayout"    ? P::payoutKey
                         : id == "notifyOffline" ? P::offlineKey
                                                 : P::dailyKey;
        defaults.setBool(key, on);
        if (on) {
            // Turning one on is when to learn whether anything can be shown at all.
            QPointer<SettingsPage> self(this);
            context_.session.notifications().ensureAuthorizationIfNeeded(
                NotificationAuthorizationSource::settingsToggle, [self](bool allowed) {
                    if (!self) return;
                    self->notificationsAvailable_ = allowed;
                    self->refresh();
                });
        }
        // The summary that waits for 22:00 follows the switch.
        context_.session.notifications().refreshNotificationSchedules();
    } else if (id == "launchAtLogin") {
        try {
            context_.session.setLaunchesAtLogin(on);
            generalError_.clear();
        } catch (const std::exception& error) {
            generalError_ = std::string("Could not change the login item: ") + error.what();
            log::get("Settings")->warn("{}", generalError_);
        }
        launchesAtLogin_ = context_.session.launchesAtLogin();
    } else if (id == "showInTaskbar") {
        showInTaskbar_ = on;
    } else if (id == "automaticUpdates") {
        automaticUpdates_ = on;
    }
    refresh();
}

void SettingsPage::timeChanged() {
    auto& defaults = context_.session.userDefaults();
    defaults.setInteger(NotificationPreferences::dailyHourKey, dailyTime_->time().hour());
    defaults.setInteger(NotificationPreferences::dailyMinuteKey, dailyTime_->time().minute());
    refresh();
}

void SettingsPage::checkForUpdates() {
    updateCheck_ = SettingsPageInputs::UpdateCheck::checking;
    refresh();
    QPointer<SettingsPage> self(this);
    context_.model().refreshAppVersion([self](bool answered) {
        if (!self) return;
        self->updateCheck_ = answered ? SettingsPageInputs::UpdateCheck::answered
                                      : SettingsPageInputs::UpdateCheck::failed;
        self->refresh();
    });
}

void SettingsPage::copyDiagnostics() {
    const auto summary =
        diagnosticsSummary(context_.model(), context_.session.dataMode(),
                           NotificationPreferences::read(context_.session.userDefaults()));
    QGuiApplication::clipboard()->setText(qt(summary));
    diagnosticsCopied_ = true;
    refresh();
}

void SettingsPage::signOut() {
    if (!shown_ || !dialogs_.confirm(shown_->signOutConfirmation)) return;
    context_.model().signOut();
    refresh();  // the window may be closing: the page says so itself
}

void SettingsPage::uninstall() {
    if (!shown_ || uninstalling_ || !dialogs_.confirm(shown_->uninstallConfirmation)) return;
    uninstalling_ = true;
    refresh();
    QPointer<SettingsPage> self(this);
    context_.session.uninstall([self, dialogs = dialogs_](UninstallReport report) {
        const auto message = uninstallOutcomeMessage(report);
        if (self) {
            self->uninstalling_ = false;
            self->refresh();
        }
        if (message) dialogs.inform(*message);
        if (!message || message->quitAfter) dialogs.quit();
    });
}

void SettingsPage::resetToFirstLaunch() {
    try {
        resetToFirstLaunchState(context_.session);
        devToolsStatus_ = "Reset to the first launch: quit and start Corvane again.";
    } catch (const FirstLaunchResetError& error) {
        dialogs_.inform({"Reset to first-launch", error.what(), false});
    }
    refresh();
}

void SettingsPage::fireTestNotification(std::size_t index) {
    const auto& entries = DevNotificationCatalog::entries();
    if (index >= entries.size()) return;
    const auto entry = entries[index];
    if (entry.delaySeconds > 0) {
        devToolsStatus_ = "“" + entry.label + "” is on its way.";
        refresh();
    }
    QPointer<SettingsPage> self(this);
    context_.session.notifications().fire(entry, [self, label = entry.label] {
        if (!self) return;
        self->devToolsStatus_ = "Sent “" + label + "”.";
        self->refresh();
    });
}

void SettingsPage::fireAll() {
    firing_ = true;
    devToolsStatus_ = "Sending the test notifications one after another…";
    refresh();
    QPointer<SettingsPage> self(this);
    context_.session.notifications().fireAllSequential([self] {
        if (!self) return;
        self->firing_ = false;
        self->devToolsStatus_ = "All test notifications sent; the daily summary waits for 22:00.";
        self->refresh();
    });
}

}  // namespace corvane
