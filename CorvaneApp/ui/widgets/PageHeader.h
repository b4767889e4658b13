#pragma once
// The top of every page: its title and line, and room on the right for the page's own buttons.

#include <QWidget>

class QHBoxLayout;
class QLabel;

namespace corvane {

class PageHeader final : public QWidget {
  public:
    PageHeader(const QString& title, const QString& line, QWidget* parent = nullptr);
    // Buttons and controls the page puts at the header's right.
    QHBoxLayout& trailing() { return *trailing_; }

  private:
    QLabel* title_;
    QLabel* line_;
    QHBoxLayout* trailing_;
};

}  // namespace corvane
