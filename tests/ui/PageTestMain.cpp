// The page tests' main(): the application lives on main()'s stack, so it is gone before static
// destruction begins. Pages create pointing devices and other Qt globals lazily, after the
// application; an application kept in a static would outlive them and crash on the way out.

#include <gtest/gtest.h>

#include <QApplication>

#include <cstdlib>

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    ::testing::InitGoogleTest(&argc, argv);
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
