#include "CorvaneApp/ui/widgets/SegmentedControl.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPushButton>

#include <algorithm>

#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

const char* const kSheet = R"(
QPushButton[segment="true"] {
    padding: 4px 14px;
    border: 1px solid palette(mid);
    border-radius: 6px;
    background: palette(base);
}
QPushButton[segment="true"]:checked {
    background: palette(highlight);
    color: palette(highlighted-text);
    border-color: palette(highlight);
}
QPushButton[segment="true"]:focus { border: 2px solid palette(highlight); }
)";

}  // namespace

SegmentedControl::SegmentedControl(const QString& accessibleName,
                                   std::function<void(std::size_t)> onSelect, QWidget* parent)
    : QWidget(parent),
      onSelect_(std::move(onSelect)),
      row_(new QHBoxLayout(this)),
      group_(new QButtonGroup(this)) {
    setAccessibleName(accessibleName);
    setStyleSheet(QString::fromLatin1(kSheet));
    row_->setContentsMargins(0, 0, 0, 0);
    row_->setSpacing(4);
    row_->addStretch(1);
    group_->setExclusive(true);
}

void SegmentedControl::render(const std::vector<Segment>& segments) {
    if (rendered_ && segments == shown_) return;
    const bool sameTitles = rendered_ && segments.size() == shown_.size() &&
                            std::equal(segments.begin(), segments.end(), shown_.begin(),
                                       [](const Segment& a, const Segment& b) {
                                           return a.title == b.title &&
                                                  a.objectName == b.objectName &&
                                                  a.accessibleName == b.accessibleName;
                                       });
    if (!sameTitles) {
        for (auto* button : buttons_) {
            group_->removeButton(button);
            row_->removeWidget(button);
            button->hide();
            button->deleteLater();
        }
        buttons_.clear();
        for (std::size_t i = 0; i < segments.size(); ++i) {
            auto* button = new QPushButton(buttonText(segments[i].title), this);
            button->setObjectName(qt(segments[i].objectName));
            button->setProperty("segment", true);
            button->setCheckable(true);
            button->setAccessibleName(qt(segments[i].accessibleName.empty()
                                             ? segments[i].title
                                             : segments[i].accessibleName));
            group_->addButton(button, int(i));
            QObject::connect(button, &QPushButton::clicked, this, [this, i] {
                if (onSelect_) onSelect_(i);
            });
            row_->insertWidget(int(i), button);
            buttons_.push_back(button);
        }
    }
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (buttons_[i]->isChecked() != segments[i].selected)
            buttons_[i]->setChecked(segments[i].selected);
    }
    rendered_ = true;
    shown_ = segments;
}

void SegmentedControl::keyPressEvent(QKeyEvent* event) {
    // Left and right move the choice, as in a tab bar.
    const int step = event->key() == Qt::Key_Left ? -1 : (event->key() == Qt::Key_Right ? 1 : 0);
    if (step == 0 || buttons_.empty()) return QWidget::keyPressEvent(event);
    int at = 0;
    for (std::size_t i = 0; i < buttons_.size(); ++i) {
        if (buttons_[i]->hasFocus()) at = int(i);
    }
    const int next = std::clamp(at + step, 0, int(buttons_.size()) - 1);
    buttons_[std::size_t(next)]->setFocus(Qt::TabFocusReason);
    if (onSelect_) onSelect_(std::size_t(next));
}

}  // namespace corvane
