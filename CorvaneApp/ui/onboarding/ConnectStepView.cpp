#include "CorvaneApp/ui/onboarding/ConnectStepView.h"

#include <QFormLayout>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

void setField(QLineEdit& field, std::string_view text) {
    // Only a change from elsewhere is written back, so that typing keeps its cursor.
    const QString value = qt(text);
    if (field.text() != value) field.setText(value);
}

}  // namespace

ConnectStepView::ConnectStepView(ConnectStepActions actions, QWidget* parent)
    : QWidget(parent),
      actions_(std::move(actions)),
      title_(new QLabel(this)),
      body_(new QLabel(this)),
      registerAs_(new QLabel(this)),
      computerName_(new QLabel(this)),
      identity_(new QLabel(this)),
      advanced_(new QToolButton(this)),
      advancedBox_(new QWidget(this)),
      urlLabel_(new QLabel(advancedBox_)),
      url_(new QLineEdit(advancedBox_)),
      invitationLabel_(new QLabel(advancedBox_)),
      invitation_(new QLineEdit(advancedBox_)) {
    setObjectName(QStringLiteral("connectStep"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(12);
    title_->setObjectName(QStringLiteral("connectTitle"));
    theme::setRole(*title_, "title");
    title_->setWordWrap(true);
    column->addWidget(title_);
    body_->setWordWrap(true);
    theme::setRole(*body_, "muted");
    column->addWidget(body_);

    auto* card = new QFrame(this);
    card->setObjectName(QStringLiteral("card"));
    auto* identity = new QVBoxLayout(card);
    identity->setContentsMargins(16, 12, 16, 12);
    identity->setSpacing(4);
    theme::setRole(*registerAs_, "muted");
    identity->addWidget(registerAs_);
    computerName_->setObjectName(QStringLiteral("computerName"));
    theme::setRole(*computerName_, "heading");
    computerName_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    identity->addWidget(computerName_);
    identity_->setObjectName(QStringLiteral("identityDetail"));
    identity_->setWordWrap(true);
    identity_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    theme::setRole(*identity_, "muted");
    identity->addWidget(identity_);
    column->addWidget(card);

    advanced_->setObjectName(QStringLiteral("advancedToggle"));
    advanced_->setCheckable(true);
    advanced_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    advanced_->setAutoRaise(true);
    advanced_->setFocusPolicy(Qt::StrongFocus);
    QObject::connect(advanced_, &QToolButton::clicked, this, [this](bool checked) {
        if (actions_.onShowAdvanced) actions_.onShowAdvanced(checked);
    });
    column->addWidget(advanced_, 0, Qt::AlignLeft);

    auto* form = new QFormLayout(advancedBox_);
    form->setContentsMargins(20, 0, 0, 0);
    form->setSpacing(8);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    url_->setObjectName(QStringLiteral("coordinatorURL"));
    invitation_->setObjectName(QStringLiteral("invitationCode"));
    urlLabel_->setBuddy(url_);
    invitationLabel_->setBuddy(invitation_);
    form->addRow(urlLabel_, url_);
    form->addRow(invitationLabel_, invitation_);
    QObject::connect(url_, &QLineEdit::textEdited, this, [this](const QString& text) {
        if (actions_.onURLEdited) actions_.onURLEdited(text.toStdString());
    });
    QObject::connect(invitation_, &QLineEdit::textEdited, this, [this](const QString& text) {
        if (actions_.onInvitationEdited) actions_.onInvitationEdited(text.toStdString());
    });
    for (QLineEdit* field : {url_, invitation_}) {
        QObject::connect(field, &QLineEdit::returnPressed, this, [this] {
            if (actions_.onSubmit) actions_.onSubmit();
        });
    }
    column->addWidget(advancedBox_);
    column->addStretch(1);
}

void ConnectStepView::render(const OnboardingConnectState& state) {
    setText(*title_, state.title);
    setText(*body_, state.body);
    setText(*registerAs_, state.registerAs);
    setText(*computerName_, state.computerName);
    setText(*identity_, state.identityDetail);
    setAccessibleName(qt(state.title));

    setText(*advanced_, state.advancedTitle);
    advanced_->setAccessibleName(qt(state.advancedTitle));
    if (advanced_->isChecked() != state.showAdvanced) advanced_->setChecked(state.showAdvanced);
    const Qt::ArrowType arrow = state.showAdvanced ? Qt::DownArrow : Qt::RightArrow;
    if (advanced_->arrowType() != arrow) advanced_->setArrowType(arrow);
    setVisibleIfChanged(*advancedBox_, state.showAdvanced);

    setText(*urlLabel_, state.urlLabel);
    setField(*url_, state.url);
    url_->setPlaceholderText(qt(state.urlPlaceholder));
    url_->setAccessibleName(qt(state.urlLabel));
    setText(*invitationLabel_, state.invitationLabel);
    setField(*invitation_, state.invitation);
    invitation_->setPlaceholderText(qt(state.invitationPlaceholder));
    invitation_->setAccessibleName(qt(state.invitationLabel));
    for (QWidget* control : {static_cast<QWidget*>(advanced_), static_cast<QWidget*>(url_),
                             static_cast<QWidget*>(invitation_)}) {
        if (control->isEnabled() != state.fieldsEnabled) control->setEnabled(state.fieldsEnabled);
    }
}

}  // namespace corvane
