// Which view stands for each page of the dashboard.

#include "CorvaneApp/ui/dashboard/DashboardPage.h"
#include "CorvaneApp/ui/dashboard/pages/PlaceholderPage.h"
#include "CorvaneApp/ui/dashboard/pages/SettingsPage.h"

namespace corvane {

std::unique_ptr<DashboardPage> makeDashboardPage(DashPage page, PageContext& context) {
    switch (page) {
        case DashPage::overview:
        case DashPage::earnings:
        case DashPage::models:
        case DashPage::schedule:
        case DashPage::payouts:
            break;
        case DashPage::settings:
            return std::make_unique<SettingsPage>(context);
    }
    return std::make_unique<PlaceholderPage>(page);
}

}  // namespace corvane
