#pragma once
// Which character Shift and a digit key type in the keyboard layouts of a
// KDE Plasma session. KWin matches a global shortcut by the symbol the keys
// type, Shift taken out: Shift+Meta+5 arrives as Meta+% on a US or German
// layout, and Shift+Meta+6 as Meta+^ on a US and as Meta+& on a German one.

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace pv::kwin {

struct KeyboardLayout {
    std::string layout;   // "us", "de", "fr"
    std::string variant;  // "" for the layout's own
    bool operator==(const KeyboardLayout&) const = default;
};

// The layouts of Plasma's keyboard settings ($XDG_CONFIG_HOME/kxkbrc, group
// [Layout]: LayoutList and VariantList when Use=true); without them
// XKB_DEFAULT_LAYOUT and XKB_DEFAULT_VARIANT; without those "us".
std::vector<KeyboardLayout> keyboardLayouts(const std::string& kxkbrc,
                                            const std::function<std::optional<std::string>(const char*)>& getenv);

// The layouts of this session (reads kxkbrc from the configuration folder).
std::vector<KeyboardLayout> sessionKeyboardLayouts();

// The character Shift and the digit key (0-9 of the top row) type in the
// layout; nullopt when the layout is unknown or the key types none.
std::optional<char32_t> shiftedDigit(const KeyboardLayout& layout, int digit);

}  // namespace pv::kwin
