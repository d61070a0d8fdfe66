// A burst of screen changes refreshes the inventory once, after the last.
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include "app/screen_change_watcher.h"
#include "tests/app/wait_for.h"

namespace pv {
namespace {

TEST(ScreenChangeWatcher, ABurstSettlesOnceAfterItsLastChange) {
    ScreenChangeWatcher watcher(50);
    int settled = 0;
    QObject::connect(&watcher, &ScreenChangeWatcher::settled, [&settled] { ++settled; });
    QElapsedTimer sinceLast;
    for (int i = 0; i < 5; ++i) {
        watcher.noteChange();
        sinceLast.start();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    ASSERT_TRUE(test::waitFor([&] { return settled > 0; }));
    EXPECT_GE(sinceLast.elapsed(), 50);  // not before the burst is over
    const auto afterBurst = settled;
    QElapsedTimer quiet;
    quiet.start();
    test::waitFor([&] { return quiet.elapsed() > 150; });
    EXPECT_EQ(afterBurst, 1);
    EXPECT_EQ(settled, 1);

    watcher.noteChange();  // a later, separate change settles again
    ASSERT_TRUE(test::waitFor([&] { return settled == 2; }));
}

}  // namespace
}  // namespace pv
