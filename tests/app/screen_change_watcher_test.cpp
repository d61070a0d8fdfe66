// A burst of screen changes refreshes the inventory once, after the burst.
#include <QElapsedTimer>

#include <gtest/gtest.h>

#include "app/shell/screen_change_watcher.h"
#include "tests/app/wait_for.h"

namespace pv {
namespace {

TEST(ScreenChangeWatcher, ABurstSettlesOnceAfterItsLastChange) {
    ScreenChangeWatcher watcher(400);
    int settled = 0;
    QObject::connect(&watcher, &ScreenChangeWatcher::settled, [&settled] { ++settled; });
    for (int i = 0; i < 5; ++i) {
        watcher.noteChange();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    EXPECT_EQ(settled, 0);  // nothing while the burst goes on
    ASSERT_TRUE(test::waitFor([&] { return settled > 0; }));
    QElapsedTimer quiet;
    quiet.start();
    test::waitFor([&] { return quiet.elapsed() > 600; });
    EXPECT_EQ(settled, 1);

    watcher.noteChange();  // a later, separate change settles again
    ASSERT_TRUE(test::waitFor([&] { return settled == 2; }));
}

}  // namespace
}  // namespace pv
