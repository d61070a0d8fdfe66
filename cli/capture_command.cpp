// plenavue capture: everything on the desktop into one file, as the capture-all
// hot key does, without the tray application.
#include <QCoreApplication>
#include <QDir>
#include <QSettings>
#include <QTimer>

#include <filesystem>
#include <iostream>

#include "app/app_delegate.h"
#include "app/headless_view.h"
#include "cli/commands.h"
#include "app/window_server_choice.h"

namespace pv::cli {

namespace {

std::optional<int32_t> parseFormat(const std::string& name) {
    if (name == "grouped") return GroupedPSD;
    if (name == "ungrouped") return UngroupedPSD;
    if (name == "png") return PNG;
    return std::nullopt;
}

// Stored settings, with what the command line gives taking precedence.
std::optional<Settings> settingsFor(const CaptureOptions& options) {
    QSettings store("Veltrano", "Plenavue");
    Settings settings = loadSettings(store);
    if (options.format) {
        const auto format = parseFormat(*options.format);
        if (!format) {
            std::cerr << "plenavue capture: unknown format '" << *options.format
                      << "' (use grouped, ungrouped or png)\n";
            return std::nullopt;
        }
        settings.outputFormat = *format;
    }
    if (options.shadow) settings.shadow = *options.shadow;
    if (options.ignoreSystem) settings.ignoreSystemWindows = *options.ignoreSystem;
    if (options.outputFolder) settings.outputFolder = std::filesystem::absolute(*options.outputFolder).string();
    if (options.file) settings.outputFolder.reset();  // the file stands in for the save dialog's answer
    return settings;
}

}  // namespace

int runCapture(const CaptureOptions& options) {
    int argc = 1;
    char name[] = "plenavue";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);

    const auto settings = settingsFor(options);
    if (!settings) return 2;
    if (!settings->outputFolder && !options.file) {
        std::cerr << "plenavue capture: no output folder is set; give --output DIR or --file PATH\n";
        return 2;
    }
    if (settings->outputFolder && !std::filesystem::is_directory(*settings->outputFolder)) {
        std::cerr << "plenavue capture: output folder " << *settings->outputFolder << " does not exist\n";
        return 1;
    }

    std::string error;
    auto server = openWindowServer(options.desktop, &error);
    if (!server) {
        std::cerr << "plenavue capture: " << error << '\n';
        return options.desktop.empty() ? 2 : 1;
    }

    std::unique_ptr<AppDelegate> delegate;
    HeadlessView view([&delegate] { return delegate ? delegate->root() : nullptr; });
    view.verbose = !options.quiet;
    if (options.file) view.saveFileAnswer = std::filesystem::absolute(*options.file).string();
    delegate = std::make_unique<AppDelegate>(*server, view);
    delegate->settings = *settings;
    view.onFinished = [&app] { app.quit(); };

    QTimer::singleShot(0, [&] {
        delegate->capture();
        if (!view.outcome && delegate->runsInFlight() == 0) {
            view.outcome = HeadlessView::Outcome{"", false, "nothing was captured"};
            app.quit();
        }
    });
    app.exec();
    delegate.reset();

    if (!view.outcome || !view.outcome->ok) {
        std::cerr << "plenavue capture: " << (view.outcome ? view.outcome->reason : "nothing was captured") << '\n';
        return 1;
    }
    std::cout << view.outcome->path << std::endl;
    return 0;
}

}  // namespace pv::cli
