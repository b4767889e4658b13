#pragma once
// A titled group of horizontal bars, one per resource line: its label, a bar and its value.

#include <QWidget>

#include <string>
#include <vector>

#include "CorvaneApp/dashboard/PopoverState.h"

class QLabel;
class QGridLayout;

namespace corvane {

class ResourceBars final : public QWidget {
  public:
    ResourceBars(const QString& title, QWidget* parent = nullptr);
    void render(const std::vector<ResourceBar>& bars);

  private:
    struct Row {  // widgets owned by this one
        QLabel* label;
        QWidget* bar;
        QLabel* value;
    };
    QGridLayout* grid_;
    std::vector<Row> rows_;
    std::vector<ResourceBar> shown_;
};

}  // namespace corvane
