// plenavue capture: everything on the desktop into one file, as the capture-all
// hot key does, without the tray application.
#include <QCoreApplication>
#include <QSettings>
#include <QTimer>

#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iostream>

#include "app/app_delegate.h"
#include "app/guarded_application.h"
#include "app/window_server_choice.h"
#include "cli/command_support.h"
#include "cli/commands.h"
#include "cli/headless_view.h"
#include "document/safe_file.h"
#include "platform/text_line.h"

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

constexpr const char* kCommand = "plenavue capture";

// The path made absolute against the working folder; as given when that fails.
std::string absolutePath(const std::string& path) {
    std::error_code error;
    auto absolute = fs::absolute(path, error);
    return error ? path : absolute.string();
}

// A signal ends the capture at once: the temporary file goes, one line says
// why, and the exit code is 1. Only async-signal-safe calls from here on.
void stopOnSignal(int number) {
    removeOpenTemporaries();
    const char* line = number == SIGINT   ? "plenavue capture: stopped by SIGINT before the capture was complete\n"
                       : number == SIGHUP ? "plenavue capture: stopped by SIGHUP before the capture was complete\n"
                                          : "plenavue capture: stopped by SIGTERM before the capture was complete\n";
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line, std::strlen(line));
    ::_exit(1);
}

void stopOnSignals() {
    struct sigaction action {};
    action.sa_handler = stopOnSignal;
    sigemptyset(&action.sa_mask);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, number);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

// Stored settings, with what the command line gives taking precedence.
Settings settingsFor(const CaptureOptions& options) {
    if (options.file && options.file->empty()) throw UsageError{"--file needs a file name"};
    if (options.outputFolder && options.outputFolder->empty()) throw UsageError{"--output needs a folder"};
    std::vector<std::string> problems;
    Settings settings = loadSettings(*openSettingsStore(), &problems);
    for (const auto& problem : problems) printFailure(kCommand, problem);
    settings.outputFormat = chosenFormat(options, settings.outputFormat);
    if (options.shadow) settings.shadow = *options.shadow;
    if (options.ignoreSystem) settings.ignoreSystemWindows = *options.ignoreSystem;
    if (options.outputFolder) settings.outputFolder = absolutePath(*options.outputFolder);
    if (options.file) settings.outputFolder.reset();  // the file stands in for the save dialog's answer
    if (!settings.outputFolder && !options.file)
        throw UsageError{"no output folder is set; give --output DIR or --file PATH"};
    return settings;
}

// Why the folder cannot take the capture; empty when it can.
std::string folderProblem(const std::string& folder) {
    std::error_code ec;
    const auto status = fs::status(folder, ec);
    if (ec && ec != std::errc::no_such_file_or_directory) return "output folder " + folder + ": " + ec.message();
    if (!fs::exists(status)) return "output folder " + folder + " does not exist";
    if (!fs::is_directory(status)) return "output folder " + folder + " is not a folder";
    return {};
}

}  // namespace

int runCapture(const CaptureOptions& options) {
    stopOnSignals();
    int argc = 1;
    char name[] = "plenavue";
    char* argv[] = {name, nullptr};
    const auto application = makeCommandLineApplication(argc, argv, options.desktop, kCommand);
    QCoreApplication* app = application.app.get();

    Settings settings;
    try {
        settings = settingsFor(options);
    } catch (const UsageError& e) {
        printFailure(kCommand, e.message);
        return 2;
    }
    if (settings.outputFolder) {
        if (const auto problem = folderProblem(*settings.outputFolder); !problem.empty()) {
            printFailure(kCommand, problem);
            return 1;
        }
    }
    const std::optional<std::string> file = options.file ? std::optional(absolutePath(*options.file)) : std::nullopt;
    // What killed captures left behind in the target folder goes first.
    sweepStaleTemporaries(file ? fs::path(*file).parent_path().string() : *settings.outputFolder);

    int exitCode = 0;
    auto server = openServerFor(kCommand, options.desktop, &exitCode);
    if (!server) return exitCode;

    std::unique_ptr<AppDelegate> delegate;
    HeadlessView view([&delegate] { return delegate ? delegate->root() : nullptr; });
    view.verbose = !options.quiet;
    view.saveFileAnswer = file;
    delegate = std::make_unique<AppDelegate>(*server, view);
    delegate->settings = settings;
    view.onFinished = [app] { app->quit(); };

    QTimer::singleShot(0, [&] {
        delegate->capture();
        if (!view.outcome && !delegate->busy()) {
            view.outcome = HeadlessView::Outcome{"", false, "nothing was captured"};
            app->quit();
        }
    });
    app->exec();
    delegate.reset();

    if (application.loop->failure()) return 1;  // the event loop said what stopped it
    if (!view.outcome || !view.outcome->ok) {
        printFailure(kCommand, view.outcome ? view.outcome->reason : "nothing was captured");
        return 1;
    }
    std::cout << oneLine(view.outcome->path) << std::endl;
    return 0;
}

}  // namespace pv::cli
