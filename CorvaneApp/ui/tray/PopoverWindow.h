#pragma once
// The popover as a window. On X11 it is a frameless popup at the pointer that closes when the
// owner clicks elsewhere; where the desktop does not let a client place its windows (Wayland) it
// is an ordinary small window that the compositor places.

#include <QWidget>

#include "CorvaneApp/ui/tray/PopoverView.h"

namespace corvane {

class PopoverWindow final : public QWidget {
  public:
    explicit PopoverWindow(PopoverActions actions);

    PopoverView& view() { return *view_; }
    // Shown, or closed when it was showing.
    void toggle();
    void showNearPointer();
    // True on desktops where a window may place itself.
    static bool canPlaceItself();

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    PopoverView* view_;
};

}  // namespace corvane
