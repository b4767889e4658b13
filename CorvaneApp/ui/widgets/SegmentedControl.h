#pragma once
// A row of exclusive choices (tabs, filters): one checked button each, reached by Tab and moved
// between with the arrow keys. Picking one reports its index; rendering never does.

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

class QButtonGroup;
class QHBoxLayout;
class QPushButton;

namespace corvane {

class SegmentedControl final : public QWidget {
  public:
    struct Segment {
        std::string title;
        std::string objectName;
        bool selected = false;
        std::string accessibleName;  // what a screen reader says of it; the title when empty
        friend bool operator==(const Segment&, const Segment&) = default;
    };

    SegmentedControl(const QString& accessibleName, std::function<void(std::size_t)> onSelect,
                     QWidget* parent = nullptr);
    void render(const std::vector<Segment>& segments);
    const std::vector<QPushButton*>& buttons() const { return buttons_; }

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    std::function<void(std::size_t)> onSelect_;
    QHBoxLayout* row_;
    QButtonGroup* group_;
    std::vector<QPushButton*> buttons_;  // owned by this widget
    std::vector<Segment> shown_;
    bool rendered_ = false;
};

}  // namespace corvane
