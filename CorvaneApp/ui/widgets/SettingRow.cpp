#include "CorvaneApp/ui/widgets/SettingRow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

SettingRow::SettingRow(QWidget* control, bool titleNamesControl, QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(this)),
      line_(new QLabel(this)),
      control_(control),
      titleNamesControl_(titleNamesControl) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 6, 0, 6);
    row->setSpacing(16);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    title_->setObjectName(QStringLiteral("settingTitle"));
    line_->setObjectName(QStringLiteral("settingLine"));
    line_->setWordWrap(true);
    theme::setRole(*line_, "muted");
    texts->addWidget(title_);
    texts->addWidget(line_);
    row->addLayout(texts, 1);
    control_->setParent(this);
    row->addWidget(control_, 0, Qt::AlignVCenter | Qt::AlignRight);
    // The texts name the control for a screen reader; a click on them is no click on it.
    title_->setBuddy(control_);
}

void SettingRow::render(std::string_view title, std::string_view line) {
    setText(*title_, title);
    setText(*line_, line);
    setVisibleIfChanged(*line_, !line.empty());
    const QString name = qt(title);
    if (titleNamesControl_ && control_->accessibleName() != name) control_->setAccessibleName(name);
    const QString description =
        titleNamesControl_ || line.empty() ? qt(line) : name + QStringLiteral(". ") + qt(line);
    if (control_->accessibleDescription() != description)
        control_->setAccessibleDescription(description);
}

}  // namespace corvane
