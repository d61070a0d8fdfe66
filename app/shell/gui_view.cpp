#include "app/shell/gui_view.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <QDir>
#include <QFileDialog>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTreeView>

#include <algorithm>
#include <iostream>

#include "app/shell/main_window.h"
#include "inventory/qt/outline_model.h"
#include "platform/text_line.h"
#include "preview/qt/render_view.h"

namespace pv {

namespace {

// The extension a name filter such as "PNG image (*.png)" asks for.
QString extensionOf(const QString& filter) {
    static const QRegularExpression pattern(QStringLiteral(R"(\*\.(\w+))"));
    const auto match = pattern.match(filter);
    return match.hasMatch() ? match.captured(1) : QString();
}

QString runSaveDialog(QWidget* parent, const QString& caption, const QString& preset, const QString& filter) {
    QFileDialog dialog(parent, caption);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setNameFilter(filter);
    // The dialog adds the extension itself, so that it asks before replacing
    // a file under the name that will really be written.
    dialog.setDefaultSuffix(extensionOf(filter));
    dialog.setDirectory(QFileInfo(preset).absolutePath());
    dialog.selectFile(QFileInfo(preset).fileName());
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return {};
    return dialog.selectedFiles().constFirst();
}

std::vector<int> rowPath(QModelIndex index) {
    std::vector<int> path;
    for (; index.isValid(); index = index.parent()) path.insert(path.begin(), index.row());
    return path;
}

}  // namespace

GuiView::GuiView(MainWindow& window) : saveDialog(runSaveDialog), window_(window) {}

void GuiView::setStatus(const std::string& text) { window_.progress()->setText(QString::fromStdString(text)); }

void GuiView::setBusyControls(bool busy) {
    window_.saveButton()->setEnabled(!busy);
    window_.refreshButton()->setEnabled(!busy);
}

bool GuiView::isMainWindowVisible() const { return window_.isVisible(); }

void GuiView::setTree(const PVWindowElement::Ptr& root) { window_.setTree(root); }

void GuiView::reloadOutline(const PVWindowElement::Ptr& root) { window_.reloadOutline(root); }

void GuiView::setPreviewImage(const ImagePtr& image) { window_.renderView()->setImage(image); }

void GuiView::fitAll() { window_.renderView()->fitAll(); }

void GuiView::raiseMainWindow() {
    // Above ordinary windows, so that a hot key brings it over whatever the
    // person was working in. Changing the flag hides a shown window; it is
    // shown again below.
    if (!window_.windowFlags().testFlag(Qt::WindowStaysOnTopHint)) {
        window_.setWindowFlag(Qt::WindowStaysOnTopHint, true);
    }
    window_.setWindowState(window_.windowState() & ~Qt::WindowMinimized);
    window_.show();
    window_.raise();
    window_.activateWindow();
    // The flag change may have made a new native window: let the shell mark it.
    if (onRaised) onRaised();
    // The refresh that follows takes the desktop picture; give the window
    // manager a moment to map and list the window, so that the picture can
    // leave it out instead of showing a half-drawn copy of it.
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 300) QCoreApplication::processEvents(QEventLoop::AllEvents, 30);
}

std::vector<PVWindowElement::Ptr> GuiView::selectedNodes() const {
    const QTreeView* outline = window_.outline();
    // Only rows the person can see: every row above them is expanded.
    const auto visible = [outline](const QModelIndex& row) {
        for (QModelIndex up = row.parent(); up.isValid(); up = up.parent()) {
            if (!outline->isExpanded(up)) return false;
        }
        return true;
    };
    std::vector<std::pair<std::vector<int>, QModelIndex>> rows;
    for (const QModelIndex& row : outline->selectionModel()->selectedRows()) {
        if (visible(row)) rows.emplace_back(rowPath(row), row);
    }
    // Top to bottom in the outline is the order of index paths.
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<PVWindowElement::Ptr> nodes;
    for (const auto& [path, row] : rows) {
        if (auto node = window_.outlineModel()->nodeAt(row)) nodes.push_back(std::move(node));
    }
    return nodes;
}

void GuiView::selectRoot() { window_.selectOnly(window_.outlineModel()->index(0, 0)); }

std::optional<std::string> GuiView::askSaveFile(const std::string& suggestedName, OutputFormat outputFormat) {
    const auto folder = outputFolder ? outputFolder() : std::nullopt;
    const QDir dir(folder ? QString::fromStdString(*folder) : QDir::homePath());
    const QString filter =
        isLayered(outputFormat) ? QStringLiteral("Photoshop document (*.psd)") : QStringLiteral("PNG image (*.png)");
    QString chosen =
        saveDialog(&window_, QObject::tr("Save"), dir.filePath(QString::fromStdString(suggestedName)), filter);
    if (chosen.isEmpty()) return std::nullopt;
    const QString extension = QLatin1Char('.') + extensionOf(filter);
    if (!chosen.endsWith(extension, Qt::CaseInsensitive)) chosen += extension;
    return chosen.toStdString();
}

void GuiView::showAlert(const std::string& message) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Plenavue"), QString::fromStdString(message),
                    QMessageBox::NoButton, &window_);
    box.setInformativeText(QString());
    box.addButton(QObject::tr("Ok"), QMessageBox::AcceptRole);
    box.exec();
}

void GuiView::log(const std::string& line) { std::cerr << "plenavue: " << oneLine(line) << '\n'; }

void GuiView::playCaptureSound() {
    if (onPlaySound) onPlaySound();
}

void GuiView::documentFinished(const std::string& path, bool ok, const std::string& reason) {
    if (ok) {
        setStatus("Saved: " + path);
    } else if (!reason.empty()) {
        setStatus(reason);
    }
    if (onDocumentFinished) onDocumentFinished(path, ok, reason);
}

}  // namespace pv
