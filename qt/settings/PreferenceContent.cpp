#include "qt/settings/PreferenceContent.h"

#include "base/LittleEndian.h"
#include "files/CXFile.h"
#include "objects/CXException.h"
#include "qt/settings/Transfer.h"
#include "qt/toolkit/QtText.h"

#include <QSet>

#include <algorithm>
#include <cwchar>

namespace tev::browser
{
namespace
{
constexpr std::size_t kDeepestStore = 64;
constexpr std::size_t kKeysSize = 8;
constexpr unsigned __int64 kReadStep = 1 << 20;
constexpr std::size_t kKeptStores = 4;

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

void SortById(std::vector<Item>& items)
{
    std::sort(items.begin(), items.end(), [](const Item& left, const Item& right) { return left.m_id < right.m_id; });
}
} // namespace

std::wstring IdOf(unsigned number)
{
    wchar_t text[9];
    std::swprintf(text, 9, L"%08x", number);
    return text;
}

unsigned NumberOf(const std::wstring& id, std::size_t at)
{
    return id.size() < at + 8 || id.front() == kDamageMark
               ? 0
               : static_cast<unsigned>(std::stoul(id.substr(at, 8), nullptr, 16));
}

QString PreferencePlaceText(const Place& place)
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

const PreferenceListing::Record* PreferenceListing::Find(const std::wstring& id) const
{
    const auto found = m_places.find(id);
    return found == m_places.end() ? nullptr : &m_records[found->second];
}

void PreferenceContent::Forget()
{
    m_listing.reset();
    m_stores.clear();
    m_open.reset();
    m_openPlace.clear();
}

std::shared_ptr<const PreferenceListing> PreferenceContent::List()
{
    if (m_listing != nullptr)
        return m_listing;
    const auto listing = std::make_shared<PreferenceListing>();
    std::vector<XPreferenceRecord> records;
    try
    {
        listing->m_isSound = XListPreferences(XFromQString(m_path), records);
    }
    catch (CXException* failure)
    {
        listing->m_fault = ReasonOf(failure); // nothing is known to be damaged
    }
    if (!listing->m_isSound)
        listing->m_fault = XInLanguage(u"The file is damaged.", u"Le fichier est endommagé.");
    QSet<quint64> keys;
    for (const XPreferenceRecord& record : records)
    {
        PreferenceListing::Record entry{{}, record, false};
        const quint64 both = quint64{record.m_key1} << 32 | record.m_key2;
        entry.m_id = IdOf(record.m_key1) + IdOf(record.m_key2);
        entry.m_isHidden = record.m_isSound && keys.contains(both);
        if (!record.m_isSound || entry.m_isHidden)
            entry.m_id =
                (record.m_isSound ? entry.m_id : std::wstring()) + kDamageMark + std::to_wstring(record.m_offset);
        else
            keys.insert(both);
        listing->m_records.push_back(std::move(entry));
    }
    // Saving moves a store to the front; here it stays where it is.
    std::sort(listing->m_records.begin(), listing->m_records.end(), [](const auto& left, const auto& right) {
        return std::make_pair(!left.m_record.m_isSound, left.m_id) <
               std::make_pair(!right.m_record.m_isSound, right.m_id);
    });
    for (std::size_t i = 0; i < listing->m_records.size(); ++i)
        listing->m_places.emplace(listing->m_records[i].m_id, i);
    m_listing = listing;
    return listing;
}

/// Empty where reading was given up, too.
Bytes PreferenceContent::ReadBytes(unsigned __int64 offset, unsigned __int64 size) const
{
    Bytes bytes;
    CXFile file;
    if (!file.Open(XFromQString(m_path), CXFile::modeRead | CXFile::shareDenyNone))
        return bytes;
    try
    {
        const unsigned __int64 length = file.GetLength();
        const unsigned __int64 end = std::min(size, length - std::min(offset, length)) + offset;
        file.Seek(static_cast<__int64>(offset), CXFile::begin);
        for (unsigned __int64 at = offset; at < end; at = offset + bytes.size())
        {
            const auto step = static_cast<unsigned>(std::min(end - at, kReadStep));
            const std::size_t before = bytes.size();
            bytes.resize(before + step);
            const unsigned got = file.Read(bytes.data() + before, step);
            bytes.resize(before + got);
            if (got == 0) // it was cut meanwhile
                break;
            if (m_state == nullptr)
                continue;
            m_state->SetProgress(static_cast<int>((at + step) * 100 / length));
            if (m_state->IsCancelled())
                return {};
        }
    }
    catch (CXException* failure)
    {
        ReasonOf(failure);
        bytes.clear();
    }
    return bytes;
}

/// Without reading the whole file, unless that was replaced meanwhile.
bool PreferenceContent::LoadRecord(const PreferenceListing::Record& record, CCustomData& store) const
{
    const XPreferenceRecord& where = record.m_record;
    const Bytes bytes = ReadBytes(where.m_offset, where.m_size);
    return (bytes.size() == where.m_size && LoadLittleEndian<unsigned>(bytes.data()) == where.m_key1 &&
            LoadLittleEndian<unsigned>(bytes.data() + 4) == where.m_key2 &&
            store.SerializeFromData(bytes.data() + kKeysSize, bytes.size() - kKeysSize)) ||
           (!record.m_isHidden && (m_state == nullptr || !m_state->IsCancelled()) &&
            store.LoadFromPrefs(XFromQString(m_path), where.m_key1, where.m_key2, false));
}

std::shared_ptr<const CCustomData> PreferenceContent::Load(const Place& place)
{
    const auto listing = List();
    const PreferenceListing::Record* const record = place.empty() ? nullptr : listing->Find(place.front());
    if (record == nullptr || !record->m_record.m_isSound)
        return nullptr;
    std::shared_ptr<const CCustomData> store = m_stores[place.front()];
    if (store == nullptr)
    {
        auto loaded = std::make_shared<CCustomData>();
        if (!LoadRecord(*record, *loaded))
            return nullptr;
        if (m_stores.size() > kKeptStores)
            m_stores.clear();
        store = m_stores[place.front()] = std::move(loaded);
    }
    if (place.size() == 1)
        return store;
    if (m_open != nullptr && m_openPlace == place)
        return m_open;
    for (std::size_t i = 1; i < place.size(); ++i)
    {
        auto next = std::make_shared<CCustomData>();
        if (!store->GetCustomData(NumberOf(place[i]), *next))
            return nullptr;
        store = std::move(next);
    }
    m_open = store;
    m_openPlace = place;
    return store;
}

/// The stores of the file, which are looked into one by one.
class PreferenceContent::StoreLister : public Lister
{
public:
    explicit StoreLister(PreferenceContent& content) : m_content(content), m_listing(content.List())
    {
        m_fault = m_listing->m_fault;
    }

    bool Next(Item& item) override
    {
        if (m_next == m_listing->m_records.size())
            return false;
        const PreferenceListing::Record& record = m_listing->m_records[m_next++];
        item = {record.m_id, PreferencePlaceText({record.m_id}), {}, false};
        CCustomData store;
        if (!record.m_record.m_isSound)
            item.m_fault = XInLanguage(u"These bytes of the file are no store: they are damaged.",
                                       u"Ces octets du fichier ne forment pas un magasin : ils sont endommagés.");
        else if (record.m_isHidden)
            item.m_fault =
                XInLanguage(u"An earlier store has the same keys, so that programs do not find this one.",
                            u"Un magasin précédent a les mêmes clés : les programmes ne trouvent pas celui-ci.");
        item.m_hasMore = record.m_record.m_isSound && m_content.LoadRecord(record, store) && HasStores(store);
        return true;
    }

private:
    PreferenceContent& m_content;
    const std::shared_ptr<const PreferenceListing> m_listing; // as it was when the list was begun
    std::size_t m_next = 0;
};

std::unique_ptr<Lister> PreferenceContent::ListNodes(const Place& place)
{
    if (place.empty())
        return std::make_unique<StoreLister>(*this);
    std::vector<Item> items;
    const std::shared_ptr<const CCustomData> store = place.size() < kDeepestStore ? Load(place) : nullptr;
    unsigned kind = 0;
    for (unsigned i = 0; store != nullptr && i < store->GetIDCount(); ++i)
    {
        const unsigned id = store->GetIDByIndex(i, kind);
        CCustomData within;
        if (kind == CCustomData::kCustomData && store->GetCustomData(id, within))
            items.push_back({IdOf(id), CodeText(id), {}, HasStores(within)});
    }
    SortById(items);
    return std::make_unique<ItemList>(std::move(items));
}

std::unique_ptr<Lister> PreferenceContent::ListValues(const Place& place)
{
    const auto listing = List();
    const PreferenceListing::Record* const record = place.empty() ? nullptr : listing->Find(place.front());
    if (record == nullptr)
        return std::make_unique<ItemList>(std::vector<Item>());
    if (!record->m_record.m_isSound)
        return std::make_unique<ItemList>(
            std::vector<Item>{{record->m_id, XInLanguage(u"(damaged)", u"(endommagé)"), {}, false}});
    std::vector<Item> items;
    const std::shared_ptr<const CCustomData> store = Load(place);
    unsigned kind = 0;
    for (unsigned i = 0; store != nullptr && i < store->GetIDCount(); ++i)
    {
        const unsigned id = store->GetIDByIndex(i, kind);
        items.push_back({IdOf(id), CodeText(id), {}, false});
    }
    SortById(items);
    return std::make_unique<ItemList>(
        std::move(items),
        store != nullptr ? QString() : XInLanguage(u"The store cannot be read.", u"Le magasin est illisible."));
}
} // namespace tev::browser
