#include "qt/settings/PreferenceSource.h"

#include "base/LittleEndian.h"
#include "files/CXFile.h"
#include "objects/CXException.h"
#include "objects/LastFailure.h"
#include "objects/ThreadException.h"
#include "qt/toolkit/QtText.h"
#include "services/Paths.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cstring>

namespace tev::browser
{
namespace
{
constexpr std::size_t kDeepestStore = 64;
constexpr std::size_t kChunkHeader = 12;
constexpr std::size_t kKeysSize = 8;
constexpr unsigned __int64 kShownDamage = 65536; // bytes of a damaged record that are shown
constexpr wchar_t kDamageMark = L'@';            // the identifier of a damaged record is its offset

/// Thrown out of a change of a store: what is there is not what the edit has seen, or cannot be kept.
struct Refusal
{
    Result m_result;
};

std::wstring IdOf(unsigned number)
{
    wchar_t text[9];
    std::swprintf(text, 9, L"%08x", number);
    return text;
}

unsigned NumberOf(const std::wstring& id, std::size_t at = 0)
{
    return id.size() < at + 8 || id.front() == kDamageMark
               ? 0
               : static_cast<unsigned>(std::stoul(id.substr(at, 8), nullptr, 16));
}

std::optional<Value> ValueIn(const CCustomData& store, unsigned id)
{
    if (store.GetDataKindOf(id) == 0 && !store.HasData(id))
        return {};
    unsigned size = 0;
    const auto* const data = static_cast<const unsigned char*>(store.GetCustomPtr(id, size));
    Value value{store.GetDataKindOf(id), {}};
    if (data != nullptr)
        value.m_data.assign(data, data + size);
    return value;
}

/// The store takes kind and bytes as they are, whatever they are, by a block of one chunk.
bool SetValueIn(CCustomData& store, unsigned id, const Value& value)
{
    Bytes block(kChunkHeader);
    StoreLittleEndian(block.data(), id);
    StoreLittleEndian(block.data() + 4, static_cast<unsigned>(value.m_data.size()));
    StoreLittleEndian(block.data() + 8, value.m_kind);
    block.insert(block.end(), value.m_data.begin(), value.m_data.end());
    CCustomData one;
    return one.SetData(block.data(), static_cast<unsigned>(block.size())) && store.CopyID(&one, id) &&
           ValueIn(store, id) == value;
}

void ChangeIn(CCustomData& store, const ValueEdit& edit, std::size_t depth)
{
    if (depth < edit.m_place.size())
    {
        const unsigned id = NumberOf(edit.m_place[depth]);
        CCustomData within;
        if (store.HasData(id) && !store.GetCustomData(id, within))
            throw Refusal{{Outcome::kChanged, {}}};
        ChangeIn(within, edit, depth + 1);
        if (!store.SetCustomData(id, within))
            throw Refusal{{Outcome::kFailed, XToQString(XLastFailure().GetText())}};
        return;
    }
    for (const ValueChange& change : edit.m_changes)
    {
        const unsigned id = NumberOf(change.m_id);
        if (!(ValueIn(store, id) == change.m_before))
            throw Refusal{{Outcome::kChanged, {}}};
        if (!change.m_after)
            store.RemoveCustom(id);
        else if (!SetValueIn(store, id, *change.m_after))
            throw Refusal{{Outcome::kFailed, change.m_after->m_data.empty()
                                                 ? XInLanguage(u"A value without bytes cannot be kept in a store.",
                                                               u"Une valeur sans octets ne peut pas être conservée.")
                                                 : XToQString(XLastFailure().GetText())}};
    }
}

bool HasStores(const CCustomData& store)
{
    unsigned kind = 0;
    for (unsigned i = 0; i < store.GetIDCount(); ++i)
    {
        store.GetIDByIndex(i, kind);
        if (kind == CCustomData::kCustomData)
            return true;
    }
    return false;
}

Bytes BytesOf(const CCustomData& store)
{
    unsigned __int64 size = 0;
    void* const block = store.SerializeToData(size);
    if (block == nullptr)
        throw std::bad_alloc();
    const auto* const bytes = static_cast<const unsigned char*>(block);
    Bytes result(bytes, bytes + size);
    CCustomData::Free(block);
    return result;
}

Result FailedBy(CXException* failure)
{
    Result result{Outcome::kFailed, XToQString(XGetExceptionText(failure))};
    failure->Delete();
    XDeleteThreadException();
    return result;
}
} // namespace

PreferenceSource::PreferenceSource(const QString& path) : m_path(path) {}

const std::vector<Kind>& PreferenceSource::GetKinds() const
{
    static const std::vector<Kind> kKinds = {
        {CCustomData::kInt, "int", Form::kSigned, 4},
        {CCustomData::kUInt, "uint", Form::kUnsigned, 4},
        {CCustomData::kLong, "long", Form::kSigned, 4},
        {CCustomData::kULong, "ulong", Form::kUnsigned, 4},
        {CCustomData::kLongInt, "int64", Form::kSigned, 8},
        {CCustomData::kULongInt, "uint64", Form::kUnsigned, 8},
        {CCustomData::kChar, "char", Form::kSigned, 1},
        {CCustomData::kUChar, "uchar", Form::kUnsigned, 1},
        {CCustomData::kBool, "bool", Form::kBool, 4},
        {CCustomData::kFloat, "float", Form::kFloat, 4},
        {CCustomData::kDouble, "double", Form::kFloat, 8},
        {CCustomData::kStringW, "text", Form::kText, 0},
        {CCustomData::kStringA, "ansi", Form::kAnsiText, 0},
        {CCustomData::kStringList, "list", Form::kTextList, 0},
        {CCustomData::kXTime, "time", Form::kTime, 8},
        {CCustomData::kUTCTime, "utc", Form::kUtcTime, 36, false},
        {CCustomData::kBinary, "binary", Form::kBytes, 0},
        {CCustomData::kArray, "array", Form::kBytes, 0, false},
        {CCustomData::kPtr, "pointer", Form::kBytes, 8, false},
        {CCustomData::kCustomData, "store", Form::kStore, 0, false},
    };
    return kKinds;
}

QString PreferenceSource::GetPlaceText(const Place& place) const
{
    QString text;
    for (std::size_t i = 0; i < place.size(); ++i)
    {
        const bool isDamaged = !place[i].empty() && place[i].front() == kDamageMark;
        text += i == 0 ? QString() : QStringLiteral(" / ");
        if (isDamaged)
            text += XInLanguage(u"damaged, at offset ", u"endommagé, à la position ") +
                    QString::fromStdWString(place[i].substr(1));
        else if (i == 0)
            text += CodeText(NumberOf(place[i])) + u' ' + CodeText(NumberOf(place[i], 8));
        else
            text += CodeText(NumberOf(place[i]));
    }
    return text;
}

QString PreferenceSource::GetValueName(const std::wstring& id) const
{
    return CodeText(NumberOf(id));
}

void PreferenceSource::Refresh()
{
    m_isListed = false;
    m_records.clear();
    m_places.clear();
    m_stores.clear();
    m_open.reset();
    m_openPlace.clear();
}

void PreferenceSource::List()
{
    if (m_isListed)
        return;
    m_isListed = true;
    m_fault.clear();
    std::vector<XPreferenceRecord> records;
    try
    {
        m_isSound = XListPreferences(XFromQString(m_path), records);
    }
    catch (CXException* failure)
    {
        m_isSound = true; // nothing is known to be damaged
        m_fault = FailedBy(failure).m_reason;
    }
    if (!m_isSound)
        m_fault = XInLanguage(u"The file is damaged.", u"Le fichier est endommagé.");
    QSet<quint64> keys;
    for (const XPreferenceRecord& record : records)
    {
        Record entry{{}, record, false};
        const quint64 both = quint64{record.m_key1} << 32 | record.m_key2;
        entry.m_id = IdOf(record.m_key1) + IdOf(record.m_key2);
        entry.m_isHidden = record.m_isSound && keys.contains(both);
        if (!record.m_isSound || entry.m_isHidden)
            entry.m_id =
                (record.m_isSound ? entry.m_id : std::wstring()) + kDamageMark + std::to_wstring(record.m_offset);
        else
            keys.insert(both);
        m_records.push_back(std::move(entry));
    }
    // Saving moves a store to the front; here it stays where it is.
    std::sort(m_records.begin(), m_records.end(), [](const Record& left, const Record& right) {
        return std::make_pair(!left.m_record.m_isSound, left.m_id) <
               std::make_pair(!right.m_record.m_isSound, right.m_id);
    });
    for (std::size_t i = 0; i < m_records.size(); ++i)
        m_places.emplace(m_records[i].m_id, i);
}

QString PreferenceSource::GetFault()
{
    List();
    return m_fault;
}

const PreferenceSource::Record* PreferenceSource::FindRecord(const std::wstring& id)
{
    List();
    const auto found = m_places.find(id);
    return found == m_places.end() ? nullptr : &m_records[found->second];
}

Bytes PreferenceSource::ReadBytes(unsigned __int64 offset, unsigned __int64 size) const
{
    Bytes bytes;
    CXFile file;
    if (!file.Open(XFromQString(m_path), CXFile::modeRead | CXFile::shareDenyNone))
        return bytes;
    try
    {
        if (offset < file.GetLength())
        {
            bytes.resize(static_cast<std::size_t>(std::min(size, file.GetLength() - offset)));
            file.Seek(static_cast<__int64>(offset), CXFile::begin);
            bytes.resize(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
        }
    }
    catch (CXException* failure)
    {
        FailedBy(failure);
        bytes.clear();
    }
    return bytes;
}

/// Without reading the whole file, unless that was replaced meanwhile.
bool PreferenceSource::LoadRecord(const Record& record, CCustomData& store) const
{
    const XPreferenceRecord& where = record.m_record;
    const Bytes bytes = ReadBytes(where.m_offset, where.m_size);
    return (bytes.size() == where.m_size && LoadLittleEndian<unsigned>(bytes.data()) == where.m_key1 &&
            LoadLittleEndian<unsigned>(bytes.data() + 4) == where.m_key2 &&
            store.SerializeFromData(bytes.data() + kKeysSize, bytes.size() - kKeysSize)) ||
           (!record.m_isHidden && store.LoadFromPrefs(XFromQString(m_path), where.m_key1, where.m_key2, false));
}

const CCustomData* PreferenceSource::Load(const Place& place)
{
    const Record* const record = place.empty() ? nullptr : FindRecord(place.front());
    if (record == nullptr || !record->m_record.m_isSound)
        return nullptr;
    std::unique_ptr<CCustomData>& store = m_stores[place.front()];
    if (store == nullptr)
    {
        auto loaded = std::make_unique<CCustomData>();
        if (!LoadRecord(*record, *loaded))
            return nullptr;
        store = std::move(loaded);
    }
    if (place.size() == 1)
        return store.get();
    if (m_open != nullptr && m_openPlace == place)
        return m_open.get();
    auto within = std::make_unique<CCustomData>(*store);
    for (std::size_t i = 1; i < place.size(); ++i)
    {
        auto next = std::make_unique<CCustomData>();
        if (!within->GetCustomData(NumberOf(place[i]), *next))
            return nullptr;
        within = std::move(next);
    }
    m_open = std::move(within);
    m_openPlace = place;
    return m_open.get();
}

/// The stores of the file, which are looked into one by one.
class PreferenceSource::StoreLister : public Lister
{
public:
    explicit StoreLister(const PreferenceSource& source) : m_source(source), m_records(source.m_records)
    {
        m_fault = source.m_fault;
    }

    bool Next(Item& item) override
    {
        if (m_next == m_records.size())
            return false;
        const Record& record = m_records[m_next++];
        item = {record.m_id, m_source.GetPlaceText({record.m_id}), {}, false};
        CCustomData store;
        if (!record.m_record.m_isSound)
            item.m_fault = XInLanguage(u"These bytes of the file are no store: they are damaged.",
                                       u"Ces octets du fichier ne forment pas un magasin : ils sont endommagés.");
        else if (record.m_isHidden)
            item.m_fault =
                XInLanguage(u"An earlier store has the same keys, so that programs do not find this one.",
                            u"Un magasin précédent a les mêmes clés : les programmes ne trouvent pas celui-ci.");
        item.m_hasMore = record.m_record.m_isSound && m_source.LoadRecord(record, store) && HasStores(store);
        return true;
    }

private:
    const PreferenceSource& m_source;
    std::vector<Record> m_records; // as they were when the list was begun
    std::size_t m_next = 0;
};

std::unique_ptr<Lister> PreferenceSource::ListNodes(const Place& place)
{
    if (place.empty())
    {
        List();
        return std::make_unique<StoreLister>(*this);
    }
    std::vector<Item> items;
    const CCustomData* const store = place.size() < kDeepestStore ? Load(place) : nullptr;
    unsigned kind = 0;
    for (unsigned i = 0; store != nullptr && i < store->GetIDCount(); ++i)
    {
        const unsigned id = store->GetIDByIndex(i, kind);
        CCustomData within;
        if (kind == CCustomData::kCustomData && store->GetCustomData(id, within))
        {
            items.push_back({IdOf(id), CodeText(id), {}, HasStores(within)});
        }
    }
    std::sort(items.begin(), items.end(), [](const Item& left, const Item& right) { return left.m_id < right.m_id; });
    return std::make_unique<ItemList>(std::move(items));
}

std::unique_ptr<Lister> PreferenceSource::ListValues(const Place& place)
{
    const Record* const record = place.empty() ? nullptr : FindRecord(place.front());
    if (record == nullptr)
        return std::make_unique<ItemList>(std::vector<Item>());
    if (!record->m_record.m_isSound)
        return std::make_unique<ItemList>(
            std::vector<Item>{{record->m_id, XInLanguage(u"(damaged)", u"(endommagé)"), {}, false}});
    std::vector<Item> items;
    const CCustomData* const store = Load(place);
    unsigned kind = 0;
    for (unsigned i = 0; store != nullptr && i < store->GetIDCount(); ++i)
    {
        const unsigned id = store->GetIDByIndex(i, kind);
        items.push_back({IdOf(id), CodeText(id), {}, false});
    }
    std::sort(items.begin(), items.end(), [](const Item& left, const Item& right) { return left.m_id < right.m_id; });
    return std::make_unique<ItemList>(
        std::move(items),
        store != nullptr ? QString() : XInLanguage(u"The store cannot be read.", u"Le magasin est illisible."));
}

Reading PreferenceSource::Read(const Place& place, const std::wstring& id, unsigned __int64 largest)
{
    Reading reading;
    const Record* const record = place.empty() ? nullptr : FindRecord(place.front());
    if (record != nullptr && !record->m_record.m_isSound)
    {
        reading.m_isThere = true;
        reading.m_size = record->m_record.m_size;
        reading.m_value = Value{0, ReadBytes(record->m_record.m_offset, std::min(reading.m_size, kShownDamage))};
        reading.m_fault =
            XInLanguage(u"damaged: what stands there, as bytes", u"endommagé : ce qui s'y trouve, en octets");
        return reading;
    }
    const CCustomData* const store = Load(place);
    if (store == nullptr || !store->HasData(NumberOf(id)))
        return reading;
    reading.m_isThere = true;
    reading.m_size = store->GetDataSize(NumberOf(id));
    if (reading.m_size <= largest)
        reading.m_value = ValueIn(*store, NumberOf(id));
    return reading;
}

// Saving writes a new file beside the old one.
QString PreferenceSource::WhyReadOnly(const Place& place)
{
    const Record* const record = place.empty() ? nullptr : FindRecord(place.front());
    if (record != nullptr && !record->m_record.m_isSound)
        return XInLanguage(u"What is damaged cannot be changed.", u"Ce qui est endommagé ne peut pas être modifié.");
    if (record != nullptr && record->m_isHidden)
        return XInLanguage(u"An earlier store has the same keys.", u"Un magasin précédent a les mêmes clés.");
    const QFileInfo file(m_path);
    if ((file.exists() && !file.isWritable()) || !QFileInfo(file.path()).isWritable())
        return XInLanguage(u"The file or its folder may not be written.",
                           u"Le fichier ou son dossier ne peut pas être modifié.");
    return {};
}

std::optional<std::wstring> PreferenceSource::ParseValueId(const QString& text) const
{
    const std::optional<unsigned> code = ParseCode(text);
    return code ? std::optional(IdOf(*code)) : std::nullopt;
}

std::optional<std::wstring> PreferenceSource::ParseNodeId(const QString& text) const
{
    static const QRegularExpression kKeys(QStringLiteral("^\\s*('.{4}'|\\S+?)(?:\\s*,\\s*|\\s+)('.{4}'|\\S+)\\s*$"));
    const QRegularExpressionMatch match = kKeys.match(text);
    const std::optional<unsigned> first = ParseCode(match.captured(1));
    const std::optional<unsigned> second = ParseCode(match.captured(2));
    return first && second ? std::optional(IdOf(*first) + IdOf(*second)) : std::nullopt;
}

bool PreferenceSource::MayRepair()
{
    std::vector<XPreferenceRecord> records;
    try
    {
        return !fileExists(XFromQString(m_path)) || XListPreferences(XFromQString(m_path), records);
    }
    catch (CXException* failure)
    {
        FailedBy(failure);
        return true; // the edit itself will tell
    }
}

/// Changes a store under the lock of its folder.
template <class Change>
Result PreferenceSource::Update(const std::wstring& id, Change change)
{
    if (!TakeRepairPermission() && !MayRepair())
        return {Outcome::kDamaged, XInLanguage(u"The file is damaged.", u"Le fichier est endommagé.")};
    Result result;
    try
    {
        if (!XUpdatePreferences(XFromQString(m_path), NumberOf(id), NumberOf(id, 8), change))
            result = {Outcome::kFailed, XToQString(XLastFailure().GetText())};
    }
    catch (const Refusal& refusal)
    {
        result = refusal.m_result;
    }
    catch (CXException* failure)
    {
        result = FailedBy(failure);
    }
    Refresh();
    return result;
}

Result PreferenceSource::Apply(const ValueEdit& edit)
{
    return Update(edit.m_place.front(), [&](CCustomData& store) { ChangeIn(store, edit, 1); });
}

Result PreferenceSource::Apply(const NodeEdit& edit)
{
    const std::wstring& id = edit.m_place.front();
    const auto load = [](const std::optional<Bytes>& bytes) {
        CCustomData store;
        if (bytes && !store.SerializeFromData(bytes->data(), bytes->size()))
            throw Refusal{{Outcome::kFailed, XInLanguage(u"It is no store.", u"Ce n'est pas un magasin.")}};
        return store;
    };
    Refresh();
    const bool isThere = FindRecord(id) != nullptr;
    if (isThere != edit.m_before.has_value())
        return {Outcome::kChanged, {}};
    if (edit.m_after)
        return Update(id, [&](CCustomData& store) {
            if (!store.IsEqual(load(edit.m_before)))
                throw Refusal{{Outcome::kChanged, {}}};
            store = load(edit.m_after);
        });
    if (!XRemovePreference(XFromQString(m_path), NumberOf(id), NumberOf(id, 8), load(edit.m_before)))
    {
        constexpr unsigned kChangedMeanwhile = 1237;
        const XFailure failure = XLastFailure();
        return {failure.GetSystemError() == kChangedMeanwhile ? Outcome::kChanged : Outcome::kFailed,
                XToQString(failure.GetText())};
    }
    Refresh();
    return {};
}

std::optional<Bytes> PreferenceSource::Snapshot(const Place& place, QString& reason)
{
    const CCustomData* const store = place.size() == 1 ? Load(place) : nullptr;
    if (store != nullptr)
        return BytesOf(*store);
    reason = XInLanguage(u"The store cannot be read.", u"Le magasin est illisible.");
    return {};
}

Bytes PreferenceSource::EmptySnapshot(const Place&) const
{
    return BytesOf(CCustomData());
}
} // namespace tev::browser
