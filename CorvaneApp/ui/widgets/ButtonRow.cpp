#include "CorvaneApp/ui/widgets/ButtonRow.h"

#include <QHBoxLayout>
#include <QPushButton>

#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

ButtonRow::ButtonRow(std::function<void(std::size_t)> onClick, QWidget* parent)
    : QWidget(parent), onClick_(std::move(onClick)), row_(new QHBoxLayout(this)) {
    row_->setContentsMargins(0, 0, 0, 0);
    row_->setSpacing(8);
    row_->addStretch(1);
    setVisible(false);
}

void ButtonRow::render(const std::vector<Item>& items) {
    if (rendered_ && items == shown_) return;
    rendered_ = true;
    for (auto* button : buttons_) {
        row_->removeWidget(button);
        button->hide();
        button->deleteLater();  // it may be the one whose click led here
    }
    buttons_.clear();
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto* button = new QPushButton(buttonText(items[i].title), this);
        button->setObjectName(qt(items[i].objectName));
        button->setEnabled(items[i].enabled);
        button->setToolTip(qt(items[i].hint));
        button->setAccessibleName(qt(items[i].title));
        button->setAccessibleDescription(qt(items[i].hint));
        QObject::connect(button, &QPushButton::clicked, this, [this, i] {
            if (onClick_) onClick_(i);
        });
        row_->insertWidget(int(i), button);
        buttons_.push_back(button);
    }
    shown_ = items;
    setVisibleIfChanged(*this, !items.empty());
}

}  // namespace corvane
