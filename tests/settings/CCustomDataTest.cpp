#include "settings/CCustomData.h"

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "objects/CXSingleLock.h"
#include "tests/support/FileFailure.h"
#include "tests/support/PrintText.h"
#include "tests/support/TempFolder.h"
#include "values/CXTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{
using namespace std::string_literals;
using Bytes = std::string;

Bytes Number(std::uint32_t value)
{
    Bytes bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

Bytes Chunk(unsigned id, unsigned kind, const Bytes& data)
{
    return Number(id) + Number(static_cast<unsigned>(data.size())) + Number(kind) + data;
}

/// What a store of these chunks is in a file.
Bytes Stored(const Bytes& chunks, unsigned count, unsigned legacyMode = 0)
{
    const auto size = static_cast<unsigned>(chunks.size());
    return "5SUC" + Number(size + 20) + Number(1) + Number(count) + Number(size - 12 * count) + Number(legacyMode) +
           Number(0) + chunks;
}

Bytes ChunksOf(const CCustomData& store)
{
    unsigned size = 0;
    const void* data = store.GetData(size);
    return Bytes(static_cast<const char*>(data), size);
}

Bytes SerializedBytes(const CCustomData& store)
{
    unsigned __int64 size = 0;
    void* data = store.SerializeToData(size);
    const Bytes bytes(static_cast<const char*>(data), size);
    CCustomData::Free(data);
    return bytes;
}

bool Load(CCustomData& store, const Bytes& bytes)
{
    return CCustomData::SerializeFromData(store, bytes.data(), bytes.size());
}

std::vector<unsigned> Order(const CCustomData& store)
{
    std::vector<unsigned> ids;
    unsigned kind = 0;
    for (unsigned i = 0; i < store.GetIDCount(); ++i)
        ids.push_back(store.GetIDByIndex(i, kind));
    return ids;
}

/// One kind of value: how it is set, and a getter that returns whether it was found, and fails the test when it delivers
/// neither the value nor, when not found, the default.
struct KindCase
{
    unsigned m_kind;
    unsigned m_size;
    std::function<bool(CCustomData&, unsigned)> m_set;
    std::function<bool(const CCustomData&, unsigned)> m_get;
};

template <class T, class Set, class Get>
KindCase Scalar(unsigned kind, unsigned size, Set set, Get get, T value, T other)
{
    const auto getter = [get, value, other](const CCustomData& store, unsigned id) {
        T out = T();
        const bool found = (store.*get)(id, out, other);
        EXPECT_TRUE(found || out == other);
        return found && out == value;
    };
    return {kind, size, [set, value](CCustomData& store, unsigned id) { return (store.*set)(id, value); }, getter};
}

#define SCALAR(Name, type, kind, size, value)                                                                          \
    Scalar<type>(CCustomData::kind, size, &CCustomData::Set##Name,                                                     \
                 static_cast<bool (CCustomData::*)(unsigned, type&, type) const>(&CCustomData::Get##Name), value,      \
                 static_cast<type>(77))

const std::vector<KindCase> kAllKinds = [] {
    using Data = CCustomData;
    const auto text = [](auto set, auto get, auto value, unsigned kind, unsigned size) {
        using Text = decltype(value);
        return KindCase{kind, size, [=](Data& store, unsigned id) { return (store.*set)(id, value); },
                        [=](const Data& store, unsigned id) {
                            Text out;
                            const bool found = (store.*get)(id, out, Text("other"));
                            EXPECT_TRUE(found || out == Text("other"));
                            return found && out == value;
                        }};
    };
    return std::vector<KindCase>{
        SCALAR(Int, int, kInt, 4, -5),
        SCALAR(UInt, unsigned, kUInt, 4, 0xFFFFFFFE),
        SCALAR(Long, long, kLong, 4, std::numeric_limits<int>::min()),
        SCALAR(ULong, unsigned long, kULong, 4, 0xFFFFFFFF),
        SCALAR(LongInt, long long, kLongInt, 8, -0x123456789ABCDEFLL),
        SCALAR(ULongInt, unsigned long long, kULongInt, 8, ~0ULL),
        SCALAR(Sizet, size_t, kULongInt, 8, ~size_t{0}),
        SCALAR(Char, char, kChar, 1, '\x80'),
        SCALAR(UChar, unsigned char, kUChar, 1, 0xFF),
        SCALAR(Bool, int, kBool, 4, 1),
        SCALAR(Float, float, kFloat, 4, 1.5F),
        SCALAR(Double, double, kDouble, 8, -1e300),
        {Data::kPtr, 8, [](Data& store, unsigned id) { return store.SetPtr(id, &store); },
         [](const Data& store, unsigned id) { return store.GetPtr(id) == &store; }},
        text(&Data::SetStringW, &Data::GetStringW, CXTString<wchar_t>(L"a\U0001F600"), Data::kStringW, 8),
        text(&Data::SetStringA, &Data::GetStringA, CXTString<char>("abcd"), Data::kStringA, 5),
        {Data::kXTime, 8, [](Data& store, unsigned id) { return store.SetXTime(id, CXTime(-3)); },
         [](const Data& store, unsigned id) {
             CXTime time;
             return store.GetXTime(id, time, CXTime(9)) ? time == CXTime(-3) : time != CXTime(9);
         }},
        {Data::kBinary, 3, [](Data& store, unsigned id) { return store.SetBinary(id, "a\0b", 3); },
         [](const Data& store, unsigned id) {
             char out[3];
             return store.GetBinary(id, out, 3) && Bytes(out, 3) == "a\0b"s;
         }},
        {Data::kArray, 16, [](Data& store, unsigned id) { return store.SetArray(id, "aabbccddeeff", 4, 3); },
         [](const Data& store, unsigned id) {
             unsigned count = 7;
             const void* elements = store.GetArray(id, count);
             return elements == nullptr ? count != 0 : count == 3 && std::memcmp(elements, "aabbccddeeff", 12) == 0;
         }},
    };
}();

TEST(CCustomData, EveryKindIsGivenOutAsItselfAlone)
{
    for (const KindCase& set : kAllKinds)
    {
        CCustomData store;
        ASSERT_TRUE(set.m_set(store, 7));
        EXPECT_EQ(store.GetDataKindOf(7), set.m_kind);
        EXPECT_EQ(store.GetDataSize(7), set.m_size);
        for (const KindCase& get : kAllKinds)
        {
            EXPECT_EQ(get.m_get(store, 7), get.m_kind == set.m_kind && get.m_size == set.m_size)
                << std::hex << set.m_kind << " as " << get.m_kind;
            EXPECT_FALSE(get.m_get(store, 8));
        }
    }
}

TEST(CCustomData, OlderLayoutsAreReadByTheirSizeAlone)
{
    const Bytes records =
        Number(7) + Number(4) + Number(5) + Number(8) + Number(0) + Number(9) + Number(6) + "ab\0cde"s;
    const std::pair<Bytes, unsigned> layouts[] = {{"USUC" + Number(34) + records, 2},
                                                  {"TSUC" + Number(3) + records, 2}, // the empty value is no value
                                                  {"5SUC" + Number(20 + 16) + Number(1) + Number(1) + Number(4) +
                                                       Number(2) + Number(0) + Chunk(7, 0x1234, Number(5)),
                                                   1}};
    for (const auto& [layout, count] : layouts)
    {
        CCustomData store;
        ASSERT_TRUE(Load(store, layout)) << layout;
        EXPECT_EQ(store.GetIDCount(), count);
        unsigned number = 0;
        int other = 0;
        long long wide = 0;
        EXPECT_TRUE(store.GetUInt(7, number, 9) && store.GetInt(7, other, 9));
        EXPECT_EQ(number, 5U);
        EXPECT_FALSE(store.GetLongInt(7, wide, 9));
        CXTString<char> narrow;
        CXTString<wchar_t> text;
        EXPECT_EQ(store.GetStringA(9, narrow, "x"), count == 2);
        EXPECT_EQ(narrow, count == 2 ? "ab" : "x");
        EXPECT_EQ(store.GetString(9, text, L""), count == 2) << "any block of whole characters";
        // The mode is copied and saved with the store, until the contents are replaced.
        CCustomData copy(store);
        EXPECT_TRUE(Load(copy, SerializedBytes(store)));
        EXPECT_TRUE(copy.GetInt(7, other, 9));
        EXPECT_TRUE(copy.SetData(Chunk(7, CCustomData::kUInt, Number(5)).data(), 16));
        EXPECT_FALSE(copy.GetInt(7, other, 9));
        // And until the last value is removed, by itself or because one of another size takes its place.
        for (const bool isReplaced : {false, true})
        {
            copy = store;
            copy.RemoveCustom(9);
            EXPECT_TRUE(isReplaced || copy.RemoveCustom(7));
            copy.SetDouble(7, 1);
            EXPECT_FALSE(copy.GetLongInt(7, wide, 9));
        }

        for (size_t size = 0; size < layout.size(); ++size)
        {
            EXPECT_FALSE(Load(copy, layout.substr(0, size))) << size;
            EXPECT_FALSE(copy.HasData());
        }
    }
    CCustomData store;
    EXPECT_FALSE(Load(store, "USUC" + Number(33) + records)) << "a record past the end";
    EXPECT_FALSE(Load(store, "TSUC" + Number(2) + (Number(7) + Number(1) + "a") + (Number(7) + Number(1) + "b")));
    EXPECT_FALSE(store.HasData());
}

TEST(CCustomData, BytesAreTheDocumentedOnes)
{
    CCustomData store;
    EXPECT_EQ(SerializedBytes(store), "5SUC\0\0\0\0"s);
    store.SetInt(7, 5);
    store.SetString(0x01020304, L"\u00e9\U0001F600");
    store.SetStringList(2, {L"a", L"", L"\U0001F600"});
    struct tm time = {};
    time.tm_sec = 1;
    time.tm_year = -1;
    time.tm_isdst = 9;
    store.SetUTCTime(3, time);
    store.SetArray(4, "abcd", 2, 2);
    const Bytes text = "\xE9\0\x3D\xD8\x00\xDE\0\0"s;
    const Bytes list = Number(3) + Number(1) + "a\0"s + Number(0) + Number(2) + "\x3D\xD8\x00\xDE"s;
    const Bytes fields = Number(1) + Bytes(16, '\0') + Bytes(4, '\xFF') + Bytes(8, '\0') + Number(9);
    const Bytes chunks = "\7\0\0\0\4\0\0\0TNI \5\0\0\0"s + Chunk(0x01020304, 0x554E4943, text) +
                         Chunk(2, 0x55535452, list) + Chunk(3, 0x54494D45, fields) +
                         Chunk(4, 0x41525241, Number(2) + "abcd");
    const Bytes expected = Stored(chunks, 5);
    EXPECT_EQ(ChunksOf(store), chunks);
    EXPECT_EQ(SerializedBytes(store), expected);

    CXMemFile file;
    CXArchive storing(&file, xArchiveStore);
    store.Serialize(storing);
    storing.Close();
    EXPECT_EQ(Bytes(reinterpret_cast<const char*>(file.GetBuffer()), file.GetLength()), expected);

    CCustomData loaded;
    Bytes earlier = expected;
    earlier[0] = '4';
    earlier.replace(12, 4, Number(0x7FFFFFFF)); // the count is only a hint
    ASSERT_TRUE(Load(loaded, earlier));
    EXPECT_EQ(ChunksOf(loaded), chunks);
    struct tm out = {};
    EXPECT_TRUE(loaded.GetUTCTime(3, out, out) && out.tm_year == -1 && out.tm_isdst == 9 && out.tm_sec == 1);
    std::vector<CXTString<wchar_t>> strings(1);
    EXPECT_EQ(loaded.GetStringList(2, strings), 3U);
    EXPECT_EQ(strings, (std::vector<CXTString<wchar_t>>{L"a", L"", L"\U0001F600"}));
    CXArray<CXTString<wchar_t>> array;
    EXPECT_EQ(loaded.GetStringArray(2, array), 3U);
    EXPECT_EQ(array.GetSize(), 3);
    EXPECT_EQ(array[2], L"\U0001F600");
    EXPECT_TRUE(store.SetStringArray(2, array));
    EXPECT_EQ(ChunksOf(store), chunks);
    EXPECT_EQ(loaded.GetStringArray(7, array), 0U);
    EXPECT_EQ(array.GetSize(), 0);
    EXPECT_EQ(loaded.GetStringList(7, strings), 0U);
    EXPECT_TRUE(strings.empty());
    EXPECT_EQ(loaded.GetChecksum(4), [] {
        std::uint32_t sum = 0x811C9DC5;
        for (const char byte : {'d', 'c', 'b', 'a', '\0', '\0', '\0', '\2'})
            sum = (sum ^ static_cast<std::uint32_t>(byte)) * 16777619U;
        return sum;
    }());
    EXPECT_EQ(loaded.GetChecksum(99), 0x811C9DC5U);
}

TEST(CCustomData, DamagedBytesAreRefused)
{
    const Bytes one = Chunk(1, CCustomData::kInt, Number(5));
    const Bytes two = one + Chunk(2, CCustomData::kBinary, "abcdefg");
    const Bytes good = Stored(two, 2);
    const auto patched = [&good](size_t at, unsigned value) { return Bytes(good).replace(at, 4, Number(value)); };
    std::vector<Bytes> bad = {patched(8, 2),           patched(8, 0),          patched(4, 1),          patched(4, 19),
                              patched(4, 21),          patched(4, 0xFFFFFFFF), patched(0, 0x43555336), patched(32, 5),
                              patched(32, 0xFFFFFFF4), patched(44, 1),         Stored(one + one, 2),   patched(48, 8)};
    for (size_t size = 0; size < good.size(); ++size)
        bad.push_back(good.substr(0, size));
    for (const Bytes& bytes : bad)
    {
        CCustomData store;
        store.SetInt(1, 1);
        EXPECT_FALSE(Load(store, bytes)) << testing::PrintToString(bytes);
        EXPECT_FALSE(store.HasData());
        CXMemFile file(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), false);
        CXArchive archive(&file, xArchiveLoad);
        try
        {
            store.Serialize(archive);
            ADD_FAILURE() << testing::PrintToString(bytes);
        }
        catch (CXException* e)
        {
            const bool endsEarly = bytes.size() < 8; // inside signature or total
            EXPECT_EQ(dynamic_cast<CXArchiveException*>(e) != nullptr, endsEarly);
            EXPECT_EQ(dynamic_cast<CXFileException*>(e) != nullptr, !endsEarly);
            e->Delete();
        }
    }
    CCustomData store;
    EXPECT_TRUE(Load(store, patched(4, 20))) << "a header alone";
    EXPECT_FALSE(store.HasData());
    EXPECT_TRUE(Load(store, good + "more"));
    EXPECT_EQ(store.GetIDCount(), 2U);

    for (size_t size = 0; size <= two.size(); ++size)
    {
        const bool isGood = size == 0 || size == one.size() || size == two.size();
        CCustomData target;
        target.SetInt(9, 9);
        EXPECT_EQ(target.SetData(two.data(), static_cast<unsigned>(size)), isGood) << size;
        EXPECT_EQ(target.HasData(9), !isGood);
        void* block = CCustomData::Alloc(static_cast<unsigned>(size) + 1);
        std::memcpy(block, two.data(), size);
        EXPECT_EQ(target.Attach(block, static_cast<unsigned>(size)), isGood) << size;
        EXPECT_EQ(target.HasData(), isGood && size != 0);
    }
    EXPECT_FALSE(store.SetData((one + one).data(), 32));
    EXPECT_FALSE(store.SetData(nullptr, 1));
    EXPECT_FALSE(store.Attach(nullptr, 1));
}

TEST(CCustomData, OnlyAnotherSizeMovesAValueAndTheTimeStamp)
{
    CCustomData store;
    for (const unsigned id : {1U, 2U, 0xFFFFFFFFU})
        store.SetInt(id, 5);
    const unsigned __int64 stamp = store.GetTimeStamp();
    while (CCustomData().GetTimeStamp() == stamp)
        std::this_thread::yield();
    store.SetFloat(1, 2.5F);
    EXPECT_TRUE(store.ChangeID(2, 20) && store.RemoveCustom(0xFFFFFFFF));
    EXPECT_EQ(store.GetTimeStamp(), stamp);
    EXPECT_EQ(CCustomData(store).GetTimeStamp(), stamp);
    EXPECT_EQ(Order(store), (std::vector<unsigned>{1, 20}));
    EXPECT_EQ(store.GetDataKindOf(1), unsigned{CCustomData::kFloat});
    EXPECT_FALSE(store.ChangeID(1, 20) || store.ChangeID(2, 3) || store.RemoveCustom(2));
    store.SetDouble(1, 2.5);
    EXPECT_GT(store.GetTimeStamp(), stamp);
    EXPECT_EQ(Order(store), (std::vector<unsigned>{20, 1}));
    unsigned kind = 1;
    EXPECT_EQ(store.GetIDByIndex(2, kind), 0xFFFFFFFFU);
    EXPECT_EQ(kind, 0U);
    EXPECT_EQ(store.GetDataKindOf(2) + store.GetDataSize(2), 0U);
}

TEST(CCustomData, TextGoesToItsFirstNulOrToItsEnd)
{
    CCustomData store;
    CXTString<wchar_t> text;
    store.SetString(1, CXTString<wchar_t>(L"ab\0cd", 5));
    EXPECT_TRUE(store.GetString(1, text, L""));
    EXPECT_EQ(text, L"ab");
    const std::pair<Bytes, const wchar_t*> cases[] = {
        {"a\0b\0"s, L"ab"}, {"a\0\0\0b\0"s, L"a"},    {"", L""},
        {"a\0b"s, nullptr}, {"\x3D\xD8"s, L"\xD83D"}, {"\x00\xDE\x3D\xD8\x00\xDE"s, L"\xDE00\U0001F600"}};
    for (const auto& [bytes, expected] : cases)
    {
        const Bytes chunk = Chunk(1, CCustomData::kStringW, bytes);
        ASSERT_TRUE(store.SetData(chunk.data(), static_cast<unsigned>(chunk.size())));
        EXPECT_EQ(store.GetString(1, text, L"other"), expected != nullptr);
        EXPECT_EQ(text, expected == nullptr ? L"other" : expected);
    }
    const Bytes lists[] = {"",
                           "\1\0\0"s,
                           Number(1),
                           Number(1) + Number(1) + "a",
                           Number(0xFFFFFFFF),
                           Number(1) + Number(0xFFFFFFFF) + "a\0"s,
                           Number(0) + "a"};
    for (const Bytes& list : lists)
    {
        const Bytes chunk = Chunk(1, CCustomData::kStringList, list);
        ASSERT_TRUE(store.SetData(chunk.data(), static_cast<unsigned>(chunk.size())));
        std::vector<CXTString<wchar_t>> strings(2);
        EXPECT_EQ(store.GetStringList(1, strings) + strings.size(), 0U) << testing::PrintToString(list);
    }
    const Bytes arrays[] = {"", Number(0), Number(3) + "ab", Number(2) + "abc"};
    for (const Bytes& array : arrays)
    {
        const Bytes chunk = Chunk(1, CCustomData::kArray, array);
        ASSERT_TRUE(store.SetData(chunk.data(), static_cast<unsigned>(chunk.size())));
        unsigned count = 1;
        EXPECT_EQ(store.GetArray(1, count), nullptr);
        EXPECT_EQ(count, 0U);
    }
}

TEST(CCustomData, WhatDoesNotFitIsRefused)
{
    CCustomData store;
    store.SetInt(1, 1);
    const Bytes before = ChunksOf(store);
    EXPECT_FALSE(store.SetBinary(2, nullptr, 0xFFFFFFFF));
    EXPECT_FALSE(store.SetBinary(1, nullptr, 0xFFFFFFFF - 20 - 11)) << "no room for it and its header";
    EXPECT_FALSE(store.SetArray(1, nullptr, 0x10000, 0x10000));
    EXPECT_EQ(ChunksOf(store), before);
    if (sizeof(long) > 4)
    {
        const long tooLong = static_cast<long>(1LL << 31);
        EXPECT_EQ(tev::test::Thrown([&] { store.SetLong(1, tooLong); }), tev::test::kInvalidArgument);
        EXPECT_EQ(tev::test::Thrown([&] { store.SetULong(1, 2UL * tooLong); }), tev::test::kInvalidArgument);
        EXPECT_EQ(ChunksOf(store), before);
    }
    EXPECT_TRUE(store.SetArray(1, "x", 1, 0));
    EXPECT_FALSE(store.HasData(1));
    EXPECT_TRUE(store.SetArray(1, nullptr, 2, 3));
    EXPECT_EQ(ChunksOf(store), Chunk(1, CCustomData::kArray, Number(3) + Bytes(6, '\0')));
    int flag = 0;
    bool truth = false;
    store.SetBool(2, 0x100);
    EXPECT_TRUE(store.GetBool(2, flag, 0) && store.GetBool(2, truth, false) && truth);
    EXPECT_EQ(flag, 1);
}

struct Point : CCustomDataClass
{
    int m_x = 0;
    void SaveTo(CCustomData& data) const override { data.SetInt(1, m_x); }
    bool LoadFrom(const CCustomData& data) override { return data.GetInt(1, m_x, 0); }
};

TEST(CCustomData, StoresLieWithinStores)
{
    CCustomData store;
    CCustomData other;
    store.SetInt(1, 1);
    EXPECT_TRUE(store.SetCustomData(2, store)) << "a copy of itself";
    EXPECT_EQ(ChunksOf(store),
              Chunk(1, CCustomData::kInt, Number(1)) + Chunk(2, 0x43444132, Chunk(1, CCustomData::kInt, Number(1))));
    other.SetInt(1, 10);
    other.SetInt(3, 30);
    for (const int mode : {1, 0})
    {
        CCustomData merged;
        int value = 0;
        EXPECT_TRUE(store.AddToCustomData(2, other, mode));
        EXPECT_TRUE(store.GetCustomData(2, merged));
        EXPECT_TRUE(merged.GetInt(1, value, 0));
        EXPECT_EQ(value, mode == 1 ? 1 : 10);
        EXPECT_TRUE(merged.HasData(3));
    }
    Point point;
    point.m_x = 4;
    EXPECT_TRUE(store.SetCustomClass(5, point));
    point.m_x = 0;
    EXPECT_TRUE(store.GetCustomClass(5, point));
    EXPECT_EQ(point.m_x, 4);
    EXPECT_FALSE(store.GetCustomClass(1, point));
    EXPECT_FALSE(store.GetCustomClass(99, point));

    const Bytes damaged = Chunk(9, CCustomData::kCustomData, "short");
    CCustomData holder;
    ASSERT_TRUE(holder.SetData(damaged.data(), static_cast<unsigned>(damaged.size())));
    EXPECT_FALSE(holder.GetCustomData(9, other));
    EXPECT_TRUE(other.HasData(3)) << "left as it was";
    EXPECT_TRUE(holder.AddToCustomData(9, other, 1));
    EXPECT_TRUE(holder.GetCustomData(9, holder));
    EXPECT_TRUE(holder.IsEqual(other));
    EXPECT_TRUE(store.SetCustomData(2, CCustomData()));
    EXPECT_FALSE(store.HasData(2)) << "an empty store is not kept";
    EXPECT_TRUE(holder.CopyID(&store, 5) && holder.Copy(&store, 1) && holder.CopyID(&holder, 1, 77));
    EXPECT_FALSE(holder.CopyID(nullptr, 5) || holder.Copy(&store, 99));
    const Bytes saved = SerializedBytes(holder);
    other.SetBinary(1, saved.data(), static_cast<unsigned>(saved.size()));
    unsigned size = 0;
    const void* within = other.GetCustomPtr(1, size);
    EXPECT_TRUE(other.SerializeFromData(within, size) && other.IsEqual(holder)) << "from a block within itself";
    EXPECT_EQ(holder.GetIDCount(), 4U);
    EXPECT_EQ(holder.DumpCustomData(true, 1), L" 00000001 \" INT\" 4: 1\n"
                                              L" 00000003 \" INT\" 4: 30\n"
                                              L" 00000005 \"CDA2\" 16: 1 values\n"
                                              L"     00000001 \" INT\" 4: 4\n"
                                              L" 0000004D \" INT\" 4: 1\n");
}

/// A simple model of the documented store.
struct Model
{
    struct Value
    {
        unsigned m_id;
        unsigned m_kind;
        Bytes m_data;
    };
    std::vector<Value> m_values;

    auto Find(unsigned id)
    {
        return std::find_if(m_values.begin(), m_values.end(), [id](const Value& value) { return value.m_id == id; });
    }
    bool Remove(unsigned id)
    {
        const auto found = Find(id);
        const bool isThere = found != m_values.end();
        if (isThere)
            m_values.erase(found);
        return isThere;
    }
    void Set(unsigned id, unsigned kind, const Bytes& data)
    {
        const auto found = Find(id);
        if (found != m_values.end() && found->m_data.size() == data.size())
        {
            *found = {id, kind, data};
            return;
        }
        Remove(id);
        if (!data.empty())
            m_values.push_back({id, kind, data});
    }
    Bytes Chunks() const
    {
        Bytes chunks;
        for (const Value& value : m_values)
            chunks += Chunk(value.m_id, value.m_kind, value.m_data);
        return chunks;
    }
};

TEST(CCustomData, AgreesWithAModelOverRandomOperations)
{
    std::mt19937 random(20);
    Model model;
    auto store = std::make_unique<CCustomData>();
    for (int step = 0; step < 20000; ++step)
    {
        const unsigned id = random() % 40 * 0x01010101;
        const unsigned otherId = random() % 40 * 0x01010101;
        const unsigned place = model.m_values.empty() ? 0 : static_cast<unsigned>(random() % model.m_values.size());
        unsigned size = 0;
        switch (random() % 16)
        {
        case 0:
            ASSERT_EQ(store->RemoveCustom(id), model.Remove(id));
            break;
        case 1: {
            const bool changes = model.Find(id) != model.m_values.end() && model.Find(otherId) == model.m_values.end();
            ASSERT_EQ(store->ChangeID(id, otherId), changes);
            if (changes)
                model.Find(id)->m_id = otherId;
            break;
        }
        case 2: // from within the store itself
            if (!model.m_values.empty())
            {
                const Model::Value source = model.m_values[place];
                const void* data = store->GetCustomPtr(source.m_id, size);
                ASSERT_TRUE(store->SetBinary(id, data, size));
                model.Set(id, CCustomData::kBinary, source.m_data);
            }
            break;
        case 3: {
            void* block = store->Detach(size);
            ASSERT_FALSE(store->HasData());
            ASSERT_TRUE(store->Attach(block, size));
            break;
        }
        case 4:
            store.reset(store->Copy());
            break;
        case 5:
            ASSERT_TRUE(Load(*store, SerializedBytes(*store)));
            break;
        case 6: {
            const void* block = store->GetData(size);
            ASSERT_TRUE(store->SetData(block, size));
            store->FreeExtra();
            break;
        }
        case 7:
            if (random() % 50 == 0)
            {
                store->RemoveAll();
                model.m_values.clear();
            }
            break;
        default: {
            const Bytes data(random() % 4 == 0 ? random() % 300 : random() % 5, static_cast<char>(random()));
            ASSERT_TRUE(store->SetBinary(id, data.data(), static_cast<unsigned>(data.size())));
            model.Set(id, CCustomData::kBinary, data);
        }
        }
        ASSERT_EQ(ChunksOf(*store), model.Chunks()) << "step " << step;
        for (const Model::Value& value : model.m_values)
        {
            const void* data = store->GetCustomPtr(value.m_id, size);
            ASSERT_EQ(Bytes(static_cast<const char*>(data), size), value.m_data) << "step " << step;
        }
        unsigned kind = 0;
        const bool isInside = place < model.m_values.size();
        ASSERT_EQ(store->GetIDByIndex(place, kind), isInside ? model.m_values[place].m_id : 0xFFFFFFFF);
        ASSERT_EQ(store->GetIDCount(), model.m_values.size());
    }
    CCustomData shuffled;
    std::shuffle(model.m_values.begin(), model.m_values.end(), random);
    for (const Model::Value& value : model.m_values)
        shuffled.CopyID(store.get(), value.m_id);
    EXPECT_TRUE(shuffled.IsEqual(*store) && store->IsEqual(*store));
    const unsigned last = model.m_values.back().m_id;
    unsigned size = 0;
    ++*static_cast<char*>(shuffled.GetCustomPtr(last, size));
    EXPECT_FALSE(shuffled.IsEqual(*store));
    shuffled.RemoveCustom(last);
    EXPECT_FALSE(shuffled.IsEqual(*store));
}

// What a thread does at each step to the store that all share, with another store beside it.
using Action = void (*)(CCustomData& store, CCustomData& other, unsigned id);

const Action kActions[] = {
    [](CCustomData& store, CCustomData&, unsigned id) {
        for (const KindCase& kind : kAllKinds)
            kind.m_set(store, id++ % 8);
    },
    [](CCustomData& store, CCustomData&, unsigned id) {
        for (const KindCase& kind : kAllKinds)
        {
            // An array is read within the store.
            const CXSingleLock lock(store.GetThreadLock(), kind.m_kind == CCustomData::kArray);
            kind.m_get(store, id++ % 8);
        }
    },
    [](CCustomData& store, CCustomData& other, unsigned id) {
        static const tev::test::TempFolder folder;
        const CXTString<wchar_t> path = folder.WidePath("prefs").c_str();
        EXPECT_TRUE(id != 0 || // they take long
                    (store.SaveToPrefs(path, 1, 2) && other.LoadFromPrefs(path, 1, 2, true)));
    },
    [](CCustomData& store, CCustomData& other, unsigned) { other = store; },
    [](CCustomData& store, CCustomData& other, unsigned) { store = other; },
    [](CCustomData& store, CCustomData& other, unsigned id) { store.SetCustomData(id, other); },
    [](CCustomData& store, CCustomData& other, unsigned id) { other.SetCustomData(id, store); },
    [](CCustomData& store, CCustomData& other, unsigned id) { store.GetCustomData(id, other); },
    [](CCustomData& store, CCustomData& other, unsigned id) { store.AddToCustomData(id, other, 0); },
    [](CCustomData& store, CCustomData& other, unsigned id) { store.CopyID(&other, id, id + 1); },
    [](CCustomData& store, CCustomData& other, unsigned) { static_cast<void>(store.IsEqual(other)); },
    [](CCustomData& store, CCustomData&, unsigned id) { store.RemoveCustom(id); },
    [](CCustomData& store, CCustomData&, unsigned id) { store.ChangeID(id, id + 1); },
    [](CCustomData& store, CCustomData& other, unsigned) { store.RemoveAll(), other.RemoveAll(); },
    [](CCustomData& store, CCustomData&, unsigned) { store.FreeExtra(); },
    [](CCustomData& store, CCustomData&, unsigned) { Load(store, Stored(Chunk(1, 2, "abc"), 1)); },
    [](CCustomData& store, CCustomData&, unsigned) { SerializedBytes(store); },
    [](CCustomData& store, CCustomData&, unsigned) { delete store.Copy(); },
    [](CCustomData& store, CCustomData&, unsigned) { static_cast<void>(store.DumpCustomData(true, 0)); },
    [](CCustomData& store, CCustomData&, unsigned id) {
        unsigned kind = 0;
        store.GetIDByIndex(id, kind);
        store.GetDataKindOf(id), store.GetDataSize(id), store.GetChecksum(id), store.GetTimeStamp(), store.HasData(id);
    },
    [](CCustomData& store, CCustomData&, unsigned id) {
        std::vector<CXTString<wchar_t>> strings = {L"a", L"b"};
        CXArray<CXTString<wchar_t>> array;
        Point point;
        struct tm time = {};
        store.SetStringList(id, strings), store.GetStringArray(id, array), store.SetStringArray(id + 1, array);
        store.GetStringList(id, strings), store.GetCustomClass(id, point), store.SetCustomClass(id, point);
        store.SetUTCTime(id + 2, time), store.GetUTCTime(id, time, time);
    },
    [](CCustomData& store, CCustomData&, unsigned id) {
        const tev::LockGuard lock(*store.GetThreadLock());
        unsigned size = 0;
        const void* bytes = store.GetCustomPtr(id, size);
        EXPECT_EQ(Bytes(static_cast<const char*>(bytes), size).size(), store.GetDataSize(id));
        const void* block = store.GetData(size);
        EXPECT_TRUE(store.SetData(block, size));
    },
    [](CCustomData& store, CCustomData&, unsigned) {
        const tev::LockGuard lock(*store.GetThreadLock());
        unsigned size = 0;
        void* block = store.Detach(size);
        EXPECT_TRUE(store.Attach(block, size));
    },
};

TEST(CCustomData, ThreadsUseEveryMemberAtOnce)
{
    CCustomData stores[2];
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
    {
        threads.emplace_back([i, &stores] {
            std::mt19937 random(i);
            for (int step = 0; step < 5000; ++step)
            {
                const unsigned first = random() % 2;
                const Action action = kActions[random() % std::size(kActions)];
                // Stores within stores double at each step.
                unsigned size = 0;
                if (stores[first].GetData(size), size > 100000)
                    stores[first].RemoveAll();
                action(stores[first], stores[1 - first], random() % 8);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const CCustomData& store : stores)
    {
        CCustomData checked;
        EXPECT_TRUE(Load(checked, SerializedBytes(store))) << "still a well-formed list of chunks";
    }
}
} // namespace
