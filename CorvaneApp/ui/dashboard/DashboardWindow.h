#pragma once
// The dashboard: a sidebar with the six pages, the status and a shard in progress, and the page
// shown beside it; the welcome instead while the computer is not enrolled. It remembers the page
// ("cvn.page") and its size; closing it leaves the process and the worker running.

#include <QWidget>

#include <array>
#include <map>
#include <memory>
#include <optional>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

class QLabel;
class QPushButton;
class QStackedWidget;

namespace corvane {

class PreOnboardingView;
class StatusBlock;

class DashboardWindow final : public QWidget {
  public:
    static constexpr int defaultWidth = 1180, defaultHeight = 760;
    static constexpr int minimumWidth = 980, minimumHeight = 640;

    explicit DashboardWindow(PageContext& context);
    ~DashboardWindow() override;

    DashPage currentPage() const { return current_; }
    // Selects the page (and remembers it); the page renders at once if the window is visible.
    void showPage(DashPage page);
    DashboardPage& page(DashPage page) { return *pages_.at(page); }
    // Re-renders the frame and, for the parts it observes, the page on show.
    void modelChanged(ModelParts parts);
    // Renders everything now (the window was just shown, or a picture is about to be taken).
    void renderAll();

  protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

  private:
    void renderFrame();

    PageContext& context_;
    QStackedWidget* content_;
    PreOnboardingView* welcome_;
    QStackedWidget* pagesStack_;
    StatusBlock* status_;
    QLabel* shardIndicator_;
    std::array<QPushButton*, 6> entries_{};
    std::map<DashPage, DashboardPage*> pages_;  // owned by pagesStack_
    DashPage current_ = DashPage::overview;
    std::optional<SidebarState> shownSidebar_;
};

}  // namespace corvane
