// plenavue: the tray application, and its command-line front ends.
#include <CLI/CLI.hpp>

#include "cli/commands.h"

int main(int argc, char** argv) {
    CLI::App app{"Plenavue: a layered picture of the whole desktop", "plenavue"};
    app.require_subcommand(0, 1);

    pv::cli::ListOptions listOptions;
    auto* list = app.add_subcommand("list", "Print the inventory of screens, applications and windows");
    list->add_option("--desktop", listOptions.desktop, "Fixture desktop (JSON) instead of the X display");
    list->add_flag("--json", listOptions.json, "Print the tree as JSON");
    list->add_flag("--ignore-system", listOptions.ignoreSystem, "Leave out system windows");

    CLI11_PARSE(app, argc, argv);

    if (list->parsed()) return pv::cli::runList(listOptions);
    return pv::cli::runList(listOptions);
}
