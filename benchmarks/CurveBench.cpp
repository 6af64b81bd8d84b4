// Cost over size, from 10 to 10 million, for the pictures of scripts/bench --plot. A curve that bends shows where something
// leaves a cache, or is not linear. Each benchmark counts items.

#include "arrays/CElementArray.h"
#include "arrays/CXArray.h"
#include "arrays/ElementKinds.h"
#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "maps/CHashMap.h"
#include "services/CWatchFolder.h"
#include "settings/CCustomData.h"
#include "tests/support/TempFolder.h"
#include "zip/CZip.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
namespace fs = std::filesystem;
using tev::test::TempFolder;

constexpr std::int64_t kSmallest = 10;
constexpr std::int64_t kLargest = 10'000'000;

unsigned SizeOf(const benchmark::State& state)
{
    return static_cast<unsigned>(state.range(0));
}

void CountItems(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// All different, in no order.
unsigned KeyAt(unsigned i)
{
    const unsigned key = i * 0x7FEB352DU;
    return (key ^ (key >> 15)) * 0x846CA68BU;
}

void FillMap(CHashMap<unsigned, unsigned, unsigned>& map, unsigned size)
{
    for (unsigned i = 0; i < size; ++i)
        map.Insert(KeyAt(i), i);
}

void FillMap(std::unordered_map<unsigned, unsigned>& map, unsigned size)
{
    for (unsigned i = 0; i < size; ++i)
        map.emplace(KeyAt(i), i);
}

bool Has(const CHashMap<unsigned, unsigned, unsigned>& map, unsigned key)
{
    return map.IsFound(key);
}

bool Has(const std::unordered_map<unsigned, unsigned>& map, unsigned key)
{
    return map.find(key) != map.end();
}

template <class MAP>
void MapInserts(benchmark::State& state)
{
    for (auto _ : state)
    {
        MAP map;
        FillMap(map, SizeOf(state));
        benchmark::DoNotOptimize(map);
    }
    CountItems(state);
}

// In another order than they went in.
template <class MAP>
void MapFinds(benchmark::State& state)
{
    MAP map;
    const unsigned size = SizeOf(state);
    FillMap(map, size);
    for (auto _ : state)
    {
        unsigned found = 0;
        for (unsigned i = 0, at = 0; i < size; ++i, at = (at + 7919) % size)
            found += Has(map, KeyAt(at)) ? 1 : 0;
        benchmark::DoNotOptimize(found);
    }
    CountItems(state);
}

void ArrayOurs(benchmark::State& state)
{
    for (auto _ : state)
    {
        CXArray<int, int> array(true);
        for (int i = 0; i < state.range(0); ++i)
            array.Add(i);
        benchmark::DoNotOptimize(array.GetData());
    }
    CountItems(state);
}

void ElementsOurs(benchmark::State& state)
{
    for (auto _ : state)
    {
        CElementArray array(new CXIntElements);
        for (int i = 0; i < state.range(0); ++i)
            array.Add(&i);
        benchmark::DoNotOptimize(array.GetFirst());
    }
    CountItems(state);
}

void VectorAppends(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::vector<int> array;
        for (int i = 0; i < state.range(0); ++i)
            array.push_back(i);
        benchmark::DoNotOptimize(array.data());
    }
    CountItems(state);
}

void StoreFills(benchmark::State& state)
{
    for (auto _ : state)
    {
        CCustomData store;
        for (unsigned i = 0; i < SizeOf(state); ++i)
            store.SetInt(KeyAt(i), 1);
        benchmark::DoNotOptimize(store);
    }
    CountItems(state);
}

// Every value in turn gets another size.
void StoreResizes(benchmark::State& state)
{
    CCustomData store;
    const unsigned size = SizeOf(state);
    for (unsigned i = 0; i < size; ++i)
        store.SetInt(KeyAt(i), 1);
    unsigned at = 0;
    bool isLong = true;
    for (auto _ : state)
    {
        if (isLong)
            store.SetLongInt(KeyAt(at), 1);
        else
            store.SetInt(KeyAt(at), 1);
        at = at + 1 == size ? 0 : at + 1;
        isLong = at == 0 ? !isLong : isLong;
    }
    state.SetItemsProcessed(state.iterations());
}

void ArchiveOurs(benchmark::State& state)
{
    for (auto _ : state)
    {
        CXMemFile file;
        CXArchive archive(&file, xArchiveStore);
        for (unsigned i = 0; i < SizeOf(state); ++i)
            archive << i;
        archive.Close();
    }
    CountItems(state);
}

void ArchiveVector(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::vector<unsigned char> bytes;
        for (unsigned i = 0; i < SizeOf(state); ++i)
        {
            bytes.resize(bytes.size() + sizeof i);
            std::memcpy(&*bytes.end() - sizeof i, &i, sizeof i);
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    CountItems(state);
}

/// An archive of empty entries, written as the format says.
class EmptyEntries
{
public:
    explicit EmptyEntries(std::uint64_t count) : m_file(m_folder.Path() / "entries.zip", std::ios::binary)
    {
        for (std::uint64_t i = 0; i < count; ++i)
            WriteLocal(i);
        const std::uint64_t start = m_offset;
        for (std::uint64_t i = 0; i < count; ++i)
            WriteCentral(i);
        WriteEnd(count, start);
        m_file.close();
    }

    std::wstring Path() const { return m_folder.WidePath("entries.zip"); }

private:
    static constexpr unsigned kNameLength = 12;
    static constexpr unsigned kLocalSize = 30 + kNameLength;

    void Number(std::uint64_t value, unsigned bytes)
    {
        for (unsigned i = 0; i < bytes; ++i)
            m_file.put(static_cast<char>(value >> (8 * i)));
        m_offset += bytes;
    }
    void Name(std::uint64_t i)
    {
        const std::string digits = std::to_string(i);
        m_file << "e/" << std::string(kNameLength - 2 - digits.size(), '0') << digits;
        m_offset += kNameLength;
    }
    // What both headers have: version, flags, method, time, date, checksum, sizes, lengths of name and extra field.
    void Common()
    {
        for (const unsigned field : {20, 0, 0, 0, 0x21})
            Number(field, 2);
        for (int i = 0; i < 3; ++i)
            Number(0, 4);
        Number(kNameLength, 2);
        Number(0, 2);
    }
    void WriteLocal(std::uint64_t i)
    {
        Number(0x04034B50, 4);
        Common();
        Name(i);
    }
    void WriteCentral(std::uint64_t i)
    {
        Number(0x02014B50, 4);
        Number(20, 2);
        Common();
        Number(0, 6);
        Number(0, 4);
        Number(i * kLocalSize, 4);
        Name(i);
    }
    void WriteEnd(std::uint64_t count, std::uint64_t start)
    {
        const std::uint64_t end = m_offset;
        Number(0x06064B50, 4);
        Number(44, 8);
        Number(45, 2);
        Number(45, 2);
        Number(0, 8);
        for (const std::uint64_t field : {count, count, end - start, start})
            Number(field, 8);
        Number(0x07064B50, 4);
        Number(0, 4);
        Number(end, 8);
        Number(1, 4);
        Number(0x06054B50, 4);
        Number(0, 4);
        for (int i = 0; i < 2; ++i)
            Number(count < 0xFFFF ? count : 0xFFFF, 2);
        Number(end - start, 4);
        Number(start, 4);
        Number(0, 2);
    }

    TempFolder m_folder;
    std::ofstream m_file;
    std::uint64_t m_offset = 0;
};

void ZipLists(benchmark::State& state)
{
    const EmptyEntries archive(SizeOf(state));
    for (auto _ : state)
    {
        CZip zip;
        CZipFileInfo info;
        if (!zip.Open(archive.Path(), zipOpenReadOnly, false, nullptr) || zip.GetCount(false) != state.range(0))
            state.SkipWithError("the archive cannot be listed");
        for (unsigned i = 0; i < SizeOf(state); ++i)
            zip.GetFileInfo(info, i);
        benchmark::DoNotOptimize(info);
    }
    CountItems(state);
}

// Folders in three levels.
void Watches(benchmark::State& state)
{
    const TempFolder folder;
    for (unsigned i = 1; i < SizeOf(state); ++i)
        fs::create_directories(folder.Path() / std::to_string(i / 10000) / std::to_string(i / 100) / std::to_string(i));
    for (auto _ : state)
    {
        CWatchFolder watcher;
        if (!watcher.AddRefreshNotification(folder.WidePath().c_str(), true, CWatchFolder::kFileNames))
            state.SkipWithError("cannot watch so many folders");
    }
    CountItems(state);
}

benchmark::internal::Benchmark* RegisterCurve(const char* name, void (*run)(benchmark::State&), std::int64_t largest)
{
    return benchmark::RegisterBenchmark((std::string("Curve/") + name).c_str(), run)
        ->RangeMultiplier(10)
        ->Range(kSmallest, largest);
}

const bool kRegistered = [] {
    using OurMap = CHashMap<unsigned, unsigned, unsigned>;
    using StandardMap = std::unordered_map<unsigned, unsigned>;
    RegisterCurve("MapInsert/ours", MapInserts<OurMap>, kLargest);
    RegisterCurve("MapInsert/std_unordered_map", MapInserts<StandardMap>, kLargest);
    RegisterCurve("MapFind/ours", MapFinds<OurMap>, kLargest);
    RegisterCurve("MapFind/std_unordered_map", MapFinds<StandardMap>, kLargest);
    RegisterCurve("ArrayAppend/ours", ArrayOurs, kLargest);
    RegisterCurve("ArrayAppend/CElementArray", ElementsOurs, kLargest);
    RegisterCurve("ArrayAppend/std_vector", VectorAppends, kLargest);
    RegisterCurve("StoreFill/ours", StoreFills, kLargest);
    RegisterCurve("StoreResize/ours", StoreResizes, kLargest);
    RegisterCurve("ArchiveStore/ours", ArchiveOurs, kLargest);
    RegisterCurve("ArchiveStore/std_vector", ArchiveVector, kLargest);
    RegisterCurve("ZipList/ours", ZipLists, kLargest);
    RegisterCurve("Watch/ours", Watches, 100'000)->UseRealTime();
    return true;
}();
} // namespace
