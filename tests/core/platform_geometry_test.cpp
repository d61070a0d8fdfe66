// Rectangles and the displays-of-a-rectangle rule shared by the window servers.
#include <gtest/gtest.h>

#include "platform/geometry.h"
#include "platform/window_server.h"

using namespace pv;

TEST(Rect, ContainmentIsHalfOpenAndEmptyRectsContainNothing) {
    const Rect r{10, 20, 30, 40};
    EXPECT_TRUE(r.contains({10, 20}));
    EXPECT_TRUE(r.contains({39.9, 59.9}));
    EXPECT_FALSE(r.contains({40, 30}));
    EXPECT_FALSE(r.contains({20, 60}));
    EXPECT_FALSE((Rect{5, 5, 0, 10}).contains({5, 5}));
}

TEST(Rect, TouchingEdgesDoNotIntersect) {
    const Rect a{0, 0, 100, 100};
    EXPECT_FALSE(a.intersects({100, 0, 50, 50}));
    EXPECT_TRUE(a.intersects({99, 99, 50, 50}));
    EXPECT_FALSE(a.intersects({50, 50, 0, 0}));
}

TEST(DisplaysMeetingRect, FlipsFramesWithTheMainScreenHeight) {
    // Main 1440x900; a taller second screen to the right, bottom edges level.
    const std::vector<ScreenListEntry> screens{
        {1, {0, 0, 1440, 900}, 2.0},
        {2, {1440, 0, 1920, 1200}, 1.0},
    };
    // In window-server coordinates the second screen spans y from -300 to 900.
    EXPECT_EQ(displaysMeetingRect(screens, {1500, -250, 100, 100}, 2), (std::vector<uint32_t>{2}));
    EXPECT_EQ(displaysMeetingRect(screens, {1400, 100, 100, 100}, 2), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(displaysMeetingRect(screens, {1400, 100, 100, 100}, 1), (std::vector<uint32_t>{1}));
    EXPECT_TRUE(displaysMeetingRect(screens, {0, 1000, 100, 100}, 2).empty());
    EXPECT_TRUE(displaysMeetingRect({}, {0, 0, 100, 100}, 2).empty());
}
