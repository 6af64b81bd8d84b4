#include "qt/settings/NodeModel.h"

#include "qt/settings/ValueText.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"

#include <QApplication>
#include <QStyle>

#include <algorithm>

namespace tev::browser
{
struct NodeModel::Node
{
    Node* m_parent = nullptr;
    int m_row = 0;
    Item m_item;
    QString m_fault; ///< of the list of its children
    bool m_isRead = false;
    std::vector<std::unique_ptr<Node>> m_children;
};

struct NodeModel::Load
{
    Node* m_node;
    bool m_isFirst; ///< nothing was read before
    ListLoad m_list;
};

NodeModel::NodeModel(SettingsSource& source, QObject* parent)
    : QAbstractItemModel(parent), m_source(source), m_root(std::make_unique<Node>())
{
    connect(&m_timer, &QTimer::timeout, this, &NodeModel::Step);
    Start(*m_root, true);
}

NodeModel::~NodeModel() = default;

NodeModel::Node& NodeModel::NodeOf(const QModelIndex& index) const
{
    return index.isValid() ? *static_cast<Node*>(index.internalPointer()) : *m_root;
}

QModelIndex NodeModel::IndexOf(const Node& node) const
{
    return &node == m_root.get() ? QModelIndex() : createIndex(node.m_row, 0, &node);
}

Place NodeModel::PlaceOf(const Node& node) const
{
    Place place;
    for (const Node* at = &node; at != m_root.get(); at = at->m_parent)
        place.insert(place.begin(), at->m_item.m_id);
    return place;
}

Place NodeModel::PlaceOf(const QModelIndex& index) const
{
    return PlaceOf(NodeOf(index));
}

QString NodeModel::FaultOf(const QModelIndex& index) const
{
    return NodeOf(index).m_fault;
}

QModelIndex NodeModel::Find(const Place& place, bool* isWhole)
{
    Node* node = m_root.get();
    std::size_t depth = 0;
    for (; depth < place.size(); ++depth)
    {
        const auto isSought = [&](const std::unique_ptr<Node>& child) {
            return child->m_item.m_id == place[depth] ||
                   XToQString(CXTString<wchar_t>(child->m_item.m_id))
                           .compare(XToQString(CXTString<wchar_t>(place[depth])), Qt::CaseInsensitive) == 0;
        };
        auto found = std::find_if(node->m_children.begin(), node->m_children.end(), isSought);
        for (std::size_t i = 0; found == node->m_children.end() && i < m_loads.size(); ++i)
        {
            if (m_loads[i].m_node != node)
                continue;
            if (!m_loads[i].m_list.RunShort())
                break;
            Load load = std::move(m_loads[i]);
            m_loads.erase(m_loads.begin() + static_cast<std::ptrdiff_t>(i));
            Finish(load);
            found = std::find_if(node->m_children.begin(), node->m_children.end(), isSought);
            break;
        }
        if (found == node->m_children.end())
            break;
        node = found->get();
        if (depth + 1 < place.size() && !node->m_isRead)
            Start(*node, true);
    }
    if (isWhole != nullptr)
        *isWhole = depth == place.size();
    return IndexOf(*node);
}

void NodeModel::Start(Node& node, bool isFirst)
{
    node.m_isRead = true;
    const auto isOfNode = [&](const Load& load) { return load.m_node == &node; };
    const auto found = std::find_if(m_loads.begin(), m_loads.end(), isOfNode);
    if (found != m_loads.end())
        m_loads.erase(found); // what it has not put into the list is read again
    m_loads.push_back({&node, isFirst, ListLoad(m_source.ListNodes(PlaceOf(node)))});
    m_timer.start(0);
}

void NodeModel::Step()
{
    const QDeadlineTimer slice(kSliceMilliseconds);
    const auto isReady = [](const Load& load) { return load.m_list.IsReady(); };
    while (!slice.hasExpired())
    {
        const auto next = std::find_if(m_loads.begin(), m_loads.end(), isReady);
        if (next == m_loads.end())
            break;
        Load load = std::move(*next);
        m_loads.erase(next);
        if (load.m_list.Run(slice))
        {
            Finish(load);
            continue;
        }
        if (load.m_isFirst)
            Append(*load.m_node, load.m_list.Take());
        m_loads.push_front(std::move(load));
    }
    m_timer.setInterval(std::any_of(m_loads.begin(), m_loads.end(), isReady) ? 0 : kWaitMilliseconds);
    if (!m_loads.empty())
        return;
    m_timer.stop();
    Q_EMIT Loaded();
}

void NodeModel::Finish(Load& load)
{
    Node& node = *load.m_node;
    node.m_fault = load.m_list.Fault();
    if (load.m_isFirst)
        Append(node, load.m_list.Take());
    else if (!load.m_list.IsGivenUp())
        Merge(node, load.m_list.Take());
    if (node.m_children.empty() && !load.m_list.IsGivenUp() && node.m_item.m_hasMore)
    {
        node.m_item.m_hasMore = false;
        Q_EMIT dataChanged(IndexOf(node), IndexOf(node));
    }
}

void NodeModel::Append(Node& node, std::vector<Item> items)
{
    Insert(node, static_cast<int>(node.m_children.size()), items.begin(), items.end());
}

void NodeModel::Insert(Node& node, int row, std::vector<Item>::iterator first, std::vector<Item>::iterator last)
{
    if (first == last)
        return;
    const int count = static_cast<int>(last - first);
    beginInsertRows(IndexOf(node), row, row + count - 1);
    std::vector<std::unique_ptr<Node>> added;
    for (; first != last; ++first)
    {
        added.push_back(std::make_unique<Node>());
        added.back()->m_parent = &node;
        added.back()->m_item = std::move(*first);
    }
    node.m_children.insert(node.m_children.begin() + row, std::make_move_iterator(added.begin()),
                           std::make_move_iterator(added.end()));
    for (std::size_t i = static_cast<std::size_t>(row); i < node.m_children.size(); ++i)
        node.m_children[i]->m_row = static_cast<int>(i);
    endInsertRows();
}

void NodeModel::Remove(Node& node, const RowRange& rows)
{
    beginRemoveRows(IndexOf(node), rows.m_first, rows.m_last);
    const auto isBelow = [&](const Load& load) {
        for (const Node* at = load.m_node; at->m_parent != nullptr; at = at->m_parent)
        {
            if (at->m_parent == &node && at->m_row >= rows.m_first && at->m_row <= rows.m_last)
                return true;
        }
        return false;
    };
    m_loads.erase(std::remove_if(m_loads.begin(), m_loads.end(), isBelow), m_loads.end());
    node.m_children.erase(node.m_children.begin() + rows.m_first, node.m_children.begin() + rows.m_last + 1);
    for (std::size_t i = static_cast<std::size_t>(rows.m_first); i < node.m_children.size(); ++i)
        node.m_children[i]->m_row = static_cast<int>(i);
    endRemoveRows();
}

void NodeModel::Merge(Node& node, std::vector<Item> items)
{
    std::vector<std::wstring> before;
    for (const std::unique_ptr<Node>& child : node.m_children)
        before.push_back(child->m_item.m_id);
    const ListSteps steps = StepsBetween(before, items);
    for (const RowRange& rows : steps.m_removed)
        Remove(node, rows);
    std::vector<Item> copies = items;
    for (const RowRange& rows : steps.m_inserted)
        Insert(node, rows.m_first, copies.begin() + rows.m_first, copies.begin() + rows.m_last + 1);
    for (std::size_t i = 0; i < items.size(); ++i)
    {
        Item& item = node.m_children[i]->m_item;
        if (item.m_text == items[i].m_text && item.m_fault == items[i].m_fault && item.m_hasMore == items[i].m_hasMore)
            continue;
        item = items[i];
        const QModelIndex changed = IndexOf(*node.m_children[i]);
        Q_EMIT dataChanged(changed, changed);
    }
}

void NodeModel::RefreshBelow(Node& node)
{
    if (!node.m_isRead)
        return;
    const auto isFirst = [&](const Load& load) { return load.m_node == &node && load.m_isFirst; };
    const bool wasEmpty = node.m_children.empty();
    Start(node, wasEmpty && std::any_of(m_loads.begin(), m_loads.end(), isFirst));
    for (const std::unique_ptr<Node>& child : node.m_children)
        RefreshBelow(*child);
}

void NodeModel::Refresh()
{
    RefreshBelow(*m_root);
    Step(); // what is short is there at once
}

QModelIndex NodeModel::index(int row, int column, const QModelIndex& parent) const
{
    const Node& node = NodeOf(parent);
    if (row < 0 || column != 0 || static_cast<std::size_t>(row) >= node.m_children.size())
        return {};
    return createIndex(row, column, node.m_children[static_cast<std::size_t>(row)].get());
}

QModelIndex NodeModel::parent(const QModelIndex& index) const
{
    return index.isValid() ? IndexOf(*NodeOf(index).m_parent) : QModelIndex();
}

int NodeModel::rowCount(const QModelIndex& parent) const
{
    return static_cast<int>(NodeOf(parent).m_children.size());
}

bool NodeModel::hasChildren(const QModelIndex& parent) const
{
    const Node& node = NodeOf(parent);
    return &node == m_root.get() || !node.m_children.empty() || node.m_item.m_hasMore;
}

bool NodeModel::canFetchMore(const QModelIndex& parent) const
{
    return !NodeOf(parent).m_isRead;
}

void NodeModel::fetchMore(const QModelIndex& parent)
{
    if (canFetchMore(parent))
        Start(NodeOf(parent), true);
}

QVariant NodeModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const Node& node = NodeOf(index);
    const QString fault = node.m_item.m_fault.isEmpty() ? node.m_fault : node.m_item.m_fault;
    switch (role)
    {
    case Qt::DisplayRole:
        return Escaped(node.m_item.m_text);
    case Qt::ToolTipRole:
        return XPlainToolTip(fault.isEmpty() ? Escaped(node.m_item.m_text) : fault);
    case Qt::AccessibleTextRole:
        return Escaped(node.m_item.m_text) + (fault.isEmpty() ? QString() : QStringLiteral(", ") + fault);
    case Qt::DecorationRole:
        return fault.isEmpty() ? QVariant()
                               : QVariant(QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning));
    default:
        return {};
    }
}
} // namespace tev::browser
