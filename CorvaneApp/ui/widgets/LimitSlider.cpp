#include "CorvaneApp/ui/widgets/LimitSlider.h"

#include <QGridLayout>
#include <QLabel>
#include <QPainter>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyleOptionSlider>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

// A slider with a small mark under its groove at the recommended value.
class MarkedSlider final : public QSlider {
  public:
    explicit MarkedSlider(QWidget* parent) : QSlider(Qt::Horizontal, parent) {
        setMinimumHeight(26);
    }
    void setMark(std::optional<int> mark) {
        if (mark_ == mark) return;
        mark_ = mark;
        update();
    }

  protected:
    void paintEvent(QPaintEvent* event) override {
        QSlider::paintEvent(event);
        if (!mark_ || maximum() <= minimum()) return;
        QStyleOptionSlider option;
        initStyleOption(&option);
        const QRect groove =
            style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, this);
        const QRect handle =
            style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
        const int span = groove.width() - handle.width();
        const int x = groove.left() + handle.width() / 2 +
                      QStyle::sliderPositionFromValue(minimum(), maximum(), *mark_, span);
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(theme::corvaneColor());
        const int y = height() - 5;
        const QPointF tip[3] = {QPointF(x, y - 4), QPointF(x - 4, y + 3), QPointF(x + 4, y + 3)};
        painter.drawPolygon(tip, 3);
    }

  private:
    std::optional<int> mark_;
};

}  // namespace

LimitSlider::LimitSlider(std::function<void(int)> onChange, QWidget* parent)
    : QWidget(parent),
      onChange_(std::move(onChange)),
      label_(new QLabel(this)),
      value_(new QLabel(this)),
      slider_(new MarkedSlider(this)),
      recommended_(new QLabel(this)),
      hint_(new QLabel(this)) {
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(8);
    grid->setVerticalSpacing(2);
    label_->setBuddy(slider_);
    grid->addWidget(label_, 0, 0);
    value_->setObjectName(QStringLiteral("limitValue"));
    theme::setRole(*value_, "heading");
    grid->addWidget(value_, 0, 1, Qt::AlignRight);
    grid->addWidget(slider_, 1, 0, 1, 2);
    theme::setRole(*recommended_, "muted");
    recommended_->setObjectName(QStringLiteral("limitRecommended"));
    grid->addWidget(recommended_, 2, 1, Qt::AlignRight | Qt::AlignTop);
    hint_->setObjectName(QStringLiteral("limitHint"));
    hint_->setWordWrap(true);
    theme::setRole(*hint_, "muted");
    grid->addWidget(hint_, 2, 0);
    grid->setColumnStretch(0, 1);
    slider_->setFocusPolicy(Qt::StrongFocus);
    slider_->setPageStep(5);
    QObject::connect(slider_, &QSlider::valueChanged, this, [this](int value) {
        if (onChange_) onChange_(value);
    });
}

void LimitSlider::render(const LimitSliderState& state) {
    if (shown_ == state) return;
    setText(*label_, state.label);
    setText(*value_, state.valueText);
    setText(*recommended_, state.recommendedText);
    setVisibleIfChanged(*recommended_, !state.recommendedText.empty());
    setText(*hint_, state.hint);
    {
        // The value the store holds, shown: never a change of it.
        const QSignalBlocker quiet(slider_);
        slider_->setRange(state.minimum, state.maximum);
        slider_->setValue(state.value);
    }
    static_cast<MarkedSlider*>(slider_)->setMark(state.recommended);
    slider_->setAccessibleName(qt(state.label));
    slider_->setAccessibleDescription(qt(state.valueText + ". " + state.hint));
    shown_ = state;
}

}  // namespace corvane
