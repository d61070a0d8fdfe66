#pragma once
// Delivers the system-wide hot keys from Qt's X11 event stream to the
// controller, while any program has the focus.

#include <QAbstractNativeEventFilter>

#include <memory>
#include <string>
#include <vector>

namespace pv {

namespace x11 {
class HotKeys;
}
class AppDelegate;

class HotKeyFilter : public QAbstractNativeEventFilter {
public:
    // Grabs the keys on Qt's own X connection; nullptr when Qt does not run on X11.
    static std::unique_ptr<HotKeyFilter> install(AppDelegate& delegate, std::vector<std::string>* held);
    ~HotKeyFilter() override;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    HotKeyFilter(AppDelegate& delegate, std::unique_ptr<x11::HotKeys> keys);
    AppDelegate& delegate_;
    std::unique_ptr<x11::HotKeys> keys_;
};

}  // namespace pv
