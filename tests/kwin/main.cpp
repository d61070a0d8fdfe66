// The KDE Plasma backend against KWin: each test starts its own headless
// session. This process stays outside every session (no display, the offscreen
// platform) and never touches the developer's bus or displays.
#include <QGuiApplication>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>

int main(int argc, char** argv) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "PLENAVUE_BACKEND"})
        unsetenv(name);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    char runtime[] = "/tmp/pv-kwin-tests-XXXXXX";
    if (mkdtemp(runtime)) setenv("XDG_RUNTIME_DIR", runtime, 1);
    int code = 0;
    {
        QGuiApplication app(argc, argv);
        ::testing::InitGoogleTest(&argc, argv);
        code = RUN_ALL_TESTS();
    }
    rmdir(runtime);
    return code;
}
