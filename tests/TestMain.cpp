#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    // Tests never need a display; painting and fonts work offscreen.
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::testing::InitGoogleTest(&argc, argv);
    // A widget application, so tests can show widget hosts too.
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
