#pragma once
// What the controller shows and asks of the person using it. The desktop
// application implements it with the tray, main window and dialogs; the command
// line with status lines on standard error and no questions.

#include <optional>
#include <string>
#include <vector>

#include "document/output_format.h"
#include "inventory/window_element.h"
#include "platform/image.h"

namespace pv {

class AppView {
public:
    virtual ~AppView() = default;

    // The status line (`update`).
    virtual void setStatus(const std::string& text) = 0;
    // The status line after a failure. A view that reports the failure
    // elsewhere (the command line, once, as the run's outcome) need not show it.
    virtual void setFailureStatus(const std::string& text) { setStatus(text); }
    // Busy state: disable (true) or enable (false) the Save and Refresh buttons.
    virtual void setBusyControls(bool busy) = 0;

    // Main window: whether it is on screen; reload the outline from root and
    // expand every row; show a picture in the preview; fit the preview.
    virtual bool isMainWindowVisible() const = 0;
    // The outline takes up a new tree whether or not it is on screen, so that
    // its row 0 is always the current root; rows are not expanded.
    virtual void setTree(const PVWindowElement::Ptr& root) = 0;
    virtual void reloadOutline(const PVWindowElement::Ptr& root) = 0;
    virtual void setPreviewImage(const ImagePtr& image) = 0;
    virtual void fitAll() = 0;
    // Bring the main window forward above ordinary windows and give it the focus.
    virtual void raiseMainWindow() = 0;

    // The outline's selection: the nodes of the selected rows in ascending row
    // order; selectRoot selects exactly row 0.
    virtual std::vector<PVWindowElement::Ptr> selectedNodes() const = 0;
    virtual void selectRoot() = 0;

    // Ask for a file to write (`save`); nullopt when the person cancels.
    virtual std::optional<std::string> askSaveFile(const std::string& suggestedName, OutputFormat outputFormat) = 0;
    // A modal message with one "Ok" button.
    virtual void showAlert(const std::string& message) = 0;
    // The capture sound; must never block or fail.
    virtual void playCaptureSound() = 0;

    // A document run ended: written to path, or failed with a reason.
    virtual void documentFinished(const std::string& path, bool ok, const std::string& reason) = 0;
    // A line for the log (standard error), for what the person is told otherwise.
    virtual void log(const std::string& line) = 0;
};

}  // namespace pv
