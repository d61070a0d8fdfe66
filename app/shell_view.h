#pragma once
// What the controller asks of the desktop application's shell: the
// preferences and about dialogs, the folder chooser, and the web browser.

#include <optional>
#include <string>

#include "app/settings.h"

namespace pv {

class ShellView {
public:
    virtual ~ShellView() = default;

    // Preferences: show them filled from settings; show a new folder; close.
    virtual void showPreferences(const Settings& settings) = 0;
    virtual void showFolder(const std::optional<std::string>& folder) = 0;
    virtual void closePreferences() = 0;
    // A directory chooser starting in start; nullopt when cancelled.
    virtual std::optional<std::string> chooseFolder(const std::optional<std::string>& start) = 0;

    // About: show the two texts; close.
    virtual void showAbout(const std::string& aboutText, const std::string& versionText) = 0;
    virtual void closeAbout() = 0;

    // Opens an address with the person's default handler.
    virtual void openUrl(const std::string& address) = 0;

    // Grabs the system-wide hot keys and starts delivering them.
    virtual void installHotKeys() = 0;
};

}  // namespace pv
