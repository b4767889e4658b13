#include "CorvaneApp/ui/widgets/StatusBlock.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

StatusBlock::StatusBlock(QWidget* parent)
    : QWidget(parent), glyph_(new QLabel(this)), label_(new QLabel(this)), line_(new QLabel(this)) {
    setObjectName(QStringLiteral("statusBlock"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);
    glyph_->setFixedSize(28, 28);
    row->addWidget(glyph_, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    theme::setRole(*label_, "heading");
    label_->setObjectName(QStringLiteral("statusLabel"));
    line_->setObjectName(QStringLiteral("statusLine"));
    line_->setWordWrap(true);
    theme::setRole(*line_, "muted");
    texts->addWidget(label_);
    texts->addWidget(line_);
    row->addLayout(texts, 1);
}

void StatusBlock::render(WorkerStatus status, const std::string& label, const std::string& line) {
    if (shown_ != status) {
        const qreal ratio = devicePixelRatioF();
        QPixmap glyph = QPixmap::fromImage(TrayIconSet::render(rawValue(status), int(28 * ratio)));
        glyph.setDevicePixelRatio(ratio);
        glyph_->setPixmap(glyph);
        shown_ = status;
    }
    setText(*label_, label);
    setText(*line_, line);
    setAccessibleName(qt(label + " — " + line));
}

}  // namespace corvane
