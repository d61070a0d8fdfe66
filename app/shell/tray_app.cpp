#include "app/shell/tray_app.h"

#include <QApplication>
#include <QGuiApplication>
#include <QSoundEffect>
#include <QTimer>
#include <QUrl>
#include <QWindow>

#include <iostream>

#include "app/app_delegate.h"
#include "app/guarded_application.h"
#include "app/shell/about_dialog.h"
#include "app/shell/gnome_shell_keys.h"
#include "app/shell/gui_view.h"
#include "app/shell/hot_key_filter.h"
#include "app/shell/kde_global_shortcuts.h"
#include "app/shell/main_window.h"
#include "app/shell/preferences_dialog.h"
#include "app/shell/qt_shell.h"
#include "app/shell/quit_on_signal.h"
#include "app/shell/screen_change_watcher.h"
#include "app/shell/tray.h"
#include "app/window_server_choice.h"
#include "platform/build_info.h"
#include "platform/x11/no_capture_mark.h"

namespace pv {

namespace {

// Our own windows never appear in a capture, wherever they stand: the main
// window, the dialogs and the tray's message balloons alike. Called again
// whenever a new native window may have appeared.
void keepOutOfCaptures() {
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11) return;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (!w->isWindow()) continue;
        w->winId();  // makes the native window if there is none yet
        // The window handle knows the current native window, also after a
        // change of flags has replaced it.
        if (QWindow* handle = w->windowHandle()) {
            markWindowNoCapture(x11->connection(), static_cast<uint32_t>(handle->winId()));
        }
    }
}

// The application on the window server, until it quits.
int runShell(QApplication& app, WindowServer& windowServer) {
    WindowServer* server = &windowServer;
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setApplicationName(kApplicationName);
    QApplication::setOrganizationName(kOrganisationName);
    QApplication::setDesktopFileName("plenavue");

    MainWindow window;
    GuiView view(window);
    AppDelegate delegate(*server, view);
    QApplication::setWindowIcon(QIcon(":/plenavue.svg"));
    QtShell shell(delegate);
    delegate.shell = &shell;
    view.connectToController(delegate);
    keepOutOfCaptures();
    view.onRaised = [] { keepOutOfCaptures(); };

    // The capture sound plays on its own; without an audio device it is silent.
    QSoundEffect sound;
    sound.setSource(QUrl("qrc:/d800.wav"));
    view.onPlaySound = [&sound] { sound.play(); };

    Tray tray(delegate);
    view.onDocumentFinished = [&](const std::string& path, bool ok, const std::string& reason) {
        if (window.isVisible()) return;  // the status line says it already
        if (ok) {
            tray.notify("Capture saved", QString::fromStdString(path), false);
        } else {
            tray.notify("Capture failed", QString::fromStdString(reason), true);
        }
        keepOutOfCaptures();
    };

    // X11 key grabs, KDE's global shortcut service in a Plasma session, or
    // the keys our extension grabs in GNOME Shell.
    std::unique_ptr<HotKeyFilter> hotKeys;
    std::unique_ptr<KdeGlobalShortcuts> kdeKeys;
    std::unique_ptr<GnomeShellKeys> gnomeKeys;  // through our GNOME Shell extension
    shell.hotKeyInstaller = [&] {
        std::vector<std::string> held;
        if (server->backendName() == "kwin") kdeKeys = KdeGlobalShortcuts::install(delegate, &held);
        if (server->backendName() == "gnome") gnomeKeys = GnomeShellKeys::install(delegate, &held);
        if (!kdeKeys && !gnomeKeys) hotKeys = HotKeyFilter::install(delegate, &held);
        if (!kdeKeys && !hotKeys && !gnomeKeys) kdeKeys = KdeGlobalShortcuts::install(delegate, &held);
        if (!hotKeys && !kdeKeys && !gnomeKeys) {
            std::cerr << "plenavue: hot keys need an X11 session, KDE Plasma or our GNOME Shell extension; use the "
                         "tray menu instead\n";
            return;
        }
        for (const auto& combination : held) {
            const std::string text = combination + " is already used by another program; that hot key is off.";
            std::cerr << "plenavue: " << text << '\n';
            tray.notify("Hot key unavailable", QString::fromStdString(text), true);
            keepOutOfCaptures();
        }
    };

    ScreenChangeWatcher screens;
    screens.watch(app);
    QObject::connect(&screens, &ScreenChangeWatcher::settled, &delegate,
                     [&delegate] { delegate.didChangeScreenParameters(); });

    // Quit, Ctrl+Q, a signal and the end of the session all end the event
    // loop; the settings are stored on the way out.
    QuitOnSignal onSignal;
    QObject::connect(&onSignal, &QuitOnSignal::quitRequested, &app, &QApplication::quit);
    QObject::connect(&tray, &Tray::quitRequested, &app, &QApplication::quit);
    QObject::connect(&window, &MainWindow::quitRequested, &app, &QApplication::quit);
    QObject::connect(&app, &QGuiApplication::commitDataRequest, &app, [](QSessionManager&) { QApplication::quit(); });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });

    delegate.awakeFromNib();
    tray.show();
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        std::cerr << "plenavue: this desktop has no system tray; showing the main window instead\n";
        window.show();
    }
    // Said once at start (no permission, no backend for this session); each
    // capture that is refused says it again.
    if (const Failure refused = server->checkAccess()) {
        std::cerr << "plenavue: " << refused.line() << '\n';
        tray.notify("Plenavue cannot capture", QString::fromStdString(refused.line()), true);
    }
    QTimer::singleShot(0, &delegate, [&delegate] { delegate.applicationDidFinishLaunching(); });
    const int code = app.exec();
    hotKeys.reset();
    kdeKeys.reset();
    gnomeKeys.reset();
    return code;
}

}  // namespace

int runTrayApp(int argc, char** argv) {
    // An X display is tried first: Qt would end the program with an abort
    // when it finds none. A compositor's backend needs the application first.
    std::string error;
    std::unique_ptr<WindowServer> server;
    if (!opensAfterApplication("")) {
        server = openWindowServer("", &error);
        if (!server) {
            std::cerr << "plenavue: " << error << '\n';
            return 1;
        }
    }
    GuardedApplication<QApplication> app(argc, argv, "plenavue");
    if (!server) server = openWindowServer("", &error);
    if (!server) {
        std::cerr << "plenavue: " << error << '\n';
        return 1;
    }
    const int code = runShell(app, *server);
    server.reset();  // a compositor backend's D-Bus thread ends while the application still exists
    return code;
}

}  // namespace pv
