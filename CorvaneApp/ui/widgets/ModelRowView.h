#pragma once
// One model on the Models page: its name and status, what it is, its size and licence, the
// download's progress or why it failed, the note on who manages it, and its buttons (install,
// retry, remove), which report the action asked for.

#include <QWidget>

#include <functional>
#include <optional>

#include "CorvaneApp/dashboard/ModelsPageState.h"

class QLabel;
class QProgressBar;

namespace corvane {

class ButtonRow;

class ModelRowView final : public QWidget {
  public:
    ModelRowView(std::function<void(const ModelsPageRow&, ModelsPageRow::Action)> onAction,
                 QWidget* parent = nullptr);
    void render(const ModelsPageRow& row);
    ButtonRow& buttons() { return *buttons_; }

  private:
    std::function<void(const ModelsPageRow&, ModelsPageRow::Action)> onAction_;
    QLabel* name_;
    QLabel* status_;
    QLabel* desc_;
    QLabel* details_;
    QProgressBar* progress_;
    QLabel* progressText_;
    QLabel* note_;
    ButtonRow* buttons_;
    std::optional<ModelsPageRow> shown_;
};

}  // namespace corvane
