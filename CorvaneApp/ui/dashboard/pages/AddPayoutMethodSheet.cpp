#include "CorvaneApp/ui/dashboard/pages/AddPayoutMethodSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QTabBar>
#include <QVBoxLayout>

#include <algorithm>
#include <iterator>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

constexpr std::array kFields{ValidationField::walletAddress, ValidationField::email,
                             ValidationField::routingNumber, ValidationField::accountNumber,
                             ValidationField::accountHolderName};

const char* objectNameOf(ValidationField field) {
    switch (field) {
        case ValidationField::walletAddress:
            return "walletAddressField";
        case ValidationField::email:
            return "emailField";
        case ValidationField::routingNumber:
            return "routingNumberField";
        case ValidationField::accountNumber:
            return "accountNumberField";
        case ValidationField::accountHolderName:
            return "accountHolderNameField";
    }
    return "field";
}

QLabel* wrappedLabel(QWidget* parent, std::string_view role) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    if (!role.empty()) theme::setRole(*label, role);
    return label;
}

}  // namespace

AddPayoutMethodSheet::AddPayoutMethodSheet(Submit onSubmit, QWidget& parent)
    : QWidget(&parent), submit_(std::move(onSubmit)) {
    setObjectName(QStringLiteral("addPayoutMethodSheet"));
    setAccessibleName(QStringLiteral("Add payout method"));
    hide();
    parent.installEventFilter(this);

    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(24, 24, 24, 24);
    auto* panel = new QFrame(this);
    panel->setObjectName(QStringLiteral("card"));
    panel->setFixedWidth(500);
    panel->setAutoFillBackground(true);
    outer->addStretch(1);
    outer->addWidget(panel, 0, Qt::AlignHCenter);
    outer->addStretch(2);

    auto* column = new QVBoxLayout(panel);
    column->setContentsMargins(24, 20, 24, 20);
    column->setSpacing(10);
    title_ = new QLabel(panel);
    theme::setRole(*title_, "heading");
    column->addWidget(title_);

    tabs_ = new QTabBar(panel);
    tabs_->setObjectName(QStringLiteral("payoutMethodTabs"));
    tabs_->setAccessibleName(QStringLiteral("Payout method"));
    tabs_->setExpanding(false);
    tabs_->setDrawBase(false);
    for (const auto method : allPayoutMethodTypes) tabs_->addTab(qt(rawValue(method)));
    QObject::connect(tabs_, &QTabBar::currentChanged, this, [this](int index) {
        if (index >= 0 && index < int(std::size(allPayoutMethodTypes)))
            selectTab(allPayoutMethodTypes[std::size_t(index)]);
    });
    column->addWidget(tabs_);

    for (const auto field : kFields) {
        FieldRow row{};
        row.group = new QWidget(panel);
        auto* box = new QVBoxLayout(row.group);
        box->setContentsMargins(0, 4, 0, 0);
        box->setSpacing(3);
        row.label = new QLabel(row.group);
        row.edit = new QLineEdit(row.group);
        row.edit->setObjectName(QString::fromLatin1(objectNameOf(field)));
        row.label->setBuddy(row.edit);
        row.hint = wrappedLabel(row.group, "muted");
        row.error = wrappedLabel(row.group, "error");
        row.error->setObjectName(QString::fromLatin1(objectNameOf(field)) +
                                 QStringLiteral("Error"));
        box->addWidget(row.label);
        box->addWidget(row.edit);
        box->addWidget(row.error);
        box->addWidget(row.hint);
        QObject::connect(row.edit, &QLineEdit::textEdited, this, [this, field](const QString& t) {
            editField(data_, field, t.toStdString());
            render();
        });
        QObject::connect(row.edit, &QLineEdit::returnPressed, this, [this] { submit(); });
        column->addWidget(row.group);
        fields_[std::size_t(field)] = row;
    }

    accountTypeGroup_ = new QWidget(panel);
    auto* typeRow = new QHBoxLayout(accountTypeGroup_);
    typeRow->setContentsMargins(0, 4, 0, 0);
    auto* typeLabel = new QLabel(QStringLiteral("Account type"), accountTypeGroup_);
    accountType_ = new QComboBox(accountTypeGroup_);
    accountType_->setObjectName(QStringLiteral("accountTypePicker"));
    accountType_->setAccessibleName(QStringLiteral("Account type"));
    typeLabel->setBuddy(accountType_);
    typeRow->addWidget(typeLabel);
    typeRow->addWidget(accountType_, 1);
    QObject::connect(accountType_, &QComboBox::activated, this, [this](int index) {
        data_.form.accountType =
            index == 1 ? PayoutBankAccountType::savings : PayoutBankAccountType::checking;
        render();
    });
    column->addWidget(accountTypeGroup_);

    makePrimary_ = new QCheckBox(panel);
    makePrimary_->setObjectName(QStringLiteral("makePrimaryToggle"));
    QObject::connect(makePrimary_, &QCheckBox::toggled, this, [this](bool on) {
        data_.form.makePrimary = on;
        render();
    });
    makePrimaryHint_ = wrappedLabel(panel, "muted");
    column->addSpacing(4);
    column->addWidget(makePrimary_);
    column->addWidget(makePrimaryHint_);

    submitError_ = wrappedLabel(panel, "error");
    submitError_->setObjectName(QStringLiteral("addPayoutMethodError"));
    column->addWidget(submitError_);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    cancel_ = new QPushButton(panel);
    cancel_->setObjectName(QStringLiteral("cancelAddPayoutMethod"));
    submitButton_ = new QPushButton(panel);
    submitButton_->setObjectName(QStringLiteral("submitAddPayoutMethod"));
    submitButton_->setDefault(true);
    QObject::connect(cancel_, &QPushButton::clicked, this, [this] { dismiss(); });
    QObject::connect(submitButton_, &QPushButton::clicked, this, [this] { submit(); });
    buttons->addWidget(cancel_);
    buttons->addWidget(submitButton_);
    column->addSpacing(6);
    column->addLayout(buttons);

    // The keyboard walks the sheet from top to bottom.
    QWidget* previous = tabs_;
    for (const auto field : kFields) {
        QWidget::setTabOrder(previous, fields_[std::size_t(field)].edit);
        previous = fields_[std::size_t(field)].edit;
    }
    for (QWidget* next : {static_cast<QWidget*>(accountType_), static_cast<QWidget*>(makePrimary_),
                          static_cast<QWidget*>(cancel_), static_cast<QWidget*>(submitButton_)}) {
        QWidget::setTabOrder(previous, next);
        previous = next;
    }
}

void AddPayoutMethodSheet::open(PayoutMethodType tab) {
    data_ = {};
    data_.form.selectedTab = tab;
    shown_.reset();
    for (auto& row : fields_) row.edit->clear();
    setGeometry(parentWidget()->rect());
    setPageBehindEnabled(false);
    show();
    raise();
    render();
    fields_[std::size_t(fieldsOf(tab).front())].edit->setFocus(Qt::OtherFocusReason);
}

void AddPayoutMethodSheet::dismiss() {
    if (isHidden()) return;
    hide();
    setPageBehindEnabled(true);
}

void AddPayoutMethodSheet::setPageBehindEnabled(bool enabled) {
    for (auto* sibling : parentWidget()->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
        if (sibling != this) sibling->setEnabled(enabled);
    }
}

void AddPayoutMethodSheet::selectTab(PayoutMethodType tab) {
    if (data_.isSubmitting || data_.form.selectedTab == tab) return;
    data_.form.selectedTab = tab;
    data_.submitError.reset();
    render();
    fields_[std::size_t(fieldsOf(tab).front())].edit->setFocus(Qt::TabFocusReason);
}

void AddPayoutMethodSheet::type(ValidationField field, const std::string& text) {
    auto& edit = *fields_[std::size_t(field)].edit;
    edit.setText(qt(text));
    editField(data_, field, text);
    render();
}

void AddPayoutMethodSheet::submit() {
    auto request = beginSubmit(data_);
    render();
    if (!request) {
        // The first field in error takes the keyboard, so the owner lands on what to fix.
        for (const auto field : fieldsOf(data_.form.selectedTab)) {
            if (data_.validationErrors.count(field)) {
                fields_[std::size_t(field)].edit->setFocus(Qt::OtherFocusReason);
                break;
            }
        }
        return;
    }
    QPointer<AddPayoutMethodSheet> self(this);
    submit_(std::move(*request), [self](const std::optional<CoordinatorAPIError>& error) {
        if (!self) return;
        if (finishSubmit(self->data_, error)) {
            self->dismiss();
        } else {
            self->render();
        }
    });
}

void AddPayoutMethodSheet::render() {
    auto state = addPayoutMethodSheetState(data_);
    if (shown_ == state) return;
    setText(*title_, state.title);
    for (std::size_t i = 0; i < state.tabs.size(); ++i) {
        if (tabs_->tabText(int(i)) != qt(state.tabs[i].title))
            tabs_->setTabText(int(i), qt(state.tabs[i].title));
        if (state.tabs[i].selected && tabs_->currentIndex() != int(i)) {
            const QSignalBlocker quiet(tabs_);
            tabs_->setCurrentIndex(int(i));
        }
    }
    tabs_->setEnabled(state.editable);
    for (const auto field : kFields) {
        auto& row = fields_[std::size_t(field)];
        auto it = std::find_if(state.fields.begin(), state.fields.end(),
                               [&](const auto& f) { return f.field == field; });
        setVisibleIfChanged(*row.group, it != state.fields.end());
        if (it == state.fields.end()) continue;
        setText(*row.label, it->label);
        row.edit->setPlaceholderText(qt(it->placeholder));
        row.edit->setAccessibleName(qt(it->label));
        row.edit->setAccessibleDescription(qt(it->error.value_or(it->hint)));
        row.edit->setReadOnly(!state.editable);
        setText(*row.hint, it->hint);
        setText(*row.error, it->error.value_or(""));
        setVisibleIfChanged(*row.error, it->error.has_value());
    }
    setVisibleIfChanged(*accountTypeGroup_, state.showsAccountType);
    if (accountType_->count() != int(state.accountTypeTitles.size())) {
        accountType_->clear();
        for (const auto& title : state.accountTypeTitles) accountType_->addItem(qt(title));
    }
    if (accountType_->currentIndex() != state.selectedAccountType)
        accountType_->setCurrentIndex(state.selectedAccountType);
    accountType_->setEnabled(state.editable);
    setText(*makePrimary_, state.makePrimaryTitle);
    makePrimary_->setAccessibleDescription(qt(state.makePrimaryHint));
    if (makePrimary_->isChecked() != state.makePrimary) {
        const QSignalBlocker quiet(makePrimary_);
        makePrimary_->setChecked(state.makePrimary);
    }
    makePrimary_->setEnabled(state.editable);
    setText(*makePrimaryHint_, state.makePrimaryHint);
    setText(*submitError_, state.submitError.value_or(""));
    setVisibleIfChanged(*submitError_, state.submitError.has_value());
    setText(*cancel_, state.cancelTitle);
    setText(*submitButton_, state.submitTitle);
    submitButton_->setEnabled(state.editable);
    cancel_->setEnabled(state.editable);
    shown_ = std::move(state);
}

bool AddPayoutMethodSheet::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

void AddPayoutMethodSheet::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && !data_.isSubmitting) {
        dismiss();
        return;
    }
    QWidget::keyPressEvent(event);
}

void AddPayoutMethodSheet::paintEvent(QPaintEvent*) {
    // The page behind stays in view, dimmed, as the sheet's context.
    QPainter painter(this);
    painter.fillRect(rect(), QColor(0, 0, 0, theme::isDark(palette()) ? 150 : 90));
}

}  // namespace corvane
