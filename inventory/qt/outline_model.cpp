#include "inventory/qt/outline_model.h"

#include <QFileInfo>
#include <QIcon>

namespace pv {

namespace {

// An application's icon: a file given by its absolute path, else the icon
// theme's (and its fallbacks') icon of that name.
QIcon applicationIcon(const std::string& iconName) {
    if (iconName.empty()) return {};
    const QString name = QString::fromStdString(iconName);
    if (name.startsWith('/')) return QFileInfo(name).isFile() ? QIcon(name) : QIcon();
    return QIcon::hasThemeIcon(name) ? QIcon::fromTheme(name) : QIcon();
}

}  // namespace

struct OutlineModel::Row {
    PVWindowElement::Ptr node;
    Row* parent = nullptr;
    int number = 0;  // place among the parent's rows
    std::vector<std::unique_ptr<Row>> children;

    void addChildrenOf(const PVWindowElement& element) {
        for (const auto& child : element.children()) {
            if (!child) continue;
            auto row = std::make_unique<Row>();
            row->node = child;
            row->parent = this;
            row->number = static_cast<int>(children.size());
            row->addChildrenOf(*child);
            children.push_back(std::move(row));
        }
    }

    const Row* find(const PVWindowElement* target) const {
        if (node.get() == target) return this;
        for (const auto& child : children) {
            if (const Row* found = child->find(target)) return found;
        }
        return nullptr;
    }
};

OutlineModel::OutlineModel(QObject* parent) : QAbstractItemModel(parent), top_(std::make_unique<Row>()) {}

OutlineModel::~OutlineModel() = default;

void OutlineModel::setRoot(const PVWindowElement::Ptr& root) {
    beginResetModel();
    auto top = std::make_unique<Row>();
    if (root) {
        auto row = std::make_unique<Row>();
        row->node = root;
        row->parent = top.get();
        row->addChildrenOf(*root);
        top->children.push_back(std::move(row));
    }
    top_ = std::move(top);
    endResetModel();
}

const PVWindowElement::Ptr& OutlineModel::root() const {
    static const PVWindowElement::Ptr none;
    return top_->children.empty() ? none : top_->children.front()->node;
}

const OutlineModel::Row* OutlineModel::rowOf(const QModelIndex& index) const {
    if (!index.isValid() || index.model() != this) return top_.get();
    return static_cast<const Row*>(index.internalPointer());
}

QModelIndex OutlineModel::indexOfRow(const Row* row) const {
    if (!row || row == top_.get()) return {};
    return createIndex(row->number, 0, row);
}

PVWindowElement::Ptr OutlineModel::nodeAt(const QModelIndex& index) const {
    if (!index.isValid() || index.model() != this) return nullptr;
    return rowOf(index)->node;
}

std::vector<int> OutlineModel::indexPathOf(const PVWindowElement* node) const {
    std::vector<int> path;
    if (!node) return path;
    for (const Row* row = top_->find(node); row && row != top_.get(); row = row->parent) {
        path.insert(path.begin(), row->number);
    }
    return path;
}

QModelIndex OutlineModel::indexOf(const PVWindowElement* node) const {
    return node ? indexOfRow(top_->find(node)) : QModelIndex();
}

QModelIndex OutlineModel::indexAt(const std::vector<int>& path) const {
    const Row* row = top_.get();
    for (const int n : path) {
        if (n < 0 || n >= static_cast<int>(row->children.size())) return {};
        row = row->children[static_cast<size_t>(n)].get();
    }
    return indexOfRow(row);
}

QModelIndex OutlineModel::index(int row, int column, const QModelIndex& parent) const {
    const Row* p = rowOf(parent);
    if (column != 0 || row < 0 || row >= static_cast<int>(p->children.size())) return {};
    return indexOfRow(p->children[static_cast<size_t>(row)].get());
}

QModelIndex OutlineModel::parent(const QModelIndex& child) const {
    if (!child.isValid()) return {};
    return indexOfRow(rowOf(child)->parent);
}

int OutlineModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid() && parent.column() != 0) return 0;
    return static_cast<int>(rowOf(parent)->children.size());
}

int OutlineModel::columnCount(const QModelIndex&) const { return 1; }

bool OutlineModel::hasChildren(const QModelIndex& parent) const { return rowCount(parent) > 0; }

QVariant OutlineModel::data(const QModelIndex& index, int role) const {
    const auto node = nodeAt(index);
    if (!node) return {};
    switch (role) {
    case Qt::DisplayRole:
        return QString::fromStdString(node->displayName());
    case Qt::ToolTipRole:
        return QString::fromStdString(node->description());
    case Qt::DecorationRole:
        if (node->kind != PVElementKindApplication) return {};
        if (QIcon icon = applicationIcon(node->iconName); !icon.isNull()) return icon;
        return {};
    default:
        return {};
    }
}

Qt::ItemFlags OutlineModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsSelectable | Qt::ItemIsEnabled;
    if (rowOf(index)->children.empty()) f |= Qt::ItemNeverHasChildren;
    return f;
}

QVariant OutlineModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (section == 0 && orientation == Qt::Horizontal && role == Qt::DisplayRole) return tr("Desktop");
    return {};
}

}  // namespace pv
