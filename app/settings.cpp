#include "app/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace pv {

namespace {

// The bookmark is the folder's path; it resolves while that folder exists.
std::optional<std::string> resolveBookmark(const QByteArray& token) {
    const QString path = QString::fromUtf8(token);
    if (path.isEmpty() || !QFileInfo(path).isDir()) return std::nullopt;
    return QDir(path).absolutePath().toStdString();
}

}  // namespace

Settings loadSettings(QSettings& store) {
    Settings s;
    s.shownIntro = store.value("shownIntro", false).toBool();
    s.shadow = store.value("shadow", true).toBool();
    s.ignoreSystemWindows = store.value("ignore", false).toBool();
    s.outputFormat = store.value("format", 1).toInt();
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
    store.setValue("format", s.outputFormat);
    if (s.outputFolder) {
        store.setValue("output", QString::fromStdString(*s.outputFolder));
        store.setValue("outputBookmark", QByteArray::fromStdString(*s.outputFolder));
    } else {
        store.remove("output");
    }
    store.sync();
}

}  // namespace pv
