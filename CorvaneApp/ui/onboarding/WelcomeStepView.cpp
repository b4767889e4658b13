#include "CorvaneApp/ui/onboarding/WelcomeStepView.h"

#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

WelcomeStepView::WelcomeStepView(QWidget* parent)
    : QWidget(parent), title_(new QLabel(this)), body_(new QLabel(this)) {
    setObjectName(QStringLiteral("welcomeStep"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(14);
    column->addStretch(1);
    auto* glyph = new QLabel(this);
    glyph->setPixmap(QPixmap::fromImage(TrayIconSet::render("earning", 64)));
    column->addWidget(glyph, 0, Qt::AlignHCenter);
    title_->setObjectName(QStringLiteral("welcomeTitle"));
    theme::setRole(*title_, "title");
    title_->setAlignment(Qt::AlignHCenter);
    title_->setWordWrap(true);
    column->addWidget(title_);
    body_->setObjectName(QStringLiteral("welcomeBody"));
    body_->setWordWrap(true);
    body_->setAlignment(Qt::AlignHCenter);
    // Full width with inner margins: an aligned word-wrapped label gets its one-line size hint's
    // height and clips the rest of the sentence.
    body_->setContentsMargins(48, 0, 48, 0);
    theme::setRole(*body_, "muted");
    column->addWidget(body_);
    column->addStretch(2);
}

void WelcomeStepView::render(const OnboardingWelcomeState& state) {
    setText(*title_, state.title);
    setText(*body_, state.body);
    setAccessibleName(qt(state.title));
}

}  // namespace corvane
