#include "inventory/inventory.h"

#include <algorithm>
#include <memory>

#include "inventory/node_name.h"
#include "platform/unicode_text.h"

namespace pv {

namespace {

bool isSystemOwner(const std::string& name) { return name == "Dock" || name == "Finder" || name == "Window Server"; }

PVWindowElement::Ptr makeWindowNode(const WindowListEntry& entry, uint32_t listPosition) {
    auto node = std::make_shared<PVWindowElement>();
    node->listPosition = listPosition;
    node->kind = PVElementKindWindow;
    node->name = nodeName(entry.title.value_or("<no title>"), "<no title>");
    node->eidi = entry.number;
    node->windowLevel = entry.layer;
    node->dimensions = retagged<AnySpace>(entry.bounds);
    return node;
}

PVWindowElement::Ptr makeApplicationNode(const WindowListEntry& entry) {
    auto node = std::make_shared<PVWindowElement>();
    node->eidi = static_cast<uint32_t>(entry.ownerPID);
    node->kind = PVElementKindApplication;
    // The role is what the rules below compare; the name is what people read.
    node->role = nodeName(entry.ownerName.value_or("<no owner>"), "<no owner>");
    node->name = entry.applicationName ? nodeName(*entry.applicationName, node->role) : node->role;
    node->iconName = sanitizedText(entry.applicationIcon.value_or(""));
    return node;
}

}  // namespace

Inventory::Inventory(WindowServer& server) : root(std::make_shared<PVWindowElement>()), server_(server) {}

std::string displayProductName(WindowServer& server, uint32_t displayId) {
    auto name = server.productName(displayId);
    return name && !name->empty() ? sanitizedText(*name) : "Display";
}

void Inventory::refreshScreenList() {
    measures.maxBackingScale = 0;

    root = std::make_shared<PVWindowElement>();
    root->name = sanitizedText(server_.hostName());
    root->kind = PVElementKindRoot;

    const auto screens = server_.screenList();
    for (size_t i = 0; i < screens.size(); ++i) {
        const ScreenListEntry& entry = screens[i];
        auto node = std::make_shared<PVWindowElement>();
        node->eidi = entry.displayId;
        node->isMainDisplay = i == 0;
        if (i == 0) measures.mainScreenHeight = static_cast<float>(entry.frame.height);
        node->name = displayProductName(server_, entry.displayId);
        node->dimensions = retagged<AnySpace>(entry.frame);
        node->kind = PVElementKindScreen;
        node->scaling = static_cast<float>(entry.backingScaleFactor);
        root->addChild(node);
        measures.maxBackingScale = std::max(measures.maxBackingScale, node->scaling);
    }
}

bool Inventory::isUnwanted(const std::optional<std::string>& ownerName) const {
    if (!ignoreSystemWindows || !ownerName) return false;
    return std::find(unwantedProcesses.begin(), unwantedProcesses.end(), *ownerName) != unwantedProcesses.end();
}

void Inventory::refreshWindows() {
    const auto windows = server_.windowList();
    for (size_t i = 0; i < windows.size(); ++i) {
        const WindowListEntry& entry = windows[i];
        if (entry.sharingState == 0) continue;  // the owner forbids capture, or it is our own window
        if (isUnwanted(entry.ownerName)) continue;
        fileWindow(entry, static_cast<uint32_t>(i));
    }
    pruneEmptyApplications();
}

// Files the window under an application node of each screen its bounds
// touch: one node, reached from every screen it stands on.
void Inventory::fileWindow(const WindowListEntry& entry, uint32_t listPosition) {
    auto window = makeWindowNode(entry, listPosition);
    const auto screenCount = static_cast<uint32_t>(root->childCount());
    const auto displays = server_.displaysOfRect(window->windowBounds(), screenCount);
    if (!displays || displays->empty()) return;

    for (uint32_t displayId : *displays) {
        auto screen = root->findScreen(displayId);
        if (!screen) continue;  // a display the screen list did not report
        window->screens.push_back(screen);
        window->scaling = std::max(window->scaling, screen->scaling);

        auto app = screen->findParent(static_cast<uint32_t>(entry.ownerPID));
        if (!app) {
            app = makeApplicationNode(entry);
            screen->addChild(app);
        }
        window->setParent(app);

        if (!isSystemOwner(app->role)) {
            app->addChild(window);
            continue;
        }
        if (app->role == "Window Server" && window->name == "Desktop") continue;
        // This system window reaches 20 points past its reported bounds on either side
        // (once, however many screens it stands on).
        if (window->name == "Oculith" && window->screens.size() == 1)
            window->dimensions = window->dimensions.insetBy(-20, 0);
        window->isSystemWindow = app->role == "Finder" ? window->name == "<no title>" : true;
        app->addChild(window);
    }
}

void Inventory::pruneEmptyApplications() {
    for (const auto& screen : root->children()) {
        for (const auto& app : screen->children()) {
            if (app->childCount() == 0) screen->removeChild(app.get());
        }
    }
}

}  // namespace pv
