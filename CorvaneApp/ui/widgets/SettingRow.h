#pragma once
// One row of a settings card: a title and its line on the left, the row's control (a switch, a
// button, a time) on the right. The control is the row's focus stop and carries its name.

#include <QWidget>

#include <string_view>

class QLabel;

namespace corvane {

class SettingRow final : public QWidget {
  public:
    // Takes `control` as its child. A control without words of its own (a switch, a time) is named
    // by the title; a button keeps its text as its name, and the row's words describe it.
    SettingRow(QWidget* control, bool titleNamesControl, QWidget* parent = nullptr);
    // An empty line hides it.
    void render(std::string_view title, std::string_view line);
    QWidget& control() { return *control_; }

  private:
    QLabel* title_;
    QLabel* line_;
    QWidget* control_;
    bool titleNamesControl_;
};

}  // namespace corvane
