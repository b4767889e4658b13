#pragma once
// The popover's content: the status block, today's earnings, the resource bars and their note,
// the model download row, the status's actions and the footer; or the welcome while the computer
// is not enrolled. Renders a PopoverState and forwards what the owner asks.

#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

#include "CorvaneApp/dashboard/PopoverState.h"

class QLabel;
class QStackedWidget;

namespace corvane {

class ButtonRow;
class DownloadRow;
class PreOnboardingView;
class ResourceBars;
class StatusBlock;

struct PopoverActions {
    std::function<void(StatusAction::Kind)> onStatusAction;
    std::function<void(FooterAction::Kind)> onFooterAction;
};

class PopoverView final : public QWidget {
  public:
    static constexpr int width = 340;

    explicit PopoverView(PopoverActions actions, QWidget* parent = nullptr);
    // Changes only what differs from the last state; the same state again repaints nothing.
    void render(const PopoverState& state);

  private:
    PopoverActions actions_;
    QStackedWidget* stack_;
    PreOnboardingView* welcome_;
    StatusBlock* status_;
    QLabel* today_;
    ResourceBars* cpu_;
    ResourceBars* ram_;
    QLabel* note_;
    DownloadRow* download_;
    ButtonRow* actionRow_;
    ButtonRow* footerRow_;
    std::optional<PopoverState> shown_;
};

}  // namespace corvane
