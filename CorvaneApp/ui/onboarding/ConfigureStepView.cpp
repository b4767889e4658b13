#include "CorvaneApp/ui/onboarding/ConfigureStepView.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTimeEdit>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

QLabel* detailLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    theme::setRole(*label, "muted");
    return label;
}

// The gap that puts a row's detail under its control's text rather than under its box.
constexpr int kDetailIndent = 24;

void setTime(QTimeEdit& edit, ClockTime time) {
    const QTime value(time.hour, time.minute);
    if (edit.time() == value) return;
    const QSignalBlocker quiet(edit);  // the model's value, not the owner's edit
    edit.setTime(value);
}

// Fusion outlines check boxes and radio buttons in a shade of the window colour, which on a dark
// palette all but vanishes: these take a lighter colour to shade their outline from.
void outlineVisibly(QWidget& control) {
    QPalette palette = control.palette();
    if (!theme::isDark(palette)) return;
    palette.setColor(QPalette::Window, theme::mutedText(palette));
    control.setPalette(palette);
}

}  // namespace

ConfigureStepView::ConfigureStepView(ConfigureStepActions actions, QWidget* parent)
    : QWidget(parent),
      actions_(std::move(actions)),
      title_(new QLabel(this)),
      body_(new QLabel(this)),
      idleLabel_(new QLabel(this)),
      idle_(new QSpinBox(this)),
      ac_(new QCheckBox(this)),
      acDetail_(detailLabel(this)),
      scheduleHeading_(new QLabel(this)),
      scheduleBody_(detailLabel(this)),
      startLabel_(new QLabel(this)),
      start_(new QTimeEdit(this)),
      endLabel_(new QLabel(this)),
      end_(new QTimeEdit(this)) {
    setObjectName(QStringLiteral("configureStep"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);
    title_->setObjectName(QStringLiteral("configureTitle"));
    theme::setRole(*title_, "title");
    column->addWidget(title_);
    body_->setTextFormat(Qt::MarkdownText);
    body_->setWordWrap(true);
    theme::setRole(*body_, "muted");
    column->addWidget(body_);
    column->addSpacing(6);

    auto* idleRow = new QHBoxLayout;
    idle_->setObjectName(QStringLiteral("minIdleMinutes"));
    idleLabel_->setBuddy(idle_);
    idleRow->addWidget(idleLabel_);
    idleRow->addWidget(idle_);
    idleRow->addStretch(1);
    column->addLayout(idleRow);
    QObject::connect(idle_, &QSpinBox::valueChanged, this, [this](int minutes) {
        if (actions_.onIdleMinutes) actions_.onIdleMinutes(minutes);
    });

    ac_->setObjectName(QStringLiteral("requireACPower"));
    outlineVisibly(*ac_);
    QObject::connect(ac_, &QCheckBox::clicked, this, [this](bool checked) {
        if (actions_.onRequireACPower) actions_.onRequireACPower(checked);
    });
    column->addWidget(ac_);
    acDetail_->setContentsMargins(kDetailIndent, 0, 0, 0);
    column->addWidget(acDetail_);
    column->addSpacing(8);

    theme::setRole(*scheduleHeading_, "heading");
    column->addWidget(scheduleHeading_);
    column->addWidget(scheduleBody_);
    column->addSpacing(4);

    using P = OnboardingSchedulePreset;
    for (P preset : {P::alwaysOn, P::businessHours, P::custom}) {
        auto* button = new QRadioButton(this);
        button->setObjectName(QStringLiteral("preset-") + qt(rawValue(preset)));
        outlineVisibly(*button);
        QObject::connect(button, &QRadioButton::clicked, this, [this, preset] {
            if (actions_.onPreset) actions_.onPreset(preset);
        });
        auto* detail = detailLabel(this);
        detail->setContentsMargins(kDetailIndent, 0, 0, 4);
        column->addWidget(button);
        column->addWidget(detail);
        presets_.push_back({preset, button, detail});
    }

    auto* times = new QHBoxLayout;
    times->setContentsMargins(kDetailIndent, 0, 0, 0);
    times->setSpacing(8);
    start_->setObjectName(QStringLiteral("customStart"));
    end_->setObjectName(QStringLiteral("customEnd"));
    startLabel_->setBuddy(start_);
    endLabel_->setBuddy(end_);
    times->addWidget(startLabel_);
    times->addWidget(start_);
    times->addSpacing(12);
    times->addWidget(endLabel_);
    times->addWidget(end_);
    times->addStretch(1);
    column->addLayout(times);
    QObject::connect(start_, &QTimeEdit::timeChanged, this, [this](QTime time) {
        if (actions_.onStart) actions_.onStart({time.hour(), time.minute()});
    });
    QObject::connect(end_, &QTimeEdit::timeChanged, this, [this](QTime time) {
        if (actions_.onEnd) actions_.onEnd({time.hour(), time.minute()});
    });
    column->addStretch(1);
}

void ConfigureStepView::render(const OnboardingConfigureState& state) {
    setText(*title_, state.title);
    setAccessibleName(qt(state.title));
    if (body_->text() != qt(state.bodyMarkdown)) body_->setText(qt(state.bodyMarkdown));
    setText(*idleLabel_, state.idleLabel);
    idle_->setAccessibleName(qt(state.idleLabel));
    {
        const QSignalBlocker quiet(idle_);
        if (idle_->minimum() != state.idleMinimum || idle_->maximum() != state.idleMaximum)
            idle_->setRange(state.idleMinimum, state.idleMaximum);
        if (idle_->value() != state.idleMinutes) idle_->setValue(state.idleMinutes);
    }
    setText(*ac_, state.acTitle);
    ac_->setAccessibleName(qt(state.acTitle));
    ac_->setAccessibleDescription(qt(state.acDetail));
    if (ac_->isChecked() != state.requireACPower) ac_->setChecked(state.requireACPower);
    setText(*acDetail_, state.acDetail);
    setText(*scheduleHeading_, state.scheduleHeading);
    setText(*scheduleBody_, state.scheduleBody);

    for (std::size_t i = 0; i < presets_.size() && i < state.presets.size(); ++i) {
        const auto& row = state.presets[i];
        auto& shown = presets_[i];
        setText(*shown.button, row.title);
        shown.button->setAccessibleName(qt(row.title));
        shown.button->setAccessibleDescription(qt(row.detail));
        if (shown.button->isChecked() != row.selected) shown.button->setChecked(row.selected);
        setText(*shown.detail, row.detail);
    }
    setText(*startLabel_, state.startLabel);
    start_->setAccessibleName(qt(state.startLabel));
    setTime(*start_, state.start);
    setText(*endLabel_, state.endLabel);
    end_->setAccessibleName(qt(state.endLabel));
    setTime(*end_, state.end);

    for (QWidget* control : {static_cast<QWidget*>(idle_), static_cast<QWidget*>(ac_),
                             static_cast<QWidget*>(start_), static_cast<QWidget*>(end_)}) {
        if (control->isEnabled() != state.controlsEnabled)
            control->setEnabled(state.controlsEnabled);
    }
    for (const auto& row : presets_) {
        if (row.button->isEnabled() != state.controlsEnabled)
            row.button->setEnabled(state.controlsEnabled);
    }
}

}  // namespace corvane
