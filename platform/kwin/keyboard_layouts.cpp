#include "platform/kwin/keyboard_layouts.h"

#include <xkbcommon/xkbcommon.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace pv::kwin {

namespace {

std::vector<std::string> commaList(const std::string& text) {
    std::vector<std::string> out;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, ',');) out.push_back(item);
    if (!text.empty() && text.back() == ',') out.emplace_back();
    return out;
}

std::optional<std::string> environment(const char* name) {
    const char* v = std::getenv(name);
    return v ? std::optional<std::string>(v) : std::nullopt;
}

}  // namespace

std::vector<KeyboardLayout> keyboardLayouts(const std::string& kxkbrc,
                                            const std::function<std::optional<std::string>(const char*)>& getenv) {
    std::string group, layouts, variants, use;
    std::stringstream in(kxkbrc);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind('[', 0) == 0) {
            group = line;
            continue;
        }
        if (group != "[Layout]") continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = line.substr(0, eq), value = line.substr(eq + 1);
        if (key == "LayoutList") layouts = value;
        if (key == "VariantList") variants = value;
        if (key == "Use") use = value;
    }
    std::vector<KeyboardLayout> out;
    if (use == "true" && !layouts.empty()) {
        const auto names = commaList(layouts), kinds = commaList(variants);
        for (size_t i = 0; i < names.size(); ++i)
            if (!names[i].empty()) out.push_back({names[i], i < kinds.size() ? kinds[i] : ""});
        return out;
    }
    const auto layout = getenv("XKB_DEFAULT_LAYOUT");
    if (layout && !layout->empty()) {
        const auto names = commaList(*layout), kinds = commaList(getenv("XKB_DEFAULT_VARIANT").value_or(""));
        for (size_t i = 0; i < names.size(); ++i)
            if (!names[i].empty()) out.push_back({names[i], i < kinds.size() ? kinds[i] : ""});
        if (!out.empty()) return out;
    }
    return {{"us", ""}};
}

std::vector<KeyboardLayout> sessionKeyboardLayouts() {
    std::string folder = environment("XDG_CONFIG_HOME").value_or("");
    if (folder.empty()) folder = environment("HOME").value_or("") + "/.config";
    std::ifstream file(folder + "/kxkbrc");
    std::stringstream text;
    text << file.rdbuf();
    return keyboardLayouts(text.str(), environment);
}

std::optional<char32_t> shiftedDigit(const KeyboardLayout& layout, int digit) {
    if (digit < 0 || digit > 9) return std::nullopt;
    std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> context(xkb_context_new(XKB_CONTEXT_NO_FLAGS),
                                                                       xkb_context_unref);
    if (!context) return std::nullopt;
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    const xkb_rule_names names{nullptr, nullptr, layout.layout.c_str(), layout.variant.c_str(), nullptr};
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS), xkb_keymap_unref);
    if (!keymap) return std::nullopt;
    // Linux key codes: KEY_1 is 2, ..., KEY_9 is 10, KEY_0 is 11; XKB's are 8 more.
    const xkb_keycode_t key = static_cast<xkb_keycode_t>((digit == 0 ? 11 : digit + 1) + 8);
    const xkb_keysym_t* syms = nullptr;
    // Level 2 (index 1) is Shift's on the digit row's key types.
    if (xkb_keymap_key_get_syms_by_level(keymap.get(), key, 0, 1, &syms) < 1) return std::nullopt;
    const uint32_t character = xkb_keysym_to_utf32(syms[0]);
    if (character == 0) return std::nullopt;
    return static_cast<char32_t>(character);
}

}  // namespace pv::kwin
