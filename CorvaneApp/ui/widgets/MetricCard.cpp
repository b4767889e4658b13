#include "CorvaneApp/ui/widgets/MetricCard.h"

#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

MetricCard::MetricCard(const QString& objectName, QWidget* parent)
    : QFrame(parent),
      column_(new QVBoxLayout(this)),
      title_(new QLabel(this)),
      value_(new QLabel(this)),
      caption_(new QLabel(this)) {
    setObjectName(QStringLiteral("card"));
    setProperty("metric", objectName);
    column_->setContentsMargins(14, 12, 14, 12);
    column_->setSpacing(4);
    theme::setRole(*title_, "muted");
    value_->setObjectName(objectName);
    theme::setRole(*value_, "value");
    // The application's style sheet decides label fonts, so the figure's size is set the same way.
    value_->setStyleSheet(QStringLiteral("font-size: 13pt; font-weight: 600;"));
    value_->setWordWrap(true);  // a long figure ("waiting for last 15 min pace") keeps cards even
    value_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    theme::setRole(*caption_, "muted");
    caption_->setWordWrap(true);
    column_->addWidget(title_);
    column_->addWidget(value_);
    column_->addWidget(caption_);
    column_->addStretch(1);
}

void MetricCard::addBelow(QWidget* widget) {
    column_->insertWidget(column_->count() - 1, widget);
}

void MetricCard::render(const std::string& title, const std::string& value,
                        const std::string& caption) {
    setText(*title_, title);
    setText(*value_, value);
    setText(*caption_, caption);
    setVisibleIfChanged(*caption_, !caption.empty());
    setAccessibleName(qt(title + ": " + value + (caption.empty() ? "" : ", " + caption)));
}

}  // namespace corvane
