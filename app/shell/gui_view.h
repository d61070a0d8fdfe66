#pragma once
// The controller's view in the desktop application: the main window's outline,
// preview, buttons and status line, the save dialog and alerts.

#include <QString>

#include <functional>
#include <optional>
#include <string>

#include "app/app_view.h"

class QWidget;

namespace pv {

class AppDelegate;
class MainWindow;

class GuiView : public AppView {
public:
    explicit GuiView(MainWindow& window);

    MainWindow& mainWindow() const { return window_; }

    // Wires the main window to the controller: Save, Refresh and the person's
    // outline selections to the controller's commands, and the save dialog's
    // folder to the controller's settings. (The fit and zoom buttons act on
    // the preview by themselves.)
    void connectToController(AppDelegate& delegate);

    // Filled by the application shell: plays the capture sound (must not
    // block), and hears of every finished document (tray notifications).
    std::function<void()> onPlaySound;
    std::function<void(const std::string& path, bool ok, const std::string& reason)> onDocumentFinished;
    // Called when the main window has been raised (its native window may be new).
    std::function<void()> onRaised;
    // The output folder the save dialog starts in; none: the home folder.
    std::function<std::optional<std::string>()> outputFolder;
    // The save dialog itself: (parent, caption, preset path, filter) -> the
    // chosen path or an empty text on cancel. QFileDialog by default.
    std::function<QString(QWidget*, const QString&, const QString&, const QString&)> saveDialog;

    void setStatus(const std::string& text) override;
    void setBusyControls(bool busy) override;
    bool isMainWindowVisible() const override;
    void setTree(const PVWindowElement::Ptr& root) override;
    void reloadOutline(const PVWindowElement::Ptr& root) override;
    void setPreviewImage(const ImagePtr& image) override;
    void fitAll() override;
    void raiseMainWindow() override;
    std::vector<PVWindowElement::Ptr> selectedNodes() const override;
    void selectRoot() override;
    std::optional<std::string> askSaveFile(const std::string& suggestedName, OutputFormat outputFormat) override;
    void showAlert(const std::string& message) override;
    void playCaptureSound() override;
    void documentFinished(const std::string& path, bool ok, const std::string& reason) override;
    void log(const std::string& line) override;

private:
    MainWindow& window_;
};

}  // namespace pv
