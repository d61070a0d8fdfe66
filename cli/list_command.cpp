// plenavue list: the inventory as the outline shows it, or as JSON.
#include <iostream>

#include "app/window_server_choice.h"
#include "cli/commands.h"
#include "inventory/inventory.h"
#include "inventory/inventory_format.h"

namespace pv::cli {

int runList(const ListOptions& options) {
    std::string error;
    auto server = openWindowServer(options.desktop, &error);
    if (!server) {
        std::cerr << "plenavue list: " << error << '\n';
        return 2;
    }
    try {
        Inventory inventory(*server);
        inventory.ignoreSystemWindows = options.ignoreSystem;
        inventory.refreshScreenList();
        inventory.refreshWindows();
        std::cout << (options.json ? inventoryToJson(*inventory.root) : inventoryToText(*inventory.root));
    } catch (const PlatformError& e) {
        std::cerr << "plenavue list: " << e.what() << '\n';
        return 1;
    }
    return 0;
}

}  // namespace pv::cli
