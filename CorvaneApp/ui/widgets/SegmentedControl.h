#pragma once
// A row of exclusive choices ("Today", "7d", ...): one checkable button each, reached by Tab and
// chosen with Space. Only the owner's click reports an index; rendering a selection reports none.

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
        std::string objectName;      // tests find the button by it
        std::string accessibleName;  // what a screen reader says of it
        friend bool operator==(const Segment&, const Segment&) = default;
    };

    SegmentedControl(std::function<void(std::size_t)> onSelect, QWidget* parent = nullptr);
    void render(const std::vector<Segment>& segments, std::size_t selected);
    const std::vector<QPushButton*>& buttons() const { return buttons_; }

  private:
    std::function<void(std::size_t)> onSelect_;
    QHBoxLayout* row_;
    QButtonGroup* group_;
    std::vector<QPushButton*> buttons_;  // owned by this widget
    std::vector<Segment> shown_;
};

}  // namespace corvane
