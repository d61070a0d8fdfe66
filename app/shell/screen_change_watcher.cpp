#include "app/shell/screen_change_watcher.h"

#include <QGuiApplication>
#include <QScreen>

namespace pv {

ScreenChangeWatcher::ScreenChangeWatcher(int settleMilliseconds, QObject* parent) : QObject(parent) {
    timer_.setSingleShot(true);
    timer_.setInterval(settleMilliseconds);
    connect(&timer_, &QTimer::timeout, this, &ScreenChangeWatcher::settled);
}

void ScreenChangeWatcher::noteChange() { timer_.start(); }  // restarts: the burst goes on

void ScreenChangeWatcher::watch(QGuiApplication& app) {
    for (QScreen* screen : QGuiApplication::screens()) watchScreen(screen);
    connect(&app, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
        watchScreen(screen);
        noteChange();
    });
    connect(&app, &QGuiApplication::screenRemoved, this, &ScreenChangeWatcher::noteChange);
    connect(&app, &QGuiApplication::primaryScreenChanged, this, &ScreenChangeWatcher::noteChange);
}

void ScreenChangeWatcher::watchScreen(QScreen* screen) {
    connect(screen, &QScreen::geometryChanged, this, &ScreenChangeWatcher::noteChange);
}

}  // namespace pv
