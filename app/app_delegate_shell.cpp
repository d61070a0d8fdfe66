// AppDelegate's application shell: start-up, settings at quit, preferences,
// about and links. Each step hands the visible part to the ShellView.
#include <QSettings>

#include <memory>

#include "app/app_delegate.h"
#include "app/localized.h"
#include "app/shell_view.h"
#include "document/safe_file.h"

namespace pv {

namespace {

// The store to use: the one given, or the person's own.
template <typename F>
void withStore(QSettings* given, F&& use) {
    if (given) {
        use(*given);
        return;
    }
    use(*openSettingsStore());
}

}  // namespace

void AppDelegate::awakeFromNib() {
    std::vector<std::string> problems;
    withStore(settingsStore, [&](QSettings& store) { settings = loadSettings(store, &problems); });
    for (const auto& problem : problems) view_.log(problem);
    // What killed captures left behind in the output folder goes at start.
    if (settings.outputFolder) sweepStaleTemporaries(*settings.outputFolder);
    compositeImage.reset();
    installEventHandler();
}

void AppDelegate::applicationDidFinishLaunching() {
    refresh();
    if (settings.shownIntro) return;
    preferences();
    prefsPick();
    settings.shownIntro = true;
}

void AppDelegate::applicationWillTerminate() {
    withStore(settingsStore, [this](QSettings& store) {
        storeSettings(store, settings);
        store.sync();
    });
}

void AppDelegate::preferences() {
    if (shell) shell->showPreferences(settings);
}

void AppDelegate::prefsPick() {
    const auto folder = shell ? shell->chooseFolder(settings.outputFolder) : std::nullopt;
    if (folder) {
        settings.outputFolder = folder;
        shell->showFolder(folder);
        return;
    }
    if (!settings.outputFolder) {
        view_.showAlert(
            "No output folder selected.\n\nAfter taking a screenshot, you will be prompted for a file name.");
    }
}

void AppDelegate::prefsDone() {
    if (shell) shell->closePreferences();
}

void AppDelegate::about() {
    if (shell) shell->showAbout(localizedString("NSAbout"), localizedString("NSVersion"));
}

void AppDelegate::doneAbout() {
    if (shell) shell->closeAbout();
}

void AppDelegate::moreApps() {
    if (shell) shell->openUrl(localizedString("NSStoreURL"));
}

void AppDelegate::feedback() {
    if (shell) shell->openUrl(localizedString("NSFeedbackURL"));
}

void AppDelegate::webSite() {
    if (shell) shell->openUrl(localizedString("NSHomeURL"));
}

void AppDelegate::installEventHandler() {
    if (shell) shell->installHotKeys();
}

}  // namespace pv
