#include "app/shell/qt_shell.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QUrl>

#include "app/shell/about_dialog.h"
#include "app/shell/preferences_dialog.h"

namespace pv {

namespace {

std::optional<std::string> askForFolder(QWidget* parent, const std::optional<std::string>& start) {
    QFileDialog dialog(parent, "Choose the output folder", start ? QString::fromStdString(*start) : QDir::homePath());
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, "Set output folder");
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return dialog.selectedFiles().front().toStdString();
}

void raise(QWidget& w) {
    w.show();
    w.raise();
    w.activateWindow();
}

}  // namespace

QtShell::QtShell(AppDelegate& delegate)
    : preferences_(std::make_unique<PreferencesDialog>(delegate)), about_(std::make_unique<AboutDialog>(delegate)) {
    folderChooser = [this](const std::optional<std::string>& start) { return askForFolder(preferences_.get(), start); };
    urlOpener = [](const std::string& address) { QDesktopServices::openUrl(QUrl(QString::fromStdString(address))); };
}

QtShell::~QtShell() = default;

void QtShell::showPreferences(const Settings& settings) {
    preferences_->showSettings(settings);
    raise(*preferences_);
}

void QtShell::showFolder(const std::optional<std::string>& folder) { preferences_->showFolder(folder); }

void QtShell::closePreferences() { preferences_->hide(); }

std::optional<std::string> QtShell::chooseFolder(const std::optional<std::string>& start) {
    return folderChooser ? folderChooser(start) : std::nullopt;
}

void QtShell::showAbout(const std::string& aboutText, const std::string& versionText) {
    about_->showTexts(QString::fromStdString(aboutText), QString::fromStdString(versionText));
    raise(*about_);
}

void QtShell::closeAbout() { about_->hide(); }

void QtShell::openUrl(const std::string& address) {
    if (urlOpener) urlOpener(address);
}

void QtShell::installHotKeys() {
    if (hotKeyInstaller) hotKeyInstaller();
}

}  // namespace pv
