#include "app/shell/main_window.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QSplitter>
#include <QTreeView>
#include <QVBoxLayout>

#include "inventory/qt/outline_model.h"
#include "preview/qt/render_view.h"

namespace pv {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
    setWindowTitle(QStringLiteral("Plenavue"));

    model_ = new OutlineModel(this);
    outline_ = new QTreeView;
    outline_->setModel(model_);
    outline_->setHeaderHidden(true);
    outline_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    outline_->setSelectionBehavior(QAbstractItemView::SelectRows);
    outline_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    outline_->setUniformRowHeights(true);
    // Long window titles scroll sideways rather than being cut short.
    outline_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    outline_->header()->setStretchLastSection(false);
    connect(outline_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &MainWindow::onSelectionChanged);
    connect(outline_, &QTreeView::collapsed, this, &MainWindow::deselectUnder);

    renderView_ = new RenderView;
    renderScroll_ = new QScrollArea;
    renderScroll_->setWidgetResizable(false);
    renderScroll_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    renderScroll_->setBackgroundRole(QPalette::Base);
    renderScroll_->setWidget(renderView_);

    splitter_ = new QSplitter(Qt::Horizontal);
    splitter_->addWidget(outline_);
    splitter_->addWidget(renderScroll_);
    splitter_->setChildrenCollapsible(false);
    splitter_->setStretchFactor(0, 0);
    splitter_->setStretchFactor(1, 1);
    splitter_->setSizes({340, 760});

    buttonRow_ = new QWidget;
    auto* buttons = new QHBoxLayout(buttonRow_);
    buttons->setContentsMargins(0, 0, 0, 0);
    refreshButton_ = addButton(tr("Refresh"), tr("Take the inventory of screens and windows again"));
    buttons->addWidget(refreshButton_);
    progress_ = new QLabel;
    progress_->setTextInteractionFlags(Qt::NoTextInteraction);
    progress_->setMinimumWidth(120);
    progress_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    buttons->addWidget(progress_, 1);
    fitWidthButton_ = addButton(tr("Fit width"), tr("Scale the preview to the width of the pane"));
    fitAllButton_ = addButton(tr("Fit all"), tr("Scale the preview so that all of it shows"));
    zoomOutButton_ = addButton(tr("Zoom out"), tr("Make the preview smaller"));
    zoomInButton_ = addButton(tr("Zoom in"), tr("Make the preview larger"));
    for (auto* b : {fitWidthButton_, fitAllButton_, zoomOutButton_, zoomInButton_}) buttons->addWidget(b);
    buttons->addSpacing(12);
    saveButton_ = addButton(tr("Save"), tr("Write the selected windows to a file"));
    buttons->addWidget(saveButton_);

    connect(saveButton_, &QPushButton::clicked, this, &MainWindow::saveRequested);
    connect(refreshButton_, &QPushButton::clicked, this, &MainWindow::refreshRequested);
    // The preview's scale needs no controller.
    connect(fitWidthButton_, &QPushButton::clicked, renderView_, &RenderView::fitWidth);
    connect(fitAllButton_, &QPushButton::clicked, renderView_, &RenderView::fitAll);
    connect(zoomInButton_, &QPushButton::clicked, renderView_, &RenderView::zoomIn);
    connect(zoomOutButton_, &QPushButton::clicked, renderView_, &RenderView::zoomOut);

    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(splitter_, 1);
    layout->addWidget(buttonRow_);
    setCentralWidget(central);

    auto* quit = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q), this);
    connect(quit, &QShortcut::activated, this, &MainWindow::quitRequested);
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &QWidget::close);

    resize(1100, 700);
}

void MainWindow::reloadOutline(const std::shared_ptr<PVWindowElement>& root) {
    quietSelection_ = true;
    model_->setRoot(root);
    outline_->expandAll();
    quietSelection_ = false;
}

void MainWindow::setTree(const std::shared_ptr<PVWindowElement>& root) {
    quietSelection_ = true;
    model_->setRoot(root);
    quietSelection_ = false;
}

void MainWindow::selectOnly(const QModelIndex& index) {
    quietSelection_ = true;
    outline_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    quietSelection_ = false;
}

void MainWindow::onSelectionChanged() {
    if (!quietSelection_) emit selectionChanged();
}

void MainWindow::deselectUnder(const QModelIndex& collapsed) {
    QItemSelection hidden;
    for (const QModelIndex& row : outline_->selectionModel()->selectedRows()) {
        for (QModelIndex up = row.parent(); up.isValid(); up = up.parent()) {
            if (up == collapsed) {
                hidden.select(row, row);
                break;
            }
        }
    }
    if (!hidden.isEmpty()) {
        outline_->selectionModel()->select(hidden, QItemSelectionModel::Deselect | QItemSelectionModel::Rows);
    }
}

QPushButton* MainWindow::addButton(const QString& text, const QString& toolTip) {
    auto* button = new QPushButton(text);
    button->setToolTip(toolTip);
    button->setAutoDefault(false);
    return button;
}

}  // namespace pv
