#pragma once
// A diagnostic for the idle benchmark: with CORVANE_PAINT_LOG set, every paint of a widget is
// logged ("paint: <window> / <widget>"), so that a desktop left alone can be shown to repaint
// nothing while nothing changes.

#include <QObject>

#include <memory>

namespace corvane {

class PaintLog final : public QObject {
  public:
    // Installed on the application when the environment asks for it; null otherwise.
    static std::unique_ptr<PaintLog> installIfRequested();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};

}  // namespace corvane
