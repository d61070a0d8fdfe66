#include "app/shell/tray.h"

#include "app/app_delegate.h"

namespace pv {

Tray::Tray(AppDelegate& delegate, QObject* parent) : QObject(parent) {
    icon_.setIcon(QIcon(":/plenavue.svg"));
    icon_.setToolTip(toolTipText());
    menu_.addAction("Capture all", &delegate, [&delegate] { delegate.capture(); });
    menu_.addAction("Capture selected", &delegate, [&delegate] { delegate.captureSelected(); });
    menu_.addSeparator();
    menu_.addAction("Preferences...", &delegate, [&delegate] { delegate.preferences(); });
    menu_.addAction("About", &delegate, [&delegate] { delegate.about(); });
    menu_.addSeparator();
    menu_.addAction("Quit", this, [this] { emit quitRequested(); });
    icon_.setContextMenu(&menu_);
    // A left click opens the same menu, as people expect of a tray utility.
    connect(&icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) menu_.popup(QCursor::pos());
    });
}

QString Tray::toolTipText() {
    return "Veltrano Plenavue\n\nCapture all:\t\tShift+Super+5\nCapture selected:\tShift+Super+6";
}

void Tray::show() { icon_.show(); }

void Tray::notify(const QString& title, const QString& text, bool warning) {
    icon_.showMessage(title, text, warning ? QSystemTrayIcon::Warning : QSystemTrayIcon::Information, 6000);
}

}  // namespace pv
