#include "CorvaneApp/ui/onboarding/DoneStepView.h"

#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

DoneStepView::DoneStepView(QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(this)),
      body_(new QLabel(this)),
      rows_(new QGridLayout),
      note_(new QLabel(this)) {
    setObjectName(QStringLiteral("doneStep"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(14);
    column->addStretch(1);
    auto* glyph = new QLabel(this);
    glyph->setPixmap(QPixmap::fromImage(TrayIconSet::render("earning", 56)));
    column->addWidget(glyph, 0, Qt::AlignHCenter);
    title_->setObjectName(QStringLiteral("doneTitle"));
    theme::setRole(*title_, "title");
    title_->setAlignment(Qt::AlignHCenter);
    column->addWidget(title_);
    body_->setObjectName(QStringLiteral("doneBody"));
    body_->setWordWrap(true);
    body_->setAlignment(Qt::AlignHCenter);
    theme::setRole(*body_, "muted");
    column->addWidget(body_);

    auto* card = new QFrame(this);
    card->setObjectName(QStringLiteral("card"));
    card->setLayout(rows_);
    rows_->setContentsMargins(16, 12, 16, 12);
    rows_->setHorizontalSpacing(16);
    rows_->setVerticalSpacing(8);
    rows_->setColumnStretch(1, 1);
    column->addWidget(card);

    note_->setObjectName(QStringLiteral("doneNote"));
    note_->setWordWrap(true);
    column->addWidget(note_);
    column->addStretch(2);
}

void DoneStepView::render(const OnboardingDoneState& state) {
    setText(*title_, state.title);
    setText(*body_, state.body);
    setText(*note_, state.dashboardNote);
    setAccessibleName(qt(state.title));
    if (state.rows == shownRows_) return;
    while (auto* item = rows_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    int line = 0;
    for (const auto& row : state.rows) {
        auto* label = new QLabel(qt(row.label), rows_->parentWidget());
        theme::setRole(*label, "muted");
        auto* value = new QLabel(qt(row.value), rows_->parentWidget());
        value->setObjectName(QStringLiteral("doneValue"));
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        value->setWordWrap(true);
        if (row.code) {
            QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
            mono.setPointSizeF(font().pointSizeF());
            value->setFont(mono);
        }
        value->setAccessibleName(qt(row.label + ": " + row.value));
        rows_->addWidget(label, line, 0, Qt::AlignLeft | Qt::AlignTop);
        rows_->addWidget(value, line, 1);
        ++line;
    }
    shownRows_ = state.rows;
}

}  // namespace corvane
