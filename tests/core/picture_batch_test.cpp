// Pictures asked for as a batch from a window server whose calls answer at
// once (X11, the fixture): order, where each picture's frame lies, cancelling
// between requests, a server lost midway; and shots made of such pictures.
#include <gtest/gtest.h>

#include "capture/window_shot.h"
#include "tests/core/fake_window_server.h"

namespace pv {
namespace {

using namespace std::chrono_literals;

PictureRequest request(uint32_t window, bool framing = false, std::optional<WindowRect> bounds = std::nullopt) {
    PictureRequest r;
    r.window = window;
    r.framing = framing;
    r.bounds = bounds;
    r.listedBounds = {100, 50, 40, 30};
    r.scale = 2;
    return r;
}

TEST(PictureBatch, EachRequestInOrderWithWhereItsFrameLies) {
    test::FakeWindowServer server;
    server.pictures[1] = Image(80, 60);                    // the frame at scale 2
    server.pictures[2] = Image(80 + 2 * 24, 60 + 2 * 30);  // with a shadow 24 wide, 30 deep (10 above)
    server.pictures[3] = Image(20, 20);                    // taken by a rectangle
    const auto results = server.takePictures(
        {request(2, true), request(9), request(1), request(3, false, WindowRect{110, 60, 10, 10})}, 1s);
    ASSERT_EQ(results.size(), 4u);
    // The calls went out in the order asked.
    ASSERT_EQ(server.requests.size(), 4u);
    EXPECT_EQ(std::make_pair(server.requests[0].number, server.requests[1].number), std::make_pair(2u, 9u));

    const WindowPicture& shadowed = *results[0].picture;
    EXPECT_EQ(shadowed.scale, 2);
    EXPECT_EQ(shadowed.frame, (CanvasRect{24, 20, 80, 60}));
    EXPECT_EQ(shadowed.placement, (WindowRect{88, 40, 64, 60}));
    EXPECT_EQ(results[1].failure.kind, FailureKind::WindowGone);
    EXPECT_FALSE(results[1].picture);
    EXPECT_EQ(results[2].picture->frame, (CanvasRect{0, 0, 80, 60}));
    EXPECT_EQ(results[2].picture->placement, (WindowRect{100, 50, 40, 30}));
    EXPECT_EQ(results[3].picture->placement, (WindowRect{110, 60, 10, 10}));
}

// Cancelled through the batch, or through the stop flag of the blocking call,
// while its first picture is being taken.
TEST(PictureBatch, CancellingTakesEffectBeforeTheNextRequest) {
    for (const bool throughTheFlag : {false, true}) {
        SCOPED_TRACE(throughTheFlag);
        test::FakeWindowServer server;
        for (uint32_t n = 1; n <= 3; ++n) server.pictures[n] = Image(4, 4);
        std::unique_ptr<PictureBatch> batch;
        std::atomic<bool> stop{false};
        server.beforePicture = [&](uint32_t) { throughTheFlag ? void(stop = true) : batch->cancel(); };
        std::vector<PictureResult> results;
        if (throughTheFlag) {
            results = server.takePictures({request(1), request(2), request(3)}, 1s, &stop);
        } else {
            batch = server.requestPictures({request(1), request(2), request(3)}, 1s);
            ASSERT_TRUE(batch->wait(1s));
            results = batch->results();
        }
        EXPECT_TRUE(results[0].picture);
        EXPECT_EQ(results[1].failure.kind, FailureKind::Cancelled);
        EXPECT_EQ(results[2].failure.kind, FailureKind::Cancelled);
        EXPECT_EQ(server.requests.size(), 1u);
    }
}

TEST(PictureBatch, AServerLostMidwayEndsTheRestAndCallersHearOfIt) {
    test::FakeWindowServer server;
    for (uint32_t n = 1; n <= 3; ++n) server.pictures[n] = Image(4, 4);
    server.beforePicture = [](uint32_t n) {
        if (n == 2) throw PlatformError("X display connection lost");
    };
    std::vector<size_t> reported;
    auto batch = server.requestPictures({request(1), request(2), request(3)}, 1s,
                                        [&](size_t i, const PictureResult&) { reported.push_back(i); });
    ASSERT_TRUE(batch->wait(1s));
    const auto results = batch->results();
    EXPECT_TRUE(results[0].picture);
    EXPECT_EQ(results[1].failure.kind, FailureKind::CompositorLost);
    EXPECT_EQ(results[2].failure.line(), "X display connection lost");
    EXPECT_EQ(reported, (std::vector<size_t>{0, 1, 2}));
    EXPECT_THROW(throwIfServerLost(results), PlatformError);
    EXPECT_NO_THROW(throwIfServerLost({results[0]}));
}

TEST(WindowShot, APictureAtAnotherScaleIsBroughtToTheNodesWithItsMargins) {
    PVWindowElement node;
    node.scaling = 1;
    node.dimensions = {100, 50, 40, 30};
    // A compositor's picture at scale 2 with a shadow: frame 80x60 at (20, 10).
    WindowPicture p;
    p.image = Image::filled(120, 90, 0, 255, 0, 255);
    p.scale = 2;
    p.frame = {20, 10, 80, 60};
    const auto shot = shotOf(node, p, true);
    ASSERT_TRUE(shot);
    EXPECT_EQ(std::make_tuple(shot->picture->width, shot->picture->height, shot->shadowX, shot->shadowY),
              std::make_tuple(60, 45, 10.0f, 5.0f));
    // Without the shadow the margins stay unset; a picture of a pixel is none.
    EXPECT_EQ(shotOf(node, p, false)->shadowX, 0);
    p.image = Image(2, 1);
    p.scale = 1;
    EXPECT_FALSE(shotOf(node, p, false));
}

}  // namespace
}  // namespace pv
