#include "CorvaneApp/ui/widgets/ResourceBars.h"

#include <QGridLayout>
#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include <cmath>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

// A thin bar filled to a fraction; Corvane's own share in the accent colour.
class Bar final : public QWidget {
  public:
    explicit Bar(QWidget* parent) : QWidget(parent) {
        setMinimumWidth(80);
        setFixedHeight(8);
    }
    void set(double fraction, bool corvane) {
        if (fraction == fraction_ && corvane == corvane_) return;
        fraction_ = fraction;
        corvane_ = corvane;
        update();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette().color(QPalette::Midlight));
        painter.drawRoundedRect(rect(), 4, 4);
        const int filled = int(std::lround(width() * fraction_));
        if (filled <= 0) return;
        painter.setBrush(corvane_ ? theme::corvaneColor() : theme::otherColor(palette()));
        painter.drawRoundedRect(QRect(0, 0, filled, height()), 4, 4);
    }

  private:
    double fraction_ = 0;
    bool corvane_ = false;
};

}  // namespace

ResourceBars::ResourceBars(const QString& title, QWidget* parent)
    : QWidget(parent), grid_(new QGridLayout) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    auto* heading = new QLabel(title, this);
    theme::setRole(*heading, "heading");
    column->addWidget(heading);
    grid_->setHorizontalSpacing(8);
    grid_->setVerticalSpacing(4);
    grid_->setColumnStretch(1, 1);
    column->addLayout(grid_);
    setAccessibleName(title);
}

void ResourceBars::render(const std::vector<ResourceBar>& bars) {
    if (bars == shown_) return;
    while (rows_.size() < bars.size()) {
        const int index = int(rows_.size());
        Row row{new QLabel(this), new Bar(this), new QLabel(this)};
        row.value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        row.value->setMinimumWidth(
            row.value->fontMetrics().horizontalAdvance(QStringLiteral("100.0 GB")));
        grid_->addWidget(row.label, index, 0);
        grid_->addWidget(row.bar, index, 1, Qt::AlignVCenter);
        grid_->addWidget(row.value, index, 2);
        rows_.push_back(row);
    }
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        Row& row = rows_[i];
        const bool shown = i < bars.size();
        setVisibleIfChanged(*row.label, shown);
        setVisibleIfChanged(*row.bar, shown);
        setVisibleIfChanged(*row.value, shown);
        if (!shown) continue;
        setText(*row.label, bars[i].label);
        setText(*row.value, bars[i].value);
        static_cast<Bar*>(row.bar)->set(bars[i].fraction, bars[i].corvane);
        row.bar->setAccessibleName(qt(bars[i].label + ": " + bars[i].value));
    }
    shown_ = bars;
}

}  // namespace corvane
