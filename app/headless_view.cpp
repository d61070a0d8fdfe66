#include "app/headless_view.h"

#include <iostream>

namespace pv {

void HeadlessView::setStatus(const std::string& text) {
    statusLog.push_back(text);
    if (verbose) std::cerr << text << '\n';
}

std::vector<PVWindowElement::Ptr> HeadlessView::selectedNodes() const { return selection; }

void HeadlessView::selectRoot() {
    selection.clear();
    if (auto root = rootOf_()) selection.push_back(root);
}

std::optional<std::string> HeadlessView::askSaveFile(const std::string&, int) { return saveFileAnswer; }

void HeadlessView::showAlert(const std::string& message) { std::cerr << message << '\n'; }

void HeadlessView::documentFinished(const std::string& path, bool ok, const std::string& reason) {
    outcome = Outcome{path, ok, reason};
    if (onFinished) onFinished();
}

}  // namespace pv
