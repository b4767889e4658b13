// Which view stands for each page of the dashboard.

#include <stdexcept>

#include "CorvaneApp/ui/dashboard/DashboardPage.h"
#include "CorvaneApp/ui/dashboard/pages/EarningsPage.h"
#include "CorvaneApp/ui/dashboard/pages/ModelsPage.h"
#include "CorvaneApp/ui/dashboard/pages/OverviewPage.h"
#include "CorvaneApp/ui/dashboard/pages/PayoutsPage.h"
#include "CorvaneApp/ui/dashboard/pages/SchedulePage.h"
#include "CorvaneApp/ui/dashboard/pages/SettingsPage.h"

namespace corvane {

std::unique_ptr<DashboardPage> makeDashboardPage(DashPage page, PageContext& context) {
    switch (page) {
        case DashPage::overview:
            return std::make_unique<OverviewPage>(context);
        case DashPage::earnings:
            return std::make_unique<EarningsPage>(context);
        case DashPage::models:
            return std::make_unique<ModelsPage>(context);
        case DashPage::schedule:
            return std::make_unique<SchedulePage>(context);
        case DashPage::payouts:
            return std::make_unique<PayoutsPage>(context);
        case DashPage::settings:
            return std::make_unique<SettingsPage>(context);
    }
    throw std::invalid_argument("no dashboard page for this value");
}

}  // namespace corvane
