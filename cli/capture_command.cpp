// plenavue capture: everything on the desktop into one file, as the capture-all
// hot key does, without the tray application.
#include <QCoreApplication>
#include <QSettings>
#include <QTimer>

#include <filesystem>
#include <iostream>

#include "app/app_delegate.h"
#include "app/window_server_choice.h"
#include "cli/commands.h"
#include "cli/headless_view.h"

namespace pv::cli {

namespace {

namespace fs = std::filesystem;

// A usage problem: one line on standard error, exit code 2.
struct UsageError {
    std::string message;
};

// The format the options ask for: --format, else the extension of --file,
// else the stored one. A --format that contradicts the file's extension, or
// a file extension that is neither .psd nor .png, is refused.
OutputFormat chosenFormat(const CaptureOptions& options, OutputFormat stored) {
    std::optional<OutputFormat> given;
    if (options.format) {
        given = outputFormatFromName(*options.format);
        if (!given) throw UsageError{"unknown format '" + *options.format + "' (use grouped, ungrouped or png)"};
    }
    if (!options.file) return given.value_or(stored);
    const bool hasExtension = fs::path(*options.file).has_extension();
    const auto kind = fileKindOfName(*options.file);
    if (hasExtension && !kind)
        throw UsageError{"cannot tell what to write from the name " + *options.file +
                         ": use a name ending in .psd or .png"};
    if (!kind) return given.value_or(stored);
    if (given && !formatMatches(*given, *kind))
        throw UsageError{"--format " + *options.format + " does not write the kind of file " + *options.file +
                         " names"};
    if (given) return *given;
    if (formatMatches(stored, *kind)) return stored;
    return *kind == FileKind::FlatPicture ? OutputFormat::PNG : kDefaultOutputFormat;
}

// Stored settings, with what the command line gives taking precedence.
Settings settingsFor(const CaptureOptions& options) {
    if (options.file && options.file->empty()) throw UsageError{"--file needs a file name"};
    if (options.outputFolder && options.outputFolder->empty()) throw UsageError{"--output needs a folder"};
    std::vector<std::string> problems;
    Settings settings = loadSettings(*openSettingsStore(), &problems);
    for (const auto& problem : problems) std::cerr << "plenavue capture: " << problem << '\n';
    settings.outputFormat = chosenFormat(options, settings.outputFormat);
    if (options.shadow) settings.shadow = *options.shadow;
    if (options.ignoreSystem) settings.ignoreSystemWindows = *options.ignoreSystem;
    if (options.outputFolder) settings.outputFolder = fs::absolute(*options.outputFolder).string();
    if (options.file) settings.outputFolder.reset();  // the file stands in for the save dialog's answer
    if (!settings.outputFolder && !options.file)
        throw UsageError{"no output folder is set; give --output DIR or --file PATH"};
    return settings;
}

// Why the folder cannot take the capture; empty when it can.
std::string folderProblem(const std::string& folder) {
    std::error_code ec;
    const auto status = fs::status(folder, ec);
    if (!fs::exists(status)) return "output folder " + folder + " does not exist";
    if (!fs::is_directory(status)) return "output folder " + folder + " is not a folder";
    return {};
}

}  // namespace

int runCapture(const CaptureOptions& options) {
    int argc = 1;
    char name[] = "plenavue";
    char* argv[] = {name, nullptr};
    const auto app = makeCommandLineApplication(argc, argv, options.desktop, "plenavue capture");

    Settings settings;
    try {
        settings = settingsFor(options);
    } catch (const UsageError& e) {
        std::cerr << "plenavue capture: " << e.message << '\n';
        return 2;
    }
    if (settings.outputFolder) {
        if (const auto problem = folderProblem(*settings.outputFolder); !problem.empty()) {
            std::cerr << "plenavue capture: " << problem << '\n';
            return 1;
        }
    }

    std::string error;
    auto server = openWindowServer(options.desktop, &error);
    if (!server) {
        std::cerr << "plenavue capture: " << error << '\n';
        return 2;
    }

    std::unique_ptr<AppDelegate> delegate;
    HeadlessView view([&delegate] { return delegate ? delegate->root() : nullptr; });
    view.verbose = !options.quiet;
    if (options.file) view.saveFileAnswer = fs::absolute(*options.file).string();
    delegate = std::make_unique<AppDelegate>(*server, view);
    delegate->settings = settings;
    view.onFinished = [&app] { app->quit(); };

    QTimer::singleShot(0, [&] {
        delegate->capture();
        if (!view.outcome && !delegate->busy()) {
            view.outcome = HeadlessView::Outcome{"", false, "nothing was captured"};
            app->quit();
        }
    });
    app->exec();
    delegate.reset();

    if (!view.outcome || !view.outcome->ok) {
        std::cerr << "plenavue capture: " << (view.outcome ? view.outcome->reason : "nothing was captured") << '\n';
        return 1;
    }
    std::cout << view.outcome->path << std::endl;
    return 0;
}

}  // namespace pv::cli
