#pragma once
// The settings page: notifications and the daily summary's time, launch at login and the
// page-only switches, updates and diagnostics, sign-out and uninstall behind their confirmations,
// and in the sample session its dev tools. It renders SettingsPageState and hands every change to
// the session: the user's defaults, the login item, the notifications, the model.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/dashboard/SettingsPageState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QCheckBox;
class QFrame;
class QLabel;
class QPushButton;
class QScrollArea;
class QTimeEdit;
class QVBoxLayout;

namespace corvane {

class SettingRow;

class SettingsPage final : public DashboardPage {
  public:
    // How the page asks and tells the owner; the defaults are message boxes.
    struct Dialogs {
        std::function<bool(const SettingsConfirmation&)> confirm;
        std::function<void(const SettingsMessage&)> inform;
        std::function<void()> quit;  // the application's end, after an uninstall
    };

    SettingsPage(PageContext& context, Dialogs dialogs = {}, QWidget* parent = nullptr);
    ~SettingsPage() override;

    ModelParts observedParts() const override {
        return {ModelPart::account, ModelPart::machine, ModelPart::status};
    }
    void refresh() override;
    void shown() override;
    void prepareScene(std::string_view sceneID) override;

    const std::optional<SettingsPageState>& state() const { return shown_; }

  private:
    SettingsPageInputs inputs() const;
    void render(const SettingsPageState& state);
    QFrame* addSection(QVBoxLayout& column, QLabel*& heading, const char* objectName);
    void toggled(const std::string& id, bool on);
    void timeChanged();
    void checkForUpdates();
    void copyDiagnostics();
    void signOut();
    void uninstall();
    void resetToFirstLaunch();
    void fireTestNotification(std::size_t index);
    void fireAll();

    PageContext& context_;
    Dialogs dialogs_;

    // The page's own state: what is not stored anywhere else.
    bool showInTaskbar_ = false;
    bool automaticUpdates_ = false;
    bool launchesAtLogin_ = false;
    std::string generalError_;
    SettingsPageInputs::UpdateCheck updateCheck_ = SettingsPageInputs::UpdateCheck::none;
    bool diagnosticsCopied_ = false;
    bool uninstalling_ = false;
    bool firing_ = false;
    std::string devToolsStatus_;
    std::optional<bool> notificationsAvailable_;
    std::optional<SettingsPageState> shown_;

    QScrollArea* scroll_;
    QLabel* notificationsHeading_;
    QLabel* notificationsNote_;
    std::vector<std::pair<SettingRow*, QCheckBox*>> notificationRows_;
    SettingRow* dailyTimeRow_;
    QTimeEdit* dailyTime_;
    QLabel* generalHeading_;
    std::vector<std::pair<SettingRow*, QCheckBox*>> generalRows_;
    QLabel* generalErrorLabel_;
    QLabel* updatesHeading_;
    SettingRow* versionRow_;
    QPushButton* checkForUpdates_;
    SettingRow* diagnosticsRow_;
    QPushButton* copyDiagnostics_;
    QLabel* accountHeading_;
    QLabel* accountLine_;
    SettingRow* signOutRow_;
    QPushButton* signOut_;
    SettingRow* uninstallRow_;
    QPushButton* uninstall_;
    QLabel* devToolsHeading_;
    QFrame* devToolsCard_;
    QLabel* devToolsNote_;
    SettingRow* resetRow_;
    QPushButton* reset_;
    QLabel* testNotificationsHeading_;
    std::vector<std::pair<SettingRow*, QPushButton*>> testRows_;
    QPushButton* fireAll_;
    QLabel* devToolsStatusLabel_;
};

}  // namespace corvane
