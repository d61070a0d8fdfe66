#include "app/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

#include "platform/build_info.h"

namespace pv {

namespace {

// The bookmark is the folder's path; it resolves while that folder exists.
std::optional<std::string> resolveBookmark(const QByteArray& token) {
    const QString path = QString::fromUtf8(token);
    if (path.isEmpty() || !QFileInfo(path).isDir()) return std::nullopt;
    return QDir(path).absolutePath().toStdString();
}

void complain(std::vector<std::string>* problems, const char* key, const QVariant& value, const std::string& used) {
    if (problems)
        problems->push_back("stored setting \"" + std::string(key) + "\" has the unusable value \"" +
                            value.toString().toStdString() + "\"; using " + used);
}

// true/false as QSettings stores them (also 1/0); anything else is refused.
bool readBool(QSettings& store, const char* key, bool fallback, std::vector<std::string>* problems) {
    if (!store.contains(key)) return fallback;
    const QVariant value = store.value(key);
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    const QString text = value.toString().trimmed().toLower();
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    complain(problems, key, value, fallback ? "true" : "false");
    return fallback;
}

OutputFormat readFormat(QSettings& store, std::vector<std::string>* problems) {
    if (!store.contains("format")) return kDefaultOutputFormat;
    const QVariant value = store.value("format");
    bool isNumber = false;
    const qlonglong number = value.toString().trimmed().toLongLong(&isNumber);
    if (isNumber)
        if (auto format = outputFormatFromValue(number)) return *format;
    complain(problems, "format", value,
             std::string(outputFormatName(kDefaultOutputFormat)) + " (" +
                 std::to_string(outputFormatValue(kDefaultOutputFormat)) + ")");
    return kDefaultOutputFormat;
}

}  // namespace

std::unique_ptr<QSettings> openSettingsStore() {
    return std::make_unique<QSettings>(kOrganisationName, kApplicationName);
}

Settings loadSettings(QSettings& store, std::vector<std::string>* problems) {
    Settings s;
    s.shownIntro = readBool(store, "shownIntro", false, problems);
    s.shadow = readBool(store, "shadow", true, problems);
    s.ignoreSystemWindows = readBool(store, "ignore", false, problems);
    s.outputFormat = readFormat(store, problems);
    if (store.contains("outputBookmark")) {
        s.outputFolder = resolveBookmark(store.value("outputBookmark").toByteArray());
    } else {
        const QString path = store.value("output", QString()).toString();
        if (!path.isEmpty()) s.outputFolder = QDir(path).absolutePath().toStdString();
    }
    return s;
}

void storeSettings(QSettings& store, const Settings& s) {
    store.setValue("shownIntro", s.shownIntro);
    store.setValue("shadow", s.shadow);
    store.setValue("ignore", s.ignoreSystemWindows);
    store.setValue("format", outputFormatValue(s.outputFormat));
    if (s.outputFolder) {
        store.setValue("output", QString::fromStdString(*s.outputFolder));
        store.setValue("outputBookmark", QByteArray::fromStdString(*s.outputFolder));
    } else {
        store.remove("output");
    }
    store.sync();
}

}  // namespace pv
