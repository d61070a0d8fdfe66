#pragma once
// The shell of the desktop application: preferences and about dialogs, the
// folder chooser, the browser and the hot keys, as the controller asks.

#include <functional>
#include <memory>

#include "app/shell_view.h"

class QWidget;

namespace pv {

class AboutDialog;
class AppDelegate;
class PreferencesDialog;

class QtShell : public ShellView {
public:
    explicit QtShell(AppDelegate& delegate);
    ~QtShell() override;

    PreferencesDialog& preferencesDialog() const { return *preferences_; }
    AboutDialog& aboutDialog() const { return *about_; }

    // Replaceable for tests: the directory chooser and the browser.
    std::function<std::optional<std::string>(const std::optional<std::string>&)> folderChooser;
    std::function<void(const std::string&)> urlOpener;
    // Installs the hot keys; set by the application when it has a display.
    std::function<void()> hotKeyInstaller;

    void showPreferences(const Settings& settings) override;
    void showFolder(const std::optional<std::string>& folder) override;
    void closePreferences() override;
    std::optional<std::string> chooseFolder(const std::optional<std::string>& start) override;
    void showAbout(const std::string& aboutText, const std::string& versionText) override;
    void closeAbout() override;
    void openUrl(const std::string& address) override;
    void installHotKeys() override;

private:
    std::unique_ptr<PreferencesDialog> preferences_;
    std::unique_ptr<AboutDialog> about_;
};

}  // namespace pv
