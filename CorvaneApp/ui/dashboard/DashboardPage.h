#pragma once
// One page of the dashboard, and what every page may use. A page renders its own state, computed
// below the toolkit from the model, when it becomes visible and when a part of the model it shows
// changes; it forwards what the owner asks to the model, the settings or the context.

#include <QWidget>

#include <functional>
#include <memory>
#include <string_view>

#include "CorvaneApp/app/DashPage.h"
#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

struct PageContext {
    Session& session;  // the model, the settings store and the user's defaults
    Executor& mainSequence;
    std::function<void(DashPage)> openPage;
    std::function<void()> openOnboarding;
    AppModel& model() const { return session.model(); }
};

class DashboardPage : public QWidget {
  public:
    using QWidget::QWidget;
    // The parts of the model whose change re-renders the page.
    virtual ModelParts observedParts() const = 0;
    // Renders from the model; an unchanged state repaints nothing.
    virtual void refresh() = 0;
    // The page is now the one shown (a page may start a load it needs).
    virtual void shown() {}
    // The screenshot harness is about to take scene `sceneID` of this page: open what the scene
    // shows (a sheet, a tab). Most scenes need nothing here.
    virtual void prepareScene(std::string_view sceneID) { (void)sceneID; }
};

// The page for `page`; those still to be built show their title and line.
std::unique_ptr<DashboardPage> makeDashboardPage(DashPage page, PageContext& context);

}  // namespace corvane
