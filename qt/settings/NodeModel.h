#pragma once

#include "qt/settings/ListSteps.h"

#include <QAbstractItemModel>
#include <QTimer>

#include <deque>

namespace tev::browser
{
/// The nodes of a source as a tree. A level is read when it is first asked for, in slices; Refresh reads again what was
/// read, and keeps what is still there.
class NodeModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    explicit NodeModel(SettingsSource& source, QObject* parent = nullptr);
    ~NodeModel() override;

    Place PlaceOf(const QModelIndex& index) const;
    /// The nearest node of the place that was read; the levels above are read for it at once, where they are short.
    QModelIndex Find(const Place& place, bool* isWhole = nullptr);
    void Refresh();
    bool IsLoading() const { return !m_loads.empty(); }
    /// Why a level was not read to its end.
    QString FaultOf(const QModelIndex& index) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex&) const override { return 1; }
    QVariant data(const QModelIndex& index, int role) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    bool canFetchMore(const QModelIndex& parent) const override;
    void fetchMore(const QModelIndex& parent) override;

Q_SIGNALS:
    void Loaded();

private:
    struct Node;
    struct Load;

    Node& NodeOf(const QModelIndex& index) const;
    QModelIndex IndexOf(const Node& node) const;
    Place PlaceOf(const Node& node) const;
    void Start(Node& node, bool isFirst);
    void Step();
    void Append(Node& node, std::vector<Item> items);
    void Merge(Node& node, std::vector<Item> items);
    void Insert(Node& node, int row, std::vector<Item>::iterator first, std::vector<Item>::iterator last);
    void Remove(Node& node, const RowRange& rows);
    void RefreshBelow(Node& node);
    void Finish(Load& load);

    SettingsSource& m_source;
    std::unique_ptr<Node> m_root;
    std::deque<Load> m_loads;
    QTimer m_timer;
};
} // namespace tev::browser
