#include "CorvaneApp/ui/dashboard/pages/PlaceholderPage.h"

#include <QLabel>
#include <QVBoxLayout>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/PageHeader.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {

PlaceholderPage::PlaceholderPage(DashPage page, QWidget* parent) : DashboardPage(parent) {
    const auto& info = dashPageInfo(page);
    setObjectName(qt(std::string(rawValue(page)) + "Page"));
    setAccessibleName(qt(info.title));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(28, 24, 28, 24);
    column->setSpacing(16);
    column->addWidget(new PageHeader(qt(info.title), qt(info.line), this));
    auto* coming = new QLabel(QStringLiteral("This page arrives in a coming update."), this);
    theme::setRole(*coming, "muted");
    column->addWidget(coming);
    column->addStretch(1);
}

}  // namespace corvane
