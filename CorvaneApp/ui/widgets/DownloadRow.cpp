#include "CorvaneApp/ui/widgets/DownloadRow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

DownloadRow::DownloadRow(std::function<void()> onRetry, QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(this)),
      bar_(new QProgressBar(this)),
      subtitle_(new QLabel(this)),
      retry_(new QPushButton(QStringLiteral("Retry download"), this)) {
    setObjectName(QStringLiteral("downloadRow"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    auto* top = new QHBoxLayout;
    theme::setRole(*title_, "heading");
    top->addWidget(title_, 1);
    retry_->setObjectName(QStringLiteral("retryDownload"));
    retry_->setAccessibleName(QStringLiteral("Retry the model download"));
    QObject::connect(retry_, &QPushButton::clicked, this, [onRetry = std::move(onRetry)] {
        if (onRetry) onRetry();
    });
    top->addWidget(retry_);
    column->addLayout(top);
    bar_->setTextVisible(false);
    bar_->setRange(0, 1000);
    bar_->setObjectName(QStringLiteral("downloadProgress"));
    column->addWidget(bar_);
    subtitle_->setObjectName(QStringLiteral("downloadSubtitle"));
    subtitle_->setWordWrap(true);
    theme::setRole(*subtitle_, "muted");
    column->addWidget(subtitle_);
    setVisible(false);
}

void DownloadRow::render(const std::optional<DownloadRowState>& row) {
    if (rendered_ && row == shown_) return;
    rendered_ = true;
    shown_ = row;
    setVisibleIfChanged(*this, row.has_value());
    if (!row) return;
    setText(*title_, row->title);
    setText(*subtitle_, row->subtitle);
    theme::setRole(*subtitle_, row->failed ? "error" : "muted");
    setVisibleIfChanged(*retry_, row->failed);
    setVisibleIfChanged(*bar_, !row->failed);
    if (row->fraction) {
        bar_->setRange(0, 1000);
        bar_->setValue(int(std::lround(*row->fraction * 1000)));
    } else if (!row->failed) {
        bar_->setRange(0, 0);  // busy: the size is not known yet
    }
    bar_->setAccessibleName(qt(row->title + ": " + row->subtitle));
}

}  // namespace corvane
