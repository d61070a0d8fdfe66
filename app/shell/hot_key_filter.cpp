#include "app/shell/hot_key_filter.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QMetaObject>

#include "app/app_delegate.h"
#include "platform/x11/hot_keys.h"

namespace pv {

std::unique_ptr<HotKeyFilter> HotKeyFilter::install(AppDelegate& delegate, std::vector<std::string>* held) {
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) return nullptr;
    xcb_connection_t* conn = x11->connection();
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(conn)).data->root;
    auto keys = std::make_unique<x11::HotKeys>(conn, root);
    *held = keys->grab();
    std::unique_ptr<HotKeyFilter> filter(new HotKeyFilter(delegate, std::move(keys)));
    QCoreApplication::instance()->installNativeEventFilter(filter.get());
    return filter;
}

HotKeyFilter::HotKeyFilter(AppDelegate& delegate, std::unique_ptr<x11::HotKeys> keys)
    : delegate_(delegate), keys_(std::move(keys)) {}

HotKeyFilter::~HotKeyFilter() {
    if (auto* app = QCoreApplication::instance()) app->removeNativeEventFilter(this);
}

bool HotKeyFilter::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
    if (eventType != "xcb_generic_event_t") return false;
    switch (keys_->match(static_cast<const xcb_generic_event_t*>(message))) {
    case x11::HotKey::CaptureAll:
        // Queued, so that the capture runs outside Qt's event dispatch.
        QMetaObject::invokeMethod(
            &delegate_, [this] { delegate_.capture(); }, Qt::QueuedConnection);
        return true;
    case x11::HotKey::CaptureSelected:
        QMetaObject::invokeMethod(
            &delegate_, [this] { delegate_.captureSelected(); }, Qt::QueuedConnection);
        return true;
    case x11::HotKey::None:
        break;
    }
    return false;
}

}  // namespace pv
