#pragma once
// A card with one figure: a short title, the value large, and a line under it.

#include <QFrame>

#include <string>

class QLabel;
class QVBoxLayout;

namespace corvane {

class MetricCard final : public QFrame {
  public:
    explicit MetricCard(const QString& objectName, QWidget* parent = nullptr);
    // An empty caption hides its line.
    void render(const std::string& title, const std::string& value, const std::string& caption);
    // Puts `widget` below the caption (a bar, a second line); the card owns it.
    void addBelow(QWidget* widget);

  private:
    QVBoxLayout* column_;
    QLabel* title_;
    QLabel* value_;
    QLabel* caption_;
};

}  // namespace corvane
