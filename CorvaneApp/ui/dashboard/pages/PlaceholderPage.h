#pragma once
// A page not built yet: its title and line, and a word that it is coming.

#include "CorvaneApp/ui/dashboard/DashboardPage.h"

namespace corvane {

class PlaceholderPage final : public DashboardPage {
  public:
    PlaceholderPage(DashPage page, QWidget* parent = nullptr);
    ModelParts observedParts() const override { return {}; }
    void refresh() override {}
};

}  // namespace corvane
