#pragma once
// The status as every surface shows it: the status glyph, the label and the line under it.

#include <QWidget>

#include <optional>
#include <string>

#include "CorvaneApp/app/WorkerStatus.h"

class QLabel;

namespace corvane {

class StatusBlock final : public QWidget {
  public:
    explicit StatusBlock(QWidget* parent = nullptr);
    void render(WorkerStatus status, const std::string& label, const std::string& line);

  private:
    QLabel* glyph_;
    QLabel* label_;
    QLabel* line_;
    std::optional<WorkerStatus> shown_;
};

}  // namespace corvane
