// The X11 tests: each suite starts its own Xvfb, so the developer's display is
// never touched, whatever DISPLAY says.
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    unsetenv("DISPLAY");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
