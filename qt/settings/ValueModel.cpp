#include "qt/settings/ValueModel.h"

#include "qt/settings/ValueText.h"
#include "qt/toolkit/QtText.h"

#include <QApplication>
#include <QLocale>
#include <QStyle>

#include <algorithm>

namespace tev::browser
{
namespace
{
constexpr unsigned __int64 kLargestShown = 1 << 20; // a larger value is read when it is opened
constexpr qsizetype kKeptRows = 10000;
} // namespace

ValueModel::ValueModel(SettingsSource& source, QObject* parent) : QAbstractTableModel(parent), m_source(source)
{
    connect(&m_timer, &QTimer::timeout, this, &ValueModel::Step);
}

ValueModel::~ValueModel() = default;

bool ValueModel::SetPlace(const Place& place)
{
    if (place == m_place)
        return false;
    beginResetModel();
    m_place = place;
    m_items.clear();
    m_rows.clear();
    m_fault.clear();
    m_shown.reset();
    endResetModel();
    Start(true);
    Step(); // what is short is there at once
    return true;
}

void ValueModel::Refresh()
{
    Start(m_load != nullptr && m_isFirst && m_items.empty());
    ShowAnew(std::move(m_shown));
    Step();
}

/// What is known of values may have changed.
void ValueModel::ShowAnew(std::unique_ptr<ListLoad> shown)
{
    m_shown = std::move(shown);
    m_rows.clear();
    if (!m_items.empty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, kColumnCount - 1));
}

void ValueModel::Start(bool isFirst)
{
    m_isFirst = isFirst;
    m_load = std::make_unique<ListLoad>(m_source.ListValues(m_place));
    m_timer.start(0);
}

void ValueModel::Step()
{
    if (m_load == nullptr)
        return;
    m_timer.setInterval(m_load->IsReady() ? 0 : kWaitMilliseconds);
    if (m_load->Run(QDeadlineTimer(kSliceMilliseconds)))
        Finish();
    else if (m_isFirst)
    {
        std::vector<Item> items = m_load->Take();
        Insert(rowCount(), items.begin(), items.end());
    }
}

void ValueModel::Finish()
{
    m_timer.stop();
    std::unique_ptr<ListLoad> load = std::move(m_load);
    m_fault = load->Fault();
    std::vector<Item> items = load->Take();
    if (m_isFirst)
        Insert(rowCount(), items.begin(), items.end());
    else if (!load->IsGivenUp())
    {
        std::vector<std::wstring> before;
        for (const Item& item : m_items)
            before.push_back(item.m_id);
        const ListSteps steps = StepsBetween(before, items);
        for (const RowRange& rows : steps.m_removed)
        {
            beginRemoveRows({}, rows.m_first, rows.m_last);
            m_items.erase(m_items.begin() + rows.m_first, m_items.begin() + rows.m_last + 1);
            endRemoveRows();
        }
        for (const RowRange& rows : steps.m_inserted)
            Insert(rows.m_first, items.begin() + rows.m_first, items.begin() + rows.m_last + 1);
    }
    if (!load->IsGivenUp())
        ShowAnew(std::move(load));
    Q_EMIT Loaded();
}

void ValueModel::Insert(int row, std::vector<Item>::iterator first, std::vector<Item>::iterator last)
{
    if (first == last)
        return;
    beginInsertRows({}, row, row + static_cast<int>(last - first) - 1);
    m_items.insert(m_items.begin() + row, first, last);
    endInsertRows();
}

int ValueModel::FindRow(const std::wstring& id)
{
    if (m_load != nullptr && m_load->RunShort())
        Finish();
    const auto found = std::find_if(m_items.begin(), m_items.end(), [&](const Item& item) { return item.m_id == id; });
    return found == m_items.end() ? -1 : static_cast<int>(found - m_items.begin());
}

const ValueModel::Row& ValueModel::RowOf(const Item& item) const
{
    const auto known = m_rows.constFind(item.m_id);
    if (known != m_rows.constEnd())
        return *known;
    if (m_rows.size() > kKeptRows)
        m_rows.clear();
    const Reading reading = m_source.Read(m_place, item.m_id, kLargestShown);
    Row row;
    row.m_fault = reading.m_fault;
    if (reading.m_isThere)
        row.m_size = QLocale().toString(static_cast<qulonglong>(reading.m_size));
    if (reading.m_value)
    {
        row.m_kind = reading.m_fault.isEmpty() ? KindName(m_source, reading.m_value->m_kind) : QString();
        row.m_value = ValueLine(m_source, *reading.m_value);
    }
    else if (reading.m_isThere && reading.m_fault.isEmpty())
        row.m_value = XInLanguage(u"(too large to be shown here)", u"(trop grand pour être montré ici)");
    if (!row.m_fault.isEmpty() && row.m_value.isEmpty())
        row.m_value = u'(' + row.m_fault + u')';
    return *m_rows.insert(item.m_id, row);
}

QString ValueModel::LineOf(int row) const
{
    QString line;
    for (int column = 0; column < kColumnCount; ++column)
        line += (column == 0 ? QString() : QStringLiteral("\t")) + data(index(row, column), Qt::DisplayRole).toString();
    return line;
}

int ValueModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

int ValueModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : kColumnCount;
}

QVariant ValueModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const Item& item = m_items[static_cast<std::size_t>(index.row())];
    if (role == Qt::TextAlignmentRole)
        return index.column() == kSize ? QVariant(Qt::AlignRight | Qt::AlignVCenter) : QVariant();
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole && role != Qt::DecorationRole &&
        role != Qt::AccessibleTextRole)
        return {};
    if (role == Qt::ToolTipRole)
        return XPlainToolTip(RowOf(item).m_fault.isEmpty() ? data(index, Qt::DisplayRole).toString()
                                                           : RowOf(item).m_fault);
    if (role == Qt::AccessibleTextRole)
        return data(index, Qt::DisplayRole).toString() + (index.column() != kName || RowOf(item).m_fault.isEmpty()
                                                              ? QString()
                                                              : QStringLiteral(", ") + RowOf(item).m_fault);
    if (index.column() == kName && role != Qt::DecorationRole)
        return Escaped(item.m_text);
    const Row& row = RowOf(item);
    if (role == Qt::DecorationRole)
        return index.column() == kName && !row.m_fault.isEmpty()
                   ? QVariant(QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning))
                   : QVariant();
    return index.column() == kKind ? row.m_kind : index.column() == kSize ? row.m_size : row.m_value;
}

QVariant ValueModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section)
    {
    case kName:
        return XInLanguage(u"Name", u"Nom");
    case kKind:
        return XInLanguage(u"Kind", u"Type");
    case kSize:
        return XInLanguage(u"Bytes", u"Octets");
    default:
        return XInLanguage(u"Value", u"Valeur");
    }
}
} // namespace tev::browser
