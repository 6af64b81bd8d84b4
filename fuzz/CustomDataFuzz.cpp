// Data stores from arbitrary bytes. The first byte chooses how they are loaded: through an archive, strict or not, from a
// file that exposes its buffer or not; or as a block of chunks, copied or attached. A refused input leaves the documented
// state; an accepted one is a consistent store, and stays one when it is changed.

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "settings/CCustomData.h"
#include "tests/support/BufferedMemFile.h"
#include "values/CXTime.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

namespace
{
constexpr unsigned kOwnId = 77;
constexpr unsigned kNoId = 0xFFFFFFFF;
constexpr unsigned kChunkHeader = 12;
constexpr unsigned __int64 kHeaders = 28; // signature, total and header of a saved store

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

unsigned NaiveChecksum(const unsigned char* bytes, unsigned size)
{
    unsigned hash = 0x811C9DC5;
    while (size-- != 0)
        hash = (hash ^ static_cast<unsigned>(static_cast<signed char>(bytes[size]))) * 16777619U;
    return hash;
}

/// Checks the store's queries against its block; returns the identifiers in the order of the block.
std::vector<unsigned> CheckValues(const CCustomData& store)
{
    unsigned used = 0;
    store.GetData(used);
    Check(store.HasData() == (used != 0));
    std::vector<unsigned> ids;
    std::set<unsigned> known;
    unsigned __int64 sum = 0;
    unsigned kind = 0;
    for (unsigned i = 0; i < store.GetIDCount(); ++i)
    {
        const unsigned id = store.GetIDByIndex(i, kind);
        unsigned size = 0;
        const auto* bytes = static_cast<const unsigned char*>(store.GetCustomPtr(id, size));
        Check(known.insert(id).second && store.HasData(id) && store.GetDataKindOf(id) == kind);
        Check(bytes != nullptr && store.GetDataSize(id) == size);
        Check(store.GetChecksum(id) == NaiveChecksum(bytes, size));
        ids.push_back(id);
        sum += kChunkHeader + size;
    }
    Check(sum == used);
    Check(store.GetIDByIndex(store.GetIDCount(), kind) == kNoId && kind == 0);
    for (unsigned i = store.GetIDCount(); i-- != 0;)
        Check(store.GetIDByIndex(i, kind) == ids[i]);
    return ids;
}

void CheckRoundTrip(const CCustomData& store)
{
    unsigned __int64 size = 0;
    void* block = store.SerializeToData(size);
    unsigned used = 0;
    store.GetData(used);
    Check(block != nullptr && size == (used == 0 ? 8 : kHeaders + used));
    CCustomData again;
    Check(again.SerializeFromData(block, size) && again.IsEqual(store) && store.IsEqual(again));
    unsigned __int64 sizeAgain = 0;
    void* blockAgain = again.SerializeToData(sizeAgain);
    Check(sizeAgain == size && std::memcmp(block, blockAgain, static_cast<std::size_t>(size)) == 0);
    CCustomData::Free(blockAgain);
    CCustomData::Free(block);
}

void GetEverything(const CCustomData& store, unsigned id)
{
    CXTString<wchar_t> wide;
    CXTString<char> narrow;
    CXArray<CXTString<wchar_t>> array;
    std::vector<CXTString<wchar_t>> list;
    CXTime moment;
    struct tm fields = {};
    double number = 0;
    void* pointer = nullptr;
    unsigned count = 0;
    store.GetStringW(id, wide, L"default");
    store.GetStringA(id, narrow, "default");
    Check(store.GetStringArray(id, array) == store.GetStringList(id, list));
    store.GetXTime(id, moment, moment);
    store.GetUTCTime(id, fields, fields);
    store.GetDouble(id, number, 1);
    store.GetPtr(id, pointer);
    const void* elements = store.GetArray(id, count);
    Check((elements == nullptr) == (count == 0) && count <= store.GetDataSize(id));
    CCustomData within;
    if (store.GetCustomData(id, within))
        CheckValues(within);
}

void UseStore(CCustomData& store)
{
    const std::vector<unsigned> ids = CheckValues(store);
    CheckRoundTrip(store);
    store.DumpCustomData(true, 2);
    for (const unsigned id : ids)
        GetEverything(store, id);

    const CCustomData copy = store;
    store.AddToCustomData(kOwnId, copy, 0);
    store.SetStringA(kOwnId, "moves what lies behind");
    for (std::size_t i = 0; i < ids.size(); i += 2)
        Check(store.RemoveCustom(ids[i]) && !store.HasData(ids[i]));
    store.ChangeID(kOwnId, kOwnId + 1);
    CheckValues(store);
    CheckRoundTrip(store);
    for (const unsigned id : ids)
        Check(store.CopyID(&copy, id));
    CheckValues(store);
}

void LoadAll(CXFile& file, unsigned mode)
{
    CXArchive archive(&file, mode, 128);
    for (;;)
    {
        CCustomData store;
        store.SetInt(1, 2);
        try
        {
            store.Serialize(archive);
        }
        catch (CXException* exception)
        {
            exception->Delete();
            Check(!store.HasData() && store.GetIDCount() == 0);
            return;
        }
        UseStore(store);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t* block = data + 1;
    const auto blockSize = static_cast<unsigned>(size - 1);
    const unsigned mode = xArchiveLoad | ((data[0] & 4) != 0 ? xArchiveStrict : 0);
    CCustomData store;
    store.SetInt(1, 2);
    const CCustomData before = store;
    switch (data[0] % 4)
    {
    case 0: {
        CXMemFile file(block, blockSize, false);
        LoadAll(file, mode);
        return 0;
    }
    case 1: {
        tev::test::BufferedMemFile file(block, blockSize, false);
        LoadAll(file, mode);
        return 0;
    }
    case 2:
        if (!store.SetData(block, blockSize))
            Check(store.IsEqual(before));
        break;
    default: {
        void* owned = CCustomData::Alloc(blockSize);
        if (blockSize != 0)
            std::memcpy(owned, block, blockSize);
        if (!store.Attach(owned, blockSize))
            Check(!store.HasData());
        break;
    }
    }
    UseStore(store);
    return 0;
}
