// Preference files of arbitrary bytes: how they are split into records, which stores are found in them, and what
// `tev settings` shows.

#include "settings/CCustomData.h"
#include "settings/PreferenceRecords.h"
#include "tools/tev/SettingsValues.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace
{
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kCountSize = 4;
constexpr std::size_t kKeysSize = 8;

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

void Show(const CCustomData& store)
{
    using namespace tev::tool;
    unsigned kind = 0;
    for (unsigned index = 0; index < store.GetIDCount(); ++index)
    {
        const unsigned id = store.GetIDByIndex(index, kind);
        Check(!KindName(kind).empty());
        ValueText(store, id);
    }
    Check(StoreJson(store).front() == '[');
    store.DumpCustomData(true, 0);
}

/// The first sound record of its keys is the one that is found.
void Find(const Bytes& file, const std::vector<XPreferenceRecord>& records, const XPreferenceRecord& record)
{
    CCustomData store;
    const auto at = static_cast<std::size_t>(record.m_offset + kKeysSize);
    Check(store.SerializeFromData(file.data() + at, record.m_size - kKeysSize));
    Check(store.GetIDCount() == record.m_valueCount);
    Show(store);

    XPreferenceRecord found;
    tev::FindPreference(file, record.m_key1, record.m_key2, found, store);
    std::size_t first = 0;
    while (!records[first].m_isSound || records[first].m_key1 != record.m_key1 ||
           records[first].m_key2 != record.m_key2)
        ++first;
    Check(found.m_isSound && found.m_offset == records[first].m_offset);
    Check(store.GetIDCount() == records[first].m_valueCount);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Bytes file(data, data + size);
    std::vector<XPreferenceRecord> records;
    const bool isSound = tev::SplitPreferences(file, records);
    unsigned __int64 at = kCountSize;
    unsigned searches = 0;
    for (const XPreferenceRecord& record : records)
    {
        Check(record.m_offset == at && record.m_size != 0 && (record.m_isSound || !isSound));
        at += record.m_size;
        if (record.m_isSound && ++searches < 8)
            Find(file, records, record);
    }
    Check(size <= kCountSize ? records.empty() : at == size);
    return 0;
}
