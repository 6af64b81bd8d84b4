#include "settings/CCustomData.h"

#include "files/CXMemFile.h"
#include "objects/CXFileException.h"
#include "tests/support/PrintText.h"
#include "tests/support/StoreBytes.h"

namespace
{
using namespace tev::test;
using Bytes = std::string;

TEST(CCustomDataArchive, OlderLayoutsAreReadByTheirSizeAlone)
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

TEST(CCustomDataArchive, BytesAreTheDocumentedOnes)
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
    const Bytes expected = StoreOf(chunks, 5);
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

TEST(CCustomDataArchive, DamagedBytesAreRefused)
{
    const Bytes one = Chunk(1, CCustomData::kInt, Number(5));
    const Bytes two = one + Chunk(2, CCustomData::kBinary, "abcdefg");
    const Bytes good = StoreOf(two, 2);
    const auto patched = [&good](size_t at, unsigned value) { return Bytes(good).replace(at, 4, Number(value)); };
    std::vector<Bytes> bad = {patched(8, 2),           patched(8, 0),          patched(4, 1),          patched(4, 19),
                              patched(4, 21),          patched(4, 0xFFFFFFFF), patched(0, 0x43555336), patched(32, 5),
                              patched(32, 0xFFFFFFF4), patched(44, 1),         StoreOf(one + one, 2),  patched(48, 8)};
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

TEST(CCustomDataArchive, TextGoesToItsFirstNulOrToItsEnd)
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
} // namespace
