// The main window's controls wired to the controller.
#include "app/app_delegate.h"
#include "app/shell/gui_view.h"
#include "app/shell/main_window.h"

namespace pv {

void GuiView::connectToController(AppDelegate& delegate) {
    MainWindow& w = window_;
    QObject::connect(&w, &MainWindow::saveRequested, &delegate, [&delegate] { delegate.save(); });
    QObject::connect(&w, &MainWindow::refreshRequested, &delegate, [&delegate] { delegate.refresh(); });
    QObject::connect(&w, &MainWindow::selectionChanged, &delegate, [&delegate] { delegate.select(); });

    outputFolder = [&delegate] { return delegate.settings.outputFolder; };
    setBusyControls(delegate.busy());
}

}  // namespace pv
