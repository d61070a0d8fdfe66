#pragma once
// The main window: the outline of screens, applications and windows beside the
// preview, the buttons and the status line. It only shows and reports; the
// controller is wired to its signals from outside, and nothing is remembered
// between runs.

#include <QMainWindow>
#include <QModelIndex>

#include <memory>

class QLabel;
class QPushButton;
class QScrollArea;
class QSplitter;
class QTreeView;

namespace pv {

class OutlineModel;
class PVWindowElement;
class RenderView;

class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);

    QTreeView* outline() const { return outline_; }
    OutlineModel* outlineModel() const { return model_; }
    RenderView* renderView() const { return renderView_; }
    QScrollArea* renderScroll() const { return renderScroll_; }
    QSplitter* splitter() const { return splitter_; }
    QLabel* progress() const { return progress_; }
    QPushButton* saveButton() const { return saveButton_; }
    QPushButton* refreshButton() const { return refreshButton_; }
    QPushButton* fitWidthButton() const { return fitWidthButton_; }
    QPushButton* fitAllButton() const { return fitAllButton_; }
    QPushButton* zoomInButton() const { return zoomInButton_; }
    QPushButton* zoomOutButton() const { return zoomOutButton_; }

    // Shows a new tree in the outline with every row expanded; the selection
    // is cleared without a selectionChanged signal.
    void reloadOutline(const std::shared_ptr<PVWindowElement>& root);
    // The new tree without expanding it (the window may be hidden).
    void setTree(const std::shared_ptr<PVWindowElement>& root);
    // Selects exactly the row of index, without a selectionChanged signal.
    void selectOnly(const QModelIndex& index);

signals:
    void saveRequested();
    void refreshRequested();
    // The person changed the outline's selection (clicks, keys, collapsing a
    // row with selected rows under it). Changes made through reloadOutline
    // and selectOnly are not reported.
    void selectionChanged();
    // Ctrl+Q: quit the application.
    void quitRequested();

private:
    QPushButton* addButton(const QString& text, const QString& toolTip);
    void onSelectionChanged();
    // Rows hidden by a collapse are no longer selected.
    void deselectUnder(const QModelIndex& collapsed);

    OutlineModel* model_ = nullptr;
    QTreeView* outline_ = nullptr;
    RenderView* renderView_ = nullptr;
    QScrollArea* renderScroll_ = nullptr;
    QSplitter* splitter_ = nullptr;
    QLabel* progress_ = nullptr;
    QPushButton* saveButton_ = nullptr;
    QPushButton* refreshButton_ = nullptr;
    QPushButton* fitWidthButton_ = nullptr;
    QPushButton* fitAllButton_ = nullptr;
    QPushButton* zoomInButton_ = nullptr;
    QPushButton* zoomOutButton_ = nullptr;
    QWidget* buttonRow_ = nullptr;
    bool quietSelection_ = false;
};

}  // namespace pv
