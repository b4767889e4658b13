#include "CorvaneApp/ui/widgets/SegmentedControl.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPushButton>

#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

// Joined buttons whose chosen one takes the highlight; colours come from the palette.
const char* const kSegmentSheet = R"(
QPushButton[segment="true"] {
    padding: 4px 12px;
    border: 1px solid palette(mid);
    border-radius: 0;
    background: palette(base);
    color: palette(text);
}
QPushButton[segment="true"]:checked {
    background: palette(highlight);
    color: palette(highlighted-text);
    border-color: palette(highlight);
}
QPushButton[segment="true"]:focus { border: 1px solid palette(highlight); }
QPushButton[position="first"] { border-top-left-radius: 6px; border-bottom-left-radius: 6px; }
QPushButton[position="last"] { border-top-right-radius: 6px; border-bottom-right-radius: 6px; }
)";

}  // namespace

SegmentedControl::SegmentedControl(std::function<void(std::size_t)> onSelect, QWidget* parent)
    : QWidget(parent),
      onSelect_(std::move(onSelect)),
      row_(new QHBoxLayout(this)),
      group_(new QButtonGroup(this)) {
    row_->setContentsMargins(0, 0, 0, 0);
    row_->setSpacing(0);
    group_->setExclusive(true);
    setStyleSheet(QString::fromLatin1(kSegmentSheet));
    QObject::connect(group_, &QButtonGroup::idClicked, this, [this](int id) {
        if (onSelect_ && id >= 0) onSelect_(std::size_t(id));
    });
}

void SegmentedControl::render(const std::vector<Segment>& segments, std::size_t selected) {
    if (segments != shown_) {
        for (QPushButton* button : buttons_) {
            group_->removeButton(button);
            delete button;
        }
        buttons_.clear();
        for (std::size_t i = 0; i < segments.size(); ++i) {
            auto* button = new QPushButton(buttonText(segments[i].title), this);
            button->setCheckable(true);
            button->setProperty("segment", true);
            button->setProperty("position", i == 0                     ? "first"
                                            : i + 1 == segments.size() ? "last"
                                                                       : "middle");
            button->setObjectName(qt(segments[i].objectName));
            button->setAccessibleName(qt(segments[i].accessibleName));
            button->setToolTip(qt(segments[i].accessibleName));
            group_->addButton(button, int(i));
            row_->addWidget(button);
            buttons_.push_back(button);
        }
        shown_ = segments;
    }
    for (std::size_t i = 0; i < buttons_.size(); ++i) {
        if (buttons_[i]->isChecked() != (i == selected)) buttons_[i]->setChecked(i == selected);
    }
}

}  // namespace corvane
