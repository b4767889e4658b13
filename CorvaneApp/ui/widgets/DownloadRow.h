#pragma once
// A model download on its way: the model's name, a bar, how far it is, and a retry button once
// it failed.

#include <QWidget>

#include <functional>
#include <optional>

#include "CorvaneApp/dashboard/PopoverState.h"

class QLabel;
class QProgressBar;
class QPushButton;

namespace corvane {

class DownloadRow final : public QWidget {
  public:
    DownloadRow(std::function<void()> onRetry, QWidget* parent = nullptr);
    // Hidden without a row.
    void render(const std::optional<DownloadRowState>& row);

  private:
    QLabel* title_;
    QProgressBar* bar_;
    QLabel* subtitle_;
    QPushButton* retry_;
    std::optional<DownloadRowState> shown_;
    bool rendered_ = false;
};

}  // namespace corvane
