// Test runner for the controller and the Qt pieces: one QApplication on the
// offscreen platform, so that no test touches a real display.
#include <QApplication>

#include <gtest/gtest.h>

#include "app/guarded_application.h"

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Guarded as the program's own event loops are.
    pv::GuardedApplication<QApplication> app(argc, argv, "app_tests");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
