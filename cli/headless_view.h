#pragma once
// The controller's view on the command line: status texts on standard error,
// the whole tree as the only selection, and no questions asked.

#include <functional>
#include <optional>
#include <string>

#include "app/app_view.h"

namespace pv {

class HeadlessView : public AppView {
public:
    // rootOf gives the current tree, so that selectRoot can select it.
    explicit HeadlessView(std::function<PVWindowElement::Ptr()> rootOf) : rootOf_(std::move(rootOf)) {}

    // The file a save writes to, as if chosen in a save dialog; none: cancel.
    std::optional<std::string> saveFileAnswer;
    // Status lines are printed only when verbose, each as one line; failures
    // are left to the run's outcome.
    bool verbose = true;

    void setStatus(const std::string& text) override;
    void setFailureStatus(const std::string& text) override;
    void setBusyControls(bool) override {}
    bool isMainWindowVisible() const override { return false; }
    void setTree(const PVWindowElement::Ptr&) override {}
    void reloadOutline(const PVWindowElement::Ptr&) override {}
    void setPreviewImage(const ImagePtr&) override {}
    void fitAll() override {}
    void raiseMainWindow() override {}
    std::vector<PVWindowElement::Ptr> selectedNodes() const override;
    void selectRoot() override;
    std::optional<std::string> askSaveFile(const std::string& suggestedName, OutputFormat outputFormat) override;
    void showAlert(const std::string& message) override;
    void playCaptureSound() override {}
    void documentFinished(const std::string& path, bool ok, const std::string& reason) override;
    void log(const std::string& line) override;

    // What the last finished run reported.
    struct Outcome {
        std::string path;
        bool ok = false;
        std::string reason;
    };
    std::optional<Outcome> outcome;
    std::function<void()> onFinished;
    std::vector<std::string> statusLog;  // every status text, in order
    std::vector<std::string> alerts;
    std::vector<std::string> logLines;

    // Rows selected explicitly (tests); empty: whatever selectRoot chose.
    std::vector<PVWindowElement::Ptr> selection;

private:
    std::function<PVWindowElement::Ptr()> rootOf_;
};

}  // namespace pv
