// plenavue: the tray application, and its command-line front ends.
#include <CLI/CLI.hpp>

#include <new>

#include "app/shell/tray_app.h"
#include "cli/command_support.h"
#include "cli/commands.h"
#include "platform/build_info.h"

int main(int argc, char** argv) {
    CLI::App app{"Plenavue: a layered picture of the whole desktop", "plenavue"};
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", std::string("plenavue ") + pv::kVersion);
    app.footer(
        "Without a subcommand, Plenavue starts in the system tray:\n"
        "Shift+Super+5 captures every window, Shift+Super+6 opens the window chooser.");

    pv::cli::ListOptions listOptions;
    auto* list = app.add_subcommand("list", "Print the inventory of screens, applications and windows");
    list->add_option("--desktop", listOptions.desktop, "Fixture desktop (JSON) instead of the X display");
    list->add_flag("--json", listOptions.json, "Print the tree as JSON");
    list->add_flag("--ignore-system", listOptions.ignoreSystem, "Leave out system windows");

    pv::cli::CaptureOptions captureOptions;
    auto* capture = app.add_subcommand("capture", "Capture every window into one layered PSD or a PNG");
    capture->add_option("--desktop", captureOptions.desktop, "Fixture desktop (JSON) instead of the X display");
    capture->add_option("--format", captureOptions.format, "grouped, ungrouped or png (default: stored setting)");
    auto* output = capture->add_option("--output", captureOptions.outputFolder, "Folder to write a dated file into");
    capture->add_option("--file", captureOptions.file, "File to write")->excludes(output);
    auto* shadow = capture->add_flag_callback(
        "--shadow", [&] { captureOptions.shadow = true; }, "Capture windows with their drop shadow");
    capture
        ->add_flag_callback(
            "--no-shadow", [&] { captureOptions.shadow = false; }, "Capture windows without a shadow")
        ->excludes(shadow);
    auto* ignore = capture->add_flag_callback(
        "--ignore-system", [&] { captureOptions.ignoreSystem = true; },
        "Leave out system windows (docks, desktop, notifications)");
    capture
        ->add_flag_callback(
            "--keep-system", [&] { captureOptions.ignoreSystem = false; }, "Keep system windows")
        ->excludes(ignore);
    capture->add_flag("--quiet,-q", captureOptions.quiet, "Print no status lines");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version end well; every other usage error is exit code 2.
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }

    // Whatever escapes a command ends here as one line and exit code 1, never an abort.
    const std::string command = list->parsed() ? "plenavue list" : capture->parsed() ? "plenavue capture" : "plenavue";
    try {
        if (list->parsed()) return pv::cli::runList(listOptions);
        if (capture->parsed()) return pv::cli::runCapture(captureOptions);
        // No subcommand: the desktop application.
        return pv::runTrayApp(argc, argv);
    } catch (const std::bad_alloc&) {
        pv::cli::printFailure(command, "out of memory");
    } catch (const std::exception& e) {
        pv::cli::printFailure(command, e.what());
    }
    return 1;
}
