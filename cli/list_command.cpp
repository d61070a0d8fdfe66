// plenavue list: the inventory as the outline shows it, or as JSON.
#include <QCoreApplication>

#include <iostream>

#include "app/window_server_choice.h"
#include "cli/command_support.h"
#include "cli/commands.h"
#include "inventory/inventory.h"
#include "inventory/inventory_format.h"

namespace pv::cli {

int runList(const ListOptions& options) {
    int argc = 1;
    char name[] = "plenavue";
    char* argv[] = {name, nullptr};
    const auto application = makeCommandLineApplication(argc, argv, options.desktop, "plenavue list");
    int exitCode = 0;
    auto server = openServerFor("plenavue list", options.desktop, &exitCode);
    if (!server) return exitCode;
    // A Wayland session we cannot see into: a list of its X clients alone would mislead.
    if (const Failure refused = server->checkAccess(); refused.kind == FailureKind::Unsupported) {
        printFailure("plenavue list", refused.line());
        return 1;
    }
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
