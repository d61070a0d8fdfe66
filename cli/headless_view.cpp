#include "cli/headless_view.h"

#include <iostream>

#include "platform/text_line.h"

namespace pv {

void HeadlessView::setStatus(const std::string& text) {
    statusLog.push_back(text);
    if (verbose) std::cerr << oneLine(text) << '\n';
}

void HeadlessView::setFailureStatus(const std::string& text) { statusLog.push_back(text); }

std::vector<PVWindowElement::Ptr> HeadlessView::selectedNodes() const { return selection; }

void HeadlessView::selectRoot() {
    selection.clear();
    if (auto root = rootOf_()) selection.push_back(root);
}

std::optional<std::string> HeadlessView::askSaveFile(const std::string&, OutputFormat) { return saveFileAnswer; }

// The command line reports a failure once, as the run's outcome; alerts and
// log lines about it are kept for tests.
void HeadlessView::showAlert(const std::string& message) { alerts.push_back(message); }

void HeadlessView::log(const std::string& line) { logLines.push_back(line); }

void HeadlessView::documentFinished(const std::string& path, bool ok, const std::string& reason) {
    outcome = Outcome{path, ok, reason};
    if (onFinished) onFinished();
}

}  // namespace pv
