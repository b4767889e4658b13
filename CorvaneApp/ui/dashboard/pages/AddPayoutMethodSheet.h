#pragma once
// The sheet that adds a payout destination, drawn over the payouts page: a tab per method, its
// fields with their hints and errors, the make-primary toggle, and the submit. What it checks and
// says is computed below the toolkit (AddPayoutMethodForm); the sheet forwards the request and
// stays open, with what was typed, until the coordinator accepts it.

#include <QWidget>

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/dashboard/AddPayoutMethodForm.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabBar;

namespace corvane {

class AddPayoutMethodSheet final : public QWidget {
  public:
    using Answer = std::function<void(const std::optional<CoordinatorAPIError>&)>;
    using Submit = std::function<void(AddPayoutMethodRequest, Answer)>;

    // Covers `parent` while open.
    AddPayoutMethodSheet(Submit onSubmit, QWidget& parent);

    // Starts empty on `tab`, takes the keyboard, and keeps it from the page behind.
    void open(PayoutMethodType tab = PayoutMethodType::usdc);
    void dismiss();
    bool isOpen() const { return !isHidden(); }
    const AddPayoutMethodSheetData& data() const { return data_; }

    // What the owner does, for scenes and tests that drive the sheet as a person would.
    void selectTab(PayoutMethodType tab);
    void type(ValidationField field, const std::string& text);
    void submit();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    struct FieldRow {
        QWidget* group;
        QLabel* label;
        QLineEdit* edit;
        QLabel* hint;
        QLabel* error;
    };
    void render();
    void setPageBehindEnabled(bool enabled);

    Submit submit_;
    AddPayoutMethodSheetData data_;
    std::optional<AddPayoutMethodSheetState> shown_;
    QTabBar* tabs_;
    std::array<FieldRow, 5> fields_{};  // by ValidationField
    QWidget* accountTypeGroup_;
    QComboBox* accountType_;
    QCheckBox* makePrimary_;
    QLabel* makePrimaryHint_;
    QLabel* submitError_;
    QPushButton* cancel_;
    QPushButton* submitButton_;
    QLabel* title_;
};

}  // namespace corvane
