#pragma once
// A row of push buttons made from a list: the buttons are made again only when the list changes,
// and a click reports the button's index.

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

class QHBoxLayout;
class QPushButton;

namespace corvane {

class ButtonRow final : public QWidget {
  public:
    struct Item {
        std::string title;
        std::string objectName;  // tests find the button by it
        bool enabled = true;
        std::string hint;  // tooltip and accessible description
        friend bool operator==(const Item&, const Item&) = default;
    };

    ButtonRow(std::function<void(std::size_t)> onClick, QWidget* parent = nullptr);
    void render(const std::vector<Item>& items);
    const std::vector<QPushButton*>& buttons() const { return buttons_; }

  private:
    std::function<void(std::size_t)> onClick_;
    QHBoxLayout* row_;
    std::vector<QPushButton*> buttons_;  // owned by this widget
    std::vector<Item> shown_;
    bool rendered_ = false;
};

}  // namespace corvane
