#include "qt/settings/PreferenceSource.h"

#include "base/LittleEndian.h"
#include "objects/CXException.h"
#include "objects/LastFailure.h"
#include "qt/settings/Transfer.h"
#include "qt/toolkit/QtText.h"
#include "services/Paths.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <limits>

namespace tev::browser
{
namespace
{
constexpr std::size_t kChunkHeader = 12;
constexpr unsigned __int64 kShownDamage = 65536; // bytes of a damaged record that are shown

/// Thrown out of a change of a store: what is there is not what the edit has seen, or cannot be kept.
struct Refusal
{
    Result m_result;
};

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

} // namespace

PreferenceSource::PreferenceSource(const QString& path, __int64 largest)
    : m_path(path), m_largest(largest), m_content(path)
{
    PreferenceSource::Refresh();
}

std::unique_ptr<SettingsSource> PreferenceSource::Clone() const
{
    return std::make_unique<PreferenceSource>(m_path, std::numeric_limits<__int64>::max());
}

std::optional<int> PreferenceSource::GetReadProgress() const
{
    return m_reader != nullptr ? m_reader->GetProgress() : std::nullopt;
}

void PreferenceSource::CancelReading()
{
    if (m_reader != nullptr)
        m_reader->Cancel();
}

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
    return PreferencePlaceText(place);
}

QString PreferenceSource::GetValueName(const std::wstring& id) const
{
    return CodeText(NumberOf(id));
}

void PreferenceSource::Refresh()
{
    m_content.Forget();
    if (QFileInfo(m_path).size() <= m_largest)
        m_reader.reset();
    else if (m_reader == nullptr)
        m_reader = std::make_unique<PreferenceReader>(m_path);
    else
        m_reader->Refresh();
}

std::shared_ptr<const PreferenceListing> PreferenceSource::List()
{
    static const auto kNothing = std::make_shared<const PreferenceListing>();
    std::shared_ptr<const PreferenceListing> listing = m_reader != nullptr ? m_reader->GetListing() : m_content.List();
    return listing != nullptr ? listing : kNothing;
}

std::shared_ptr<const CCustomData> PreferenceSource::Load(const Place& place)
{
    return m_reader != nullptr ? m_reader->GetStore(place) : m_content.Load(place);
}

QString PreferenceSource::GetFault()
{
    return List()->m_fault;
}

std::unique_ptr<Lister> PreferenceSource::ListNodes(const Place& place)
{
    return m_reader != nullptr ? m_reader->ListNodes(place) : m_content.ListNodes(place);
}

std::unique_ptr<Lister> PreferenceSource::ListValues(const Place& place)
{
    return m_reader != nullptr ? m_reader->ListValues(place) : m_content.ListValues(place);
}

Reading PreferenceSource::Read(const Place& place, const std::wstring& id, unsigned __int64 largest)
{
    Reading reading;
    const auto listing = List();
    const PreferenceListing::Record* const record = place.empty() ? nullptr : listing->Find(place.front());
    if (record != nullptr && !record->m_record.m_isSound)
    {
        reading.m_isThere = true;
        reading.m_size = record->m_record.m_size;
        reading.m_value =
            Value{0, m_content.ReadBytes(record->m_record.m_offset, std::min(reading.m_size, kShownDamage))};
        reading.m_fault =
            XInLanguage(u"damaged: what stands there, as bytes", u"endommagé : ce qui s'y trouve, en octets");
        return reading;
    }
    const std::shared_ptr<const CCustomData> store = Load(place);
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
    const auto listing = List();
    const PreferenceListing::Record* const record = place.empty() ? nullptr : listing->Find(place.front());
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
        ReasonOf(failure);
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
        result = {Outcome::kFailed, ReasonOf(failure)};
    }
    Refresh();
    return result;
}

Result PreferenceSource::Apply(const ValueEdit& edit)
{
    return Update(edit.m_place.front(), [&](CCustomData& store) { ChangeIn(store, edit, 1); });
}

bool PreferenceSource::HasNode(const Place& place)
{
    return List()->Find(place.front()) != nullptr;
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
    if (HasNode(edit.m_place) != edit.m_before.has_value())
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
    const std::shared_ptr<const CCustomData> store = place.size() == 1 ? Load(place) : nullptr;
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
