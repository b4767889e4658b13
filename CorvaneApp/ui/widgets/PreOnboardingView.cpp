#include "CorvaneApp/ui/widgets/PreOnboardingView.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

PreOnboardingView::PreOnboardingView(std::function<void()> onConnect, QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(this)),
      body_(new QLabel(this)),
      connect_(new QPushButton(this)) {
    setObjectName(QStringLiteral("preOnboarding"));
    auto* column = new QVBoxLayout(this);
    column->setSpacing(12);
    column->addStretch(1);
    auto* glyph = new QLabel(this);
    glyph->setPixmap(QPixmap::fromImage(TrayIconSet::render("notEnrolled", 48)));
    column->addWidget(glyph, 0, Qt::AlignHCenter);
    theme::setRole(*title_, "title");
    title_->setAlignment(Qt::AlignHCenter);
    column->addWidget(title_);
    body_->setWordWrap(true);
    body_->setAlignment(Qt::AlignHCenter);
    body_->setMaximumWidth(420);
    theme::setRole(*body_, "muted");
    column->addWidget(body_, 0, Qt::AlignHCenter);
    connect_->setObjectName(QStringLiteral("connectComputer"));
    connect_->setDefault(true);
    QObject::connect(connect_, &QPushButton::clicked, this, [onConnect = std::move(onConnect)] {
        if (onConnect) onConnect();
    });
    column->addWidget(connect_, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

void PreOnboardingView::render(const PreOnboardingState& state) {
    setText(*title_, state.title);
    setText(*body_, state.body);
    setText(*connect_, state.button);
    connect_->setAccessibleName(qt(state.button));
    setAccessibleName(qt(state.title));
}

}  // namespace corvane
