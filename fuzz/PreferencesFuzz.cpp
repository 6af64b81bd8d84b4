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
    Check(StoreJson(store).Text().front() == '[');
    store.DumpCustomData(true, 0);
}

void LoadRecord(const Bytes& file, const XPreferenceRecord& record)
{
    CCustomData store;
    const auto at = static_cast<std::size_t>(record.m_offset + kKeysSize);
    Check(store.SerializeFromData(file.data() + at, record.m_size - kKeysSize));
    Check(store.GetIDCount() == record.m_valueCount);
    Show(store);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Bytes file(data, data + size);
    std::vector<XPreferenceRecord> records;
    const bool isSound = tev::SplitPreferences(file, records);
    unsigned __int64 at = kCountSize;
    unsigned loads = 0;
    for (const XPreferenceRecord& record : records)
    {
        Check(record.m_offset == at && record.m_size != 0 && (record.m_isSound || !isSound));
        at += record.m_size;
        if (record.m_isSound && ++loads < 8)
            LoadRecord(file, record);
    }
    Check(size <= kCountSize ? records.empty() : at == size);
    return 0;
}
