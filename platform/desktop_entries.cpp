#include "platform/desktop_entries.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace pv {

namespace {

namespace fs = std::filesystem;

constexpr int kMaxFolderDepth = 4;
constexpr std::uintmax_t kMaxEntryBytes = 1 << 20;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at = text.find(separator);; at = text.find(separator, start)) {
        parts.push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) break;
        start = at + 1;
    }
    return parts;
}

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A string value with its escapes (\s \n \t \r \\) resolved.
std::string unescaped(const std::string& value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out.push_back(value[i]);
            continue;
        }
        const char next = value[++i];
        out.push_back(next == 's' ? ' ' : next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next);
    }
    return out;
}

// The words of an Exec line: separated by spaces, double quotes group, and
// inside quotes a backslash takes the next character literally.
std::vector<std::string> execWords(const std::string& exec) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, inWord = false;
    for (size_t i = 0; i < exec.size(); ++i) {
        const char c = exec[i];
        if (quoted) {
            if (c == '"')
                quoted = false;
            else
                word.push_back(c == '\\' && i + 1 < exec.size() ? exec[++i] : c);
        } else if (c == '"') {
            quoted = inWord = true;
        } else if (c == ' ' || c == '\t') {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word.push_back(c);
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

// The program an Exec line starts: its first word, past `env` with its
// options and assignments.
std::string execProgram(const std::string& exec) {
    const std::vector<std::string> words = execWords(exec);
    size_t i = 0;
    if (i < words.size() && baseName(words[i]) == "env") {
        ++i;
        while (i < words.size() && (words[i].starts_with('-') || words[i].find('=') != std::string::npos)) ++i;
    }
    return i < words.size() ? words[i] : std::string();
}

// Programs that only start others: a window of theirs says nothing about
// which entry started it.
bool startsOthers(const std::string& program) {
    static const std::set<std::string> launchers{"env",     "sh",   "bash",     "dash",       "zsh",     "perl",
                                                 "ruby",    "node", "gjs",      "java",       "mono",    "wine",
                                                 "flatpak", "snap", "xdg-open", "gtk-launch", "exo-open"};
    const std::string name = baseName(program);
    return launchers.count(name) > 0 || name.starts_with("python");
}

// The locale keys of one locale value, lang_COUNTRY.ENCODING@MODIFIER.
void addLocaleKeys(const std::string& locale, std::vector<std::string>& keys) {
    std::string rest = locale;
    std::string modifier;
    if (const size_t at = rest.find('@'); at != std::string::npos) {
        modifier = rest.substr(at);
        rest.resize(at);
    }
    if (const size_t dot = rest.find('.'); dot != std::string::npos) rest.resize(dot);
    std::string lang = rest;
    std::string country;
    if (const size_t underscore = rest.find('_'); underscore != std::string::npos) {
        lang = rest.substr(0, underscore);
        country = rest.substr(underscore);
    }
    if (lang.empty()) return;
    std::vector<std::string> candidates;
    if (!country.empty() && !modifier.empty()) candidates.push_back(lang + country + modifier);
    if (!country.empty()) candidates.push_back(lang + country);
    if (!modifier.empty()) candidates.push_back(lang + modifier);
    candidates.push_back(lang);
    for (const std::string& key : candidates)
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
}

enum class Parsed { Entry, Hidden, Skipped };

// The [Desktop Entry] group of one file.
Parsed parseEntry(const fs::path& path, const std::vector<std::string>& locales, DesktopEntry& entry) {
    std::error_code error;
    if (fs::file_size(path, error) > kMaxEntryBytes || error) return Parsed::Skipped;
    std::ifstream in(path);
    if (!in) return Parsed::Skipped;
    std::unordered_map<std::string, std::string> keys;
    bool inMainGroup = false;
    for (std::string line; std::getline(in, line);) {
        const std::string text = trimmed(line);
        if (text.empty() || text[0] == '#') continue;
        if (text[0] == '[') {
            inMainGroup = text == "[Desktop Entry]";
            continue;
        }
        const size_t equals = text.find('=');
        if (!inMainGroup || equals == std::string::npos) continue;
        keys.emplace(trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1)));
    }
    const auto value = [&](const std::string& key) {
        auto it = keys.find(key);
        return it == keys.end() ? std::string() : it->second;
    };
    if (value("Hidden") == "true") return Parsed::Hidden;
    if (value("Type") != "Application") return Parsed::Skipped;
    for (const std::string& locale : locales) {
        entry.name = unescaped(value("Name[" + locale + "]"));
        if (!entry.name.empty()) break;
    }
    if (entry.name.empty()) entry.name = unescaped(value("Name"));
    if (entry.name.empty()) return Parsed::Skipped;
    entry.icon = unescaped(value("Icon"));
    // A theme name is written without an extension; some entries add one anyway.
    if (!entry.icon.starts_with('/'))
        for (const char* extension : {".png", ".svg", ".xpm"})
            if (entry.icon.ends_with(extension)) entry.icon.resize(entry.icon.size() - std::strlen(extension));
    entry.startupWMClass = unescaped(value("StartupWMClass"));
    entry.program = execProgram(unescaped(value("Exec")));
    entry.terminal = value("Terminal") == "true";
    return Parsed::Entry;
}

std::timespec modificationTime(const std::string& folder) {
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) return {};
    return info.st_mtim;
}

bool sameTime(const std::timespec& a, const std::timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

struct FolderReader {
    const std::vector<std::string>& locales;
    std::vector<DesktopEntry>& entries;
    std::vector<std::pair<std::string, std::timespec>>& folderTimes;
    std::set<std::string> claimedIds;

    void read(const fs::path& folder, const std::string& idPrefix, int depth) {
        folderTimes.emplace_back(folder.string(), modificationTime(folder.string()));
        std::error_code error;
        std::vector<fs::directory_entry> items;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
            items.push_back(*it);
        std::sort(items.begin(), items.end());
        for (const fs::directory_entry& item : items) {
            const std::string fileName = item.path().filename().string();
            if (item.is_directory(error)) {
                if (depth < kMaxFolderDepth) read(item.path(), idPrefix + fileName + "-", depth + 1);
                continue;
            }
            if (!fileName.ends_with(".desktop") || !item.is_regular_file(error)) continue;
            const std::string id = idPrefix + fileName.substr(0, fileName.size() - 8);
            if (!claimedIds.insert(id).second) continue;  // a folder earlier in the list has it
            DesktopEntry entry;
            entry.id = id;
            if (parseEntry(item.path(), locales, entry) == Parsed::Entry) entries.push_back(std::move(entry));
        }
    }
};

}  // namespace

std::optional<std::string> processEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || !*value) return std::nullopt;
    return std::string(value);
}

std::vector<std::string> applicationFolders(const EnvironmentLookup& env) {
    std::vector<std::string> dataFolders;
    if (auto home = env("XDG_DATA_HOME"); home && home->starts_with('/'))
        dataFolders.push_back(*home);
    else if (auto user = env("HOME"))
        dataFolders.push_back(*user + "/.local/share");
    const std::string dirs = env("XDG_DATA_DIRS").value_or("/usr/local/share:/usr/share");
    for (const std::string& dir : split(dirs, ':'))
        if (dir.starts_with('/')) dataFolders.push_back(dir);

    std::vector<std::string> folders;
    for (std::string dir : dataFolders) {
        while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
        const std::string folder = dir + "/applications";
        if (std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(folder);
    }
    return folders;
}

std::vector<std::string> preferredLocales(const EnvironmentLookup& env) {
    std::optional<std::string> locale = env("LC_ALL");
    if (!locale) locale = env("LC_MESSAGES");
    if (!locale) locale = env("LANG");
    if (!locale || *locale == "C" || *locale == "POSIX" || locale->starts_with("C.")) return {};
    std::vector<std::string> keys;
    if (auto languages = env("LANGUAGE"))
        for (const std::string& language : split(*languages, ':')) addLocaleKeys(language, keys);
    addLocaleKeys(*locale, keys);
    return keys;
}

DesktopEntries DesktopEntries::read(const std::vector<std::string>& folders, const std::vector<std::string>& locales) {
    DesktopEntries result;
    FolderReader reader{locales, result.entries_, result.folderTimes, {}};
    for (const std::string& folder : folders) reader.read(folder, "", 0);
    result.index();
    return result;
}

void DesktopEntries::index() {
    for (size_t i = 0; i < entries_.size(); ++i) {
        const DesktopEntry& e = entries_[i];
        byId_.emplace(e.id, i);
        byLowercaseId_.emplace(lowercase(e.id), i);
        if (!e.startupWMClass.empty()) byWMClass_.emplace(e.startupWMClass, i);
        if (!e.program.empty() && !e.terminal && !startsOthers(e.program)) byProgram_.emplace(baseName(e.program), i);
    }
}

const DesktopEntry* DesktopEntries::find(const std::unordered_map<std::string, size_t>& map,
                                         const std::string& key) const {
    if (key.empty()) return nullptr;
    auto it = map.find(key);
    return it == map.end() ? nullptr : &entries_[it->second];
}

const DesktopEntry* DesktopEntries::match(const ProgramIdentity& p) const {
    for (const DesktopEntry* found :
         {find(byId_, p.applicationId), find(byWMClass_, p.className), find(byWMClass_, p.instance),
          find(byId_, p.instance), find(byId_, p.className), find(byLowercaseId_, lowercase(p.instance)),
          find(byLowercaseId_, lowercase(p.className)), find(byProgram_, baseName(p.executable))})
        if (found) return found;
    return nullptr;
}

DesktopEntryCache::DesktopEntryCache(std::vector<std::string> folders, std::vector<std::string> locales)
    : folders_(std::move(folders)), locales_(std::move(locales)) {}

DesktopEntryCache DesktopEntryCache::fromEnvironment(const EnvironmentLookup& env) {
    return DesktopEntryCache(applicationFolders(env), preferredLocales(env));
}

const DesktopEntries& DesktopEntryCache::current() {
    const bool changed =
        !entries_ || std::any_of(entries_->folderTimes.begin(), entries_->folderTimes.end(), [](const auto& folder) {
            return !sameTime(modificationTime(folder.first), folder.second);
        });
    if (changed) entries_ = DesktopEntries::read(folders_, locales_);
    return *entries_;
}

}  // namespace pv
