// Theme roles on a styled window: a label's role may change long after it was first shown (a
// model's status turns into a failure), and its colour must follow.

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QWidget>

#include "CorvaneApp/ui/style/Theme.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

TEST(Theme, ARoleChangedAfterTheLabelWasShownTakesItsColour) {
    testing::qtTestApp();
    QWidget window;
    // Any style sheet puts the sheet's style between the label and Fusion, as the app's does.
    window.setStyleSheet(QStringLiteral("QLabel[role=\"heading\"] { font-weight: 600; }"));
    QLabel label(QStringLiteral("Installed"), &window);
    theme::setRole(label, "muted");
    window.show();
    label.ensurePolished();
    const auto colour = [&] { return label.palette().color(QPalette::WindowText); };
    const QColor text = QApplication::palette().color(QPalette::WindowText);
    const QColor muted = theme::mutedText(QApplication::palette());
    EXPECT_EQ(colour(), muted);

    theme::setRole(label, "error");
    const QColor error = colour();
    EXPECT_NE(error, muted);
    EXPECT_NE(error, text);
    EXPECT_GT(error.red(), error.green() + 64) << "an error reads red";

    theme::setRole(label, "");
    EXPECT_EQ(colour(), text);
    theme::setRole(label, "muted");
    EXPECT_EQ(colour(), muted);
}

}  // namespace
}  // namespace corvane
