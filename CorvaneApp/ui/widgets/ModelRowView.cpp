#include "CorvaneApp/ui/widgets/ModelRowView.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include <cmath>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/ButtonRow.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

std::string_view actionName(ModelsPageRow::Action action) {
    switch (action) {
        case ModelsPageRow::Action::install:
            return "install";
        case ModelsPageRow::Action::retry:
            return "retry";
        case ModelsPageRow::Action::remove:
            return "remove";
    }
    return "install";
}

}  // namespace

ModelRowView::ModelRowView(
    std::function<void(const ModelsPageRow&, ModelsPageRow::Action)> onAction, QWidget* parent)
    : QWidget(parent),
      onAction_(std::move(onAction)),
      name_(new QLabel(this)),
      status_(new QLabel(this)),
      desc_(new QLabel(this)),
      details_(new QLabel(this)),
      progress_(new QProgressBar(this)),
      progressText_(new QLabel(this)),
      note_(new QLabel(this)) {
    buttons_ = new ButtonRow(
        [this](std::size_t index) {
            if (shown_ && index < shown_->buttons.size() && onAction_) {
                const ModelsPageRow row = *shown_;  // the click may re-render this view
                onAction_(row, row.buttons[index].action);
            }
        },
        this);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 6, 0, 6);
    column->setSpacing(4);
    auto* top = new QHBoxLayout;
    top->setSpacing(10);
    theme::setRole(*name_, "heading");
    top->addWidget(name_);
    status_->setObjectName(QStringLiteral("modelStatus"));
    top->addWidget(status_);
    top->addStretch(1);
    top->addWidget(buttons_);
    column->addLayout(top);
    desc_->setWordWrap(true);
    column->addWidget(desc_);
    theme::setRole(*details_, "muted");
    details_->setObjectName(QStringLiteral("modelDetails"));
    column->addWidget(details_);
    progress_->setTextVisible(false);
    progress_->setObjectName(QStringLiteral("modelProgress"));
    column->addWidget(progress_);
    progressText_->setObjectName(QStringLiteral("modelProgressText"));
    progressText_->setWordWrap(true);
    progressText_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(progressText_);
    note_->setObjectName(QStringLiteral("modelNote"));
    note_->setWordWrap(true);
    theme::setRole(*note_, "muted");
    column->addWidget(note_);
}

void ModelRowView::render(const ModelsPageRow& row) {
    if (shown_ == row) return;
    setObjectName(qt("modelRow-" + row.id));
    setAccessibleName(qt(row.name + ", " + row.statusText));
    setText(*name_, row.name);
    setText(*status_, row.statusText);
    theme::setRole(*status_, row.status == ModelStatus::failed ? "error" : "muted");
    setText(*desc_, row.desc);
    setText(*details_, row.details);
    const bool downloading = row.status == ModelStatus::downloading;
    setVisibleIfChanged(*progress_, downloading);
    if (downloading && row.fraction) {
        progress_->setRange(0, 1000);
        progress_->setValue(int(std::lround(*row.fraction * 1000)));
    } else if (downloading) {
        progress_->setRange(0, 0);  // the size is not known yet
    }
    progress_->setAccessibleName(qt(row.name + ": " + row.progressText));
    setText(*progressText_, row.progressText);
    theme::setRole(*progressText_, row.status == ModelStatus::failed ? "error" : "muted");
    setVisibleIfChanged(*progressText_, !row.progressText.empty());
    setText(*note_, row.note);
    setVisibleIfChanged(*note_, !row.note.empty());
    std::vector<ButtonRow::Item> items;
    for (const auto& button : row.buttons) {
        items.push_back(
            {button.title, row.id + "-" + std::string(actionName(button.action)), true, row.name});
    }
    buttons_->render(items);
    shown_ = row;
}

}  // namespace corvane
