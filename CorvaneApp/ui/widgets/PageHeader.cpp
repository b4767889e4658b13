#include "CorvaneApp/ui/widgets/PageHeader.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"

namespace corvane {

PageHeader::PageHeader(const QString& title, const QString& line, QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(title, this)),
      line_(new QLabel(line, this)),
      trailing_(new QHBoxLayout) {
    setObjectName(QStringLiteral("pageHeader"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    theme::setRole(*title_, "title");
    title_->setObjectName(QStringLiteral("pageTitle"));
    theme::setRole(*line_, "muted");
    line_->setObjectName(QStringLiteral("pageLine"));
    line_->setWordWrap(true);
    texts->addWidget(title_);
    texts->addWidget(line_);
    row->addLayout(texts, 1);
    trailing_->setSpacing(8);
    row->addLayout(trailing_);
}

}  // namespace corvane
