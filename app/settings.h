#pragma once
// The six stored settings, read at start and written at quit, kept with
// QSettings under the program's organisation and application names.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "document/output_format.h"

class QSettings;

namespace pv {

struct Settings {
    bool shownIntro = false;
    bool shadow = true;
    bool ignoreSystemWindows = false;
    OutputFormat outputFormat = kDefaultOutputFormat;
    std::optional<std::string> outputFolder;  // none: ask for a file at each capture
};

// The person's own settings store.
std::unique_ptr<QSettings> openSettingsStore();

// Reads the settings; keys without a stored value give the registered defaults.
// A stored "outputBookmark" wins over the "output" path, even when the folder it
// names is gone (then there is no folder). A stored value of the wrong kind (a
// format that names none of the three, a boolean that is not true or false)
// gives the registered default, and one line saying so is added to *problems.
Settings loadSettings(QSettings& store, std::vector<std::string>* problems = nullptr);
// Writes the settings back: "output" is removed when there is no folder, and
// "outputBookmark" is written only when there is one, so an earlier bookmark
// stays in place otherwise.
void storeSettings(QSettings& store, const Settings& settings);

}  // namespace pv
