#pragma once
// The outline's rows over an inventory tree: row 0 is the root node, each
// row's children are its node's children in order, and a row's text is its
// node's display name; application rows show the program's icon where one is
// known. Every row can be selected; none can be edited.
//
// A window that touches two screens is one node filed under two application
// nodes, so it has two rows; the model keeps its own tree of rows and does
// not look up a node's parent.

#include <QAbstractItemModel>

#include <memory>
#include <vector>

#include "inventory/window_element.h"

namespace pv {

class OutlineModel : public QAbstractItemModel {
    Q_OBJECT

public:
    explicit OutlineModel(QObject* parent = nullptr);
    ~OutlineModel() override;

    // Shows a new tree (none: no rows). The rows are read once here; later
    // changes to the nodes show only after the next setRoot.
    void setRoot(const PVWindowElement::Ptr& root);
    const PVWindowElement::Ptr& root() const;

    // The node of a row; none for an invalid index.
    PVWindowElement::Ptr nodeAt(const QModelIndex& index) const;
    // The rows from the top to the first row of the node in depth-first
    // pre-order ({0} is the root); empty when the node has no row.
    std::vector<int> indexPathOf(const PVWindowElement* node) const;
    std::vector<int> indexPathOf(const PVWindowElement::Ptr& node) const { return indexPathOf(node.get()); }
    // The index of that first row; invalid when there is none.
    QModelIndex indexOf(const PVWindowElement* node) const;
    // The index at an index path; invalid when the path leads nowhere.
    QModelIndex indexAt(const std::vector<int>& path) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    struct Row;
    const Row* rowOf(const QModelIndex& index) const;
    QModelIndex indexOfRow(const Row* row) const;

    std::unique_ptr<Row> top_;  // holds the root's row, never shown itself
};

}  // namespace pv
