#pragma once

#include "qt/settings/ListSteps.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QTimer>

namespace tev::browser
{
/// The values of one node. Names are read in slices; the values themselves where they are looked at.
class ValueModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column : int
    {
        kName,
        kKind,
        kSize,
        kValue,
        kColumnCount
    };

    explicit ValueModel(SettingsSource& source, QObject* parent = nullptr);
    ~ValueModel() override;

    /// False where the place is shown already.
    bool SetPlace(const Place& place);
    const Place& GetPlace() const { return m_place; }
    void Refresh();
    bool IsLoading() const { return m_load != nullptr; }
    const QString& Fault() const { return m_fault; }
    const std::wstring& IdOf(int row) const { return m_items[static_cast<std::size_t>(row)].m_id; }
    /// The row of a value, -1 where it is not there. A short list is read to its end for it.
    int FindRow(const std::wstring& id);
    /// In one line, with tabs between the columns.
    QString LineOf(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

Q_SIGNALS:
    void Loaded();

private:
    struct Row
    {
        QString m_kind;
        QString m_size;
        QString m_value;
        QString m_fault;
    };

    const Row& RowOf(const Item& item) const;
    void Start(bool isFirst);
    void Step();
    void Finish();
    void ShowAnew(std::unique_ptr<ListLoad> shown);
    void Insert(int row, std::vector<Item>::iterator first, std::vector<Item>::iterator last);

    SettingsSource& m_source;
    Place m_place;
    QString m_fault;
    std::vector<Item> m_items;
    mutable QHash<std::wstring, Row> m_rows; ///< of values that were looked at
    std::unique_ptr<ListLoad> m_load;
    std::unique_ptr<ListLoad> m_shown; ///< while it is held, its values are read at once
    bool m_isFirst = true;
    QTimer m_timer;
};
} // namespace tev::browser
