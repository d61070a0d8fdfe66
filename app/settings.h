#pragma once
// The six stored settings, read at start and written at quit, kept with
// QSettings under the organisation "Veltrano" and the application "Plenavue".

#include <cstdint>
#include <optional>
#include <string>

class QSettings;

namespace pv {

enum OutputFormat : int32_t { GroupedPSD = 0, UngroupedPSD = 1, PNG = 2 };

struct Settings {
    bool shownIntro = false;
    bool shadow = true;
    bool ignoreSystemWindows = false;
    int32_t outputFormat = UngroupedPSD;
    std::optional<std::string> outputFolder;  // none: ask for a file at each capture
};

// Reads the settings; keys without a stored value give the registered defaults.
// A stored "outputBookmark" wins over the "output" path, even when the folder it
// names is gone (then there is no folder).
Settings loadSettings(QSettings& store);
// Writes the settings back: "output" is removed when there is no folder, and
// "outputBookmark" is written only when there is one, so an earlier bookmark
// stays in place otherwise.
void storeSettings(QSettings& store, const Settings& settings);

}  // namespace pv
