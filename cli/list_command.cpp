// plenavue list: the inventory as the outline shows it, or as JSON.
#include <iostream>

#include "cli/command_support.h"
#include "cli/commands.h"
#include "inventory/inventory.h"
#include "inventory/inventory_format.h"

namespace pv::cli {

int runList(const ListOptions& options) {
    int exitCode = 0;
    auto server = openServerFor("plenavue list", options.desktop, &exitCode);
    if (!server) return exitCode;
    try {
        Inventory inventory(*server);
        inventory.ignoreSystemWindows = options.ignoreSystem;
        inventory.refreshScreenList();
        inventory.refreshWindows();
        std::cout << (options.json ? inventoryToJson(*inventory.root) : inventoryToText(*inventory.root));
    } catch (const PlatformError& e) {
        printFailure("plenavue list", e.what());
        return 1;
    }
    return 0;
}

}  // namespace pv::cli
