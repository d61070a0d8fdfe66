// Text people read: UTF-8 repair and sanitising, and the desktop entries that
// give programs their menu names and icons.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "document_test_support.h"
#include "platform/desktop_entries.h"
#include "platform/unicode_text.h"

namespace pv {
namespace {

const std::string kFFFD = "\xEF\xBF\xBD";

TEST(UnicodeText, BrokenUTF8IsRepairedAndControlCharactersRemoved) {
    struct Case {
        std::string in, out;
    };
    for (const Case& c : {
             Case{"Caf\xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80", "Caf\xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80"},
             Case{"\xC0\xAF", kFFFD + kFFFD},                          // overlong '/'
             Case{"\xED\xA0\x80", kFFFD + kFFFD + kFFFD},              // a surrogate
             Case{"\xF4\x90\x80\x80", kFFFD + kFFFD + kFFFD + kFFFD},  // past U+10FFFF
             Case{"a\xE6\x97"
                  "b",
                  "a" + kFFFD + "b"},  // cut short: one replacement
             Case{"\xE6\x97", kFFFD},
             Case{"tab\tline\nreturn\r\x1b[31mred\x7f", "tablinereturn[31mred"},
             Case{"\xC2\x85\xC2\x9B"
                  "1m\xC2\xA0nbsp",
                  "1m\xC2\xA0nbsp"},  // C1 controls go, NBSP stays
             Case{std::string("nul\0byte", 8), "nulbyte"},
         }) {
        EXPECT_EQ(sanitizedText(c.in), c.out) << c.in;
    }
    EXPECT_EQ(repairUtf8("a\x1b\xFF"), "a\x1b" + kFFFD);  // repair alone keeps controls
    EXPECT_EQ(latin1ToUtf8("Z\xFCrich \xA9"), "Z\xC3\xBCrich \xC2\xA9");
    EXPECT_EQ(sanitizedText(latin1ToUtf8("\x9B"
                                         "2J")),
              "2J");
    EXPECT_EQ(utf8ToUtf16("a\xC3\xA9\xF0\x9F\x98\x80\xFF"), (std::u16string{u'a', u'\u00E9', 0xD83D, 0xDE00, 0xFFFD}));
    EXPECT_EQ(codePointCount("a\xC3\xA9\xF0\x9F\x98\x80"), 3u);
}

using Environment = std::map<std::string, std::string>;

EnvironmentLookup lookupIn(const Environment& env) {
    return [env](const char* name) -> std::optional<std::string> {
        auto it = env.find(name);
        if (it == env.end() || it->second.empty()) return std::nullopt;
        return it->second;
    };
}

// Folders by the base directory rules; locale keys from LANGUAGE, then the
// messages locale (LC_ALL, LC_MESSAGES, LANG), as gettext takes them.
TEST(DesktopEntryEnvironment, FoldersAndLocaleKeys) {
    for (const auto& [env, folders] : std::vector<std::pair<Environment, std::vector<std::string>>>{
             {{{"HOME", "/home/u"}},
              {"/home/u/.local/share/applications", "/usr/local/share/applications", "/usr/share/applications"}},
             {{{"HOME", "/h"}, {"XDG_DATA_HOME", "/x/"}, {"XDG_DATA_DIRS", "/a:relative:/b/:/a"}},
              {"/x/applications", "/a/applications", "/b/applications"}},
             {{{"HOME", "/h"}, {"XDG_DATA_HOME", "relative"}, {"XDG_DATA_DIRS", "/s"}},
              {"/h/.local/share/applications", "/s/applications"}}}) {
        EXPECT_EQ(applicationFolders(lookupIn(env)), folders);
    }
    for (const auto& [env, keys] : std::vector<std::pair<Environment, std::vector<std::string>>>{
             {{{"LANG", "sr_RS.UTF-8@latin"}}, {"sr_RS@latin", "sr_RS", "sr@latin", "sr"}},
             {{{"LANGUAGE", "fr:pt_BR"}, {"LANG", "de_DE.UTF-8"}}, {"fr", "pt_BR", "pt", "de_DE", "de"}},
             {{{"LC_MESSAGES", "it_IT.UTF-8"}, {"LANG", "de_DE.UTF-8"}}, {"it_IT", "it"}},
             {{{"LC_ALL", "ja_JP.UTF-8"}, {"LC_MESSAGES", "it_IT"}}, {"ja_JP", "ja"}},
             {{{"LC_ALL", "C"}, {"LANGUAGE", "fr"}}, {}},  // gettext ignores LANGUAGE in the C locale
             {{{"LANG", "C.UTF-8"}, {"LANGUAGE", "fr"}}, {}},
             {{}, {}}}) {
        EXPECT_EQ(preferredLocales(lookupIn(env)), keys);
    }
}

class DesktopEntriesTest : public ::testing::Test {
protected:
    pvtest::ScratchDir dir;
    std::string home = dir / "home/applications";
    std::string system = dir / "system/applications";

    void write(const std::string& folder, const std::string& file, const std::string& keys) {
        std::filesystem::create_directories(std::filesystem::path(folder + "/" + file).parent_path());
        std::ofstream(folder + "/" + file) << "# comment\n[Desktop Entry]\n"
                                           << keys << "\n[Desktop Action new]\nName=Other\n";
    }

    void SetUp() override {
        write(home, "org.example.Calculator.desktop",
              "Type=Application\nName=Calculator\nName[de]=Rechner\nName[pt_BR]=Calculadora\n"
              "Icon=accessories-calculator\nExec=gnome-calculator");
        write(home, "kde/konsole.desktop", "Type=Application\nName = Konsole\nExec=konsole");
        write(home, "hidden.desktop", "Hidden=true");
        write(system, "hidden.desktop", "Type=Application\nName=Uninstalled\nStartupWMClass=Hidden");
        write(system, "org.example.Calculator.desktop", "Type=Application\nName=Shadowed");
        write(system, "firefox-esr.desktop",
              "Type=Application\nName=Firefox ESR\nExec=/usr/lib/firefox-esr/firefox-esr %u\n"
              "StartupWMClass=firefox-esr\nIcon=/opt/icons/firefox.png");
        write(system, "debian-xterm.desktop", "Type=Application\nName=XTerm\nStartupWMClass=XTerm\nExec=xterm");
        write(system, "gtk3-demo.desktop", "Type=Application\nName=GTK Demo\nExec=gtk3-demo\nIcon=gtk3-demo.png");
        write(system, "vim.desktop", "Type=Application\nName=Vim\nExec=vim %F\nTerminal=true");
        write(system, "idle.desktop", "Type=Application\nName=Python Shell\nExec=python3 -m idlelib");
        write(system, "escaped.desktop", "Type=Application\nName=Two\\sWords\nExec=env LANG=C \"/opt/My App/run\" --x");
        write(system, "site.desktop", "Type=Link\nName=A web site\nURL=https://example.org");
        write(system, "nameless.desktop", "Type=Application\nExec=nameless");
    }
};

TEST_F(DesktopEntriesTest, WindowsFindTheirEntryByIdClassOrProgram) {
    const DesktopEntries entries = DesktopEntries::read({home, system, dir / "absent"}, {"de_DE", "de"});
    EXPECT_EQ(entries.size(), 8u);  // shadowed, hidden, link and nameless entries are not there
    struct Case {
        const char* what;
        ProgramIdentity program;
        std::string name, icon;  // name empty: no entry
    };
    for (const Case& c : {
             Case{"application id",
                  {"org.example.Calculator", "gnome-calculator", "Gnome-calculator", ""},
                  "Rechner",
                  "accessories-calculator"},
             Case{"StartupWMClass", {"", "Navigator", "firefox-esr", ""}, "Firefox ESR", "/opt/icons/firefox.png"},
             Case{"StartupWMClass by class", {"", "xterm", "XTerm", "/usr/bin/xterm"}, "XTerm", ""},
             Case{"instance as the id", {"", "gtk3-demo", "Gtk3-demo", ""}, "GTK Demo", "gtk3-demo"},
             Case{"class as the id, any case", {"", "konsole", "KDE-Konsole", ""}, "Konsole", ""},
             Case{"executable", {"", "", "", "/usr/bin/gnome-calculator"}, "Rechner", "accessories-calculator"},
             Case{"quoted program past env", {"", "", "", "/opt/My App/run"}, "Two Words", ""},
             Case{"terminal programs own no windows", {"", "", "", "/usr/bin/vim"}, "", ""},
             Case{"an interpreter tells nothing", {"", "", "", "/usr/bin/python3"}, "", ""},
             Case{"hidden in the user's folder", {"", "hidden", "Hidden", ""}, "", ""},
             Case{"nothing known", {}, "", ""},
         }) {
        SCOPED_TRACE(c.what);
        const DesktopEntry* entry = entries.match(c.program);
        ASSERT_EQ(entry != nullptr, !c.name.empty());
        if (!entry) continue;
        EXPECT_EQ(entry->name, c.name);
        EXPECT_EQ(entry->icon, c.icon);
    }
    const DesktopEntries plain = DesktopEntries::read({home, system}, {});
    EXPECT_EQ(plain.match({"org.example.Calculator", "", "", ""})->name, "Calculator");
}

TEST_F(DesktopEntriesTest, TheCacheReadsAgainWhenAFolderChanges) {
    DesktopEntryCache cache({home, dir / "later/applications"}, {});
    EXPECT_FALSE(cache.current().match({"", "", "", "/usr/bin/newapp"}));
    write(dir / "later/applications", "newapp.desktop", "Type=Application\nName=New App\nExec=newapp");
    ASSERT_TRUE(cache.current().match({"", "", "", "/usr/bin/newapp"}));
    EXPECT_EQ(cache.current().match({"", "", "", "/usr/bin/newapp"})->name, "New App");
    std::filesystem::remove(home + "/kde/konsole.desktop");
    EXPECT_FALSE(cache.current().match({"", "", "kde-konsole", ""}));
}

}  // namespace
}  // namespace pv
