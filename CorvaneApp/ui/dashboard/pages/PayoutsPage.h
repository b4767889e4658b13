#pragma once
// The payouts page: balances, payout methods with the primary one, the payout preferences, and
// the payout history with its CSV export; the add-method sheet over it. It renders the page state
// computed below the toolkit and forwards what the owner asks to the payout methods store, the
// settings store (whose payout sync answers for the preferences) and the exporter.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/PayoutMethodsStore.h"
#include "CorvaneApp/dashboard/PayoutsPageState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QComboBox;
class QFrame;
class QLabel;
class QPushButton;
class QScrollArea;
class QTableWidget;
class QVBoxLayout;

namespace corvane {

class AddPayoutMethodSheet;

class PayoutsPage final : public DashboardPage {
  public:
    // Asked where the export goes, with the suggested file name; absent: the owner cancelled.
    using ExportPathChooser =
        std::function<std::optional<std::filesystem::path>(const std::string& suggestedName)>;

    explicit PayoutsPage(PageContext& context, QWidget* parent = nullptr);
    ~PayoutsPage() override;

    ModelParts observedParts() const override { return {ModelPart::account, ModelPart::earnings}; }
    void refresh() override;
    void shown() override;
    void prepareScene(std::string_view sceneID) override;

    PayoutMethodsStore& methodsStore() { return *methods_; }
    AddPayoutMethodSheet& sheet() { return *sheet_; }
    // A save dialog by default.
    void setExportPathChooser(ExportPathChooser chooser) { chooseExportPath_ = std::move(chooser); }

  private:
    struct BalanceWidgets {
        QLabel* title;
        QLabel* value;
        QLabel* headline;
        QLabel* caption;
    };
    BalanceWidgets makeBalanceCard(QWidget* parent, const char* objectName);
    void renderBalance(BalanceWidgets& card, const BalanceCard& state);
    void renderMethods(const PayoutsPageState& state);
    void renderPreferences(const PayoutPreferencesState& state);
    void renderHistory(const PayoutsPageState& state);
    void confirmRemoval(const WorkerPayoutMethod& method);
    void exportHistory();

    PageContext& context_;
    std::unique_ptr<PayoutMethodsStore> methods_;
    ExportPathChooser chooseExportPath_;
    std::optional<PayoutsPageState> shown_;
    Subscription methodsSubscription_;
    Subscription settingsSubscription_;

    QScrollArea* scroll_;
    QPushButton* refresh_;
    QPushButton* add_;
    QLabel* intro_;
    QLabel* scheduleBanner_;
    QLabel* setupBanner_;
    QLabel* syncBanner_;
    BalanceWidgets available_{}, held_{}, estimated_{};
    QLabel* methodsHeading_;
    QLabel* methodsStatus_;
    QLabel* methodActionError_;
    QVBoxLayout* methodRows_;
    std::vector<QWidget*> methodRowWidgets_;  // owned by the page
    std::vector<PayoutMethodRow> shownRows_;
    bool rowsRendered_ = false;
    QLabel* emptyTitle_;
    QLabel* emptyBody_;
    QPushButton* emptyAdd_;
    QLabel* optionsHeading_;
    QWidget* options_;
    QLabel* preferencesHeading_;
    QLabel* preferencesCaption_;
    QLabel* methodPickerLabel_;
    QComboBox* methodPicker_;
    QLabel* schedulePickerLabel_;
    QComboBox* schedulePicker_;
    std::optional<PayoutPreferencesState> shownPreferences_;
    QLabel* historyHeading_;
    QPushButton* export_;
    QLabel* exportStatus_;
    QTableWidget* history_;
    QLabel* historyEmpty_;
    AddPayoutMethodSheet* sheet_;
};

}  // namespace corvane
