#pragma once
// The names and icons the desktop itself gives programs: XDG desktop entries
// (.desktop files) in the applications/ folders of $XDG_DATA_HOME and
// $XDG_DATA_DIRS, and the entry that describes the program behind a window.
// A small reader of its own: the files are plain key=value text.

#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace pv {

// An environment variable's value; nullopt when unset or empty.
using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;
std::optional<std::string> processEnvironment(const char* name);

// The applications/ folders, most important first: $XDG_DATA_HOME's (else
// $HOME/.local/share's), then those of $XDG_DATA_DIRS (else /usr/local/share
// and /usr/share). Relative paths are ignored, as the base directory rules say.
std::vector<std::string> applicationFolders(const EnvironmentLookup& env);

// The locale keys to look for in Name[...], best first. The locale is the
// first of $LC_ALL, $LC_MESSAGES and $LANG; with none, "C" or "POSIX" there
// is none (and $LANGUAGE is ignored, as gettext does). Otherwise each entry
// of $LANGUAGE (colon-separated), then the locale; each as lang_COUNTRY@MODIFIER,
// lang_COUNTRY, lang@MODIFIER, lang (the encoding dropped).
std::vector<std::string> preferredLocales(const EnvironmentLookup& env);

struct DesktopEntry {
    std::string id;              // the desktop file id without ".desktop": "org.gnome.Calculator", "kde-konsole"
    std::string name;            // Name in the best preferred locale the entry has
    std::string icon;            // an icon-theme name, or an absolute file path
    std::string startupWMClass;  // StartupWMClass
    std::string program;         // the program Exec starts, as written ("firefox-esr", "/usr/bin/xterm")
    bool terminal = false;       // runs inside a terminal: its windows are the terminal's
};

// What a window tells about the program behind it; empty fields are unknown.
struct ProgramIdentity {
    std::string applicationId;  // _GTK_APPLICATION_ID
    std::string instance;       // WM_CLASS, first part
    std::string className;      // WM_CLASS, second part
    std::string executable;     // the process's executable, a path or a bare name
};

class DesktopEntries {
public:
    // Every Type=Application entry with a Name under the folders (and their
    // subfolders, whose names join the id with '-'); for an id found in more
    // than one folder, the first folder's entry counts (a Hidden one hides it).
    static DesktopEntries read(const std::vector<std::string>& folders, const std::vector<std::string>& locales);

    // The entry for a program, tried in this order: the application id as the
    // entry's id; the class, then the instance, as an entry's StartupWMClass;
    // the instance, then the class, as an entry's id (exactly, then ignoring
    // case); the executable's file name as the file name of the program Exec
    // starts, leaving out entries that run in a terminal and programs that
    // only start others (env, shells, interpreters). nullptr when none fits.
    const DesktopEntry* match(const ProgramIdentity& program) const;

    size_t size() const { return entries_.size(); }

    // The folders read (subfolders included) with their modification times;
    // a folder that did not exist has time 0.
    std::vector<std::pair<std::string, std::timespec>> folderTimes;

private:
    void index();
    const DesktopEntry* find(const std::unordered_map<std::string, size_t>& map, const std::string& key) const;

    std::vector<DesktopEntry> entries_;
    std::unordered_map<std::string, size_t> byId_, byLowercaseId_, byWMClass_, byProgram_;
};

// The entries of the folders, read again whenever one of the folders read
// has changed (a program installed or removed).
class DesktopEntryCache {
public:
    DesktopEntryCache(std::vector<std::string> folders, std::vector<std::string> locales);
    // From the environment: applicationFolders and preferredLocales.
    static DesktopEntryCache fromEnvironment(const EnvironmentLookup& env = processEnvironment);

    const DesktopEntries& current();

private:
    std::vector<std::string> folders_;
    std::vector<std::string> locales_;
    std::optional<DesktopEntries> entries_;
};

}  // namespace pv
