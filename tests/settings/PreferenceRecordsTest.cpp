#include "settings/PreferenceRecords.h"

#include "tests/support/PreferenceFiles.h"

namespace
{
using namespace tev::test;
using Bytes = std::string;

/// What a save of another record makes of a file, and how many of three records were kept.
int KeptAfterSaving(const TempFolder& folder, const Bytes& file)
{
    const std::wstring path = folder.WriteFile("prefs", file);
    fs::remove(folder.Path("prefs.damaged"));
    EXPECT_TRUE(Save(path, {9, 9}, 9));
    EXPECT_TRUE(folder.Exists("prefs.damaged") && folder.ReadFile("prefs.damaged") == file);
    Records records;
    EXPECT_TRUE(XListPreferences(path.c_str(), records));
    EXPECT_EQ(Saved(path, {9, 9}), 9);
    int kept = 0;
    for (const auto& [keys, value] : {std::pair(Keys(1, 1), 1), {{2, 2}, 2}, {{3, 3}, 3}})
        kept += Saved(path, keys) == value ? 1 : 0;
    return kept;
}

/// A store of values of these sizes under its keys, in the current layout or an older one, which the first byte of its
/// signature tells. The bytes of a value look like small numbers.
struct Row
{
    Keys keys;
    std::vector<unsigned> sizes;
    char layout = '5';
};

Bytes RecordOf(const Row& row)
{
    Bytes chunks;
    for (const unsigned size : row.sizes)
    {
        Bytes value;
        for (unsigned i = 0; i < size; ++i)
            value += static_cast<char>(i % 4 == 0 ? size : 0);
        const auto id = static_cast<unsigned>(100 + chunks.size());
        chunks += row.layout == '5' ? Chunk(id, CCustomData::kBinary, value) : Number(id) + Number(size) + value;
    }
    const auto count = static_cast<unsigned>(row.sizes.size());
    if (row.layout == '5' && count != 0)
        return KeyBytes(row.keys) + StoreOf(chunks, count);
    const auto extent = static_cast<unsigned>(chunks.size());
    return KeyBytes(row.keys) + row.layout + "SUC" + Number(row.layout == 'U' ? extent : count) + chunks;
}

Records Split(const Bytes& file)
{
    Records records;
    static_cast<void>(tev::SplitPreferences(std::vector<unsigned char>(file.begin(), file.end()), records));
    records.erase(std::remove_if(records.begin(), records.end(), [](const auto& record) { return !record.m_isSound; }),
                  records.end());
    return records;
}

/// Keys and places of records, but for one that is hurt; where it counts as sound, it is complete.
std::vector<std::array<unsigned __int64, 4>> Without(const Records& records, const XPreferenceRecord& hurt)
{
    std::vector<std::array<unsigned __int64, 4>> rows;
    for (const XPreferenceRecord& record : records)
    {
        if (record.m_offset != hurt.m_offset || record.m_size != hurt.m_size)
            rows.push_back({record.m_offset, record.m_size, record.m_key1, record.m_key2});
    }
    return rows;
}

TEST(PreferenceRecords, ABitOfAHeaderCostsNoOtherRecord)
{
    // Second keys that make the next record look like a chunk; totals of which one bit makes another record's place, or 0.
    const std::vector<std::vector<Row>> files = {
        {{{5, 0}, {4}}, {{4, 0}, {16}}, {{3, 0}, {16}}, {{2, 0}, {16}}, {{1, 0}, {16}}},
        {{{1, 1}, {}}, {{2, 0}, {32}}, {{3, 56}, {}}, {{4, 4}, {}}, {{5, 40}, {4, 4}}},
        {{{1, 40}, {4}}, {{2, 40}, {4}}, {{3, 52}, {16}}, {{4, 68}, {4, 4, 4}}, {{5, 24}, {1}}, {{6, 0}, {12, 100}}},
        {{{1, 25}, {1}}, {{2, 3}, {7, 9, 11}}, {{1, 8}, {20, 20}}, {{1, 16}, {}}, {{7, 7}, {500, 3}}, {{8, 8}, {44}}},
        {{{9, 116}, {64, 4}}, {{9, 52}, {4, 4}}, {{9, 36}, {}}, {{9, 84}, {48}}, {{1, 1}, {244}}},
        {{{7, 7}, {}}, {{1, 1}, {32}}, {{8, 8}, {}}, {{1, 2}, {96, 0}}}, // which read as headers of those before
        // The older layouts, which tell their size once.
        {{{5, 0}, {4}, 'T'},
         {{4, 0}, {16}},
         {{3, 0}, {4, 4}, 'T'},
         {{2, 0}, {16}, 'U'},
         {{1, 0}, {}, 'T'},
         {{6, 0}, {}}},
        {{{5, 0}, {8}, 'U'}, {{4, 0}, {16}}, {{3, 0}, {40}, 'U'}, {{2, 0}, {8}, 'U'}, {{1, 0}, {}}, {{7, 1}, {4}, 'U'}},
        {{{1, 8}, {4, 8}, 'T'}, {{2, 4}, {8}, 'T'}, {{3, 24}, {1, 2, 3}}, {{4, 8}, {8}, 'T'}, {{5, 16}, {7}, 'U'}},
        {{{1, 1}, {20, 4}, 'U'},
         {{2, 0}, {}, 'T'},
         {{3, 3}, {4}},
         {{4, 0}, {}, 'U'},
         {{5, 5}, {16, 40}, 'T'},
         {{6, 0}, {4}, 'U'}},
    };
    for (std::size_t number = 0; number < files.size(); ++number)
    {
        std::vector<Bytes> parts;
        for (const Row& row : files[number])
            parts.push_back(RecordOf(row));
        const Bytes good = File(parts);
        const Records all = Split(good);
        ASSERT_EQ(all.size(), parts.size());
        for (const XPreferenceRecord& hurt : all)
        {
            const auto start = static_cast<std::size_t>(hurt.m_offset);
            const std::size_t header = std::min<std::size_t>(static_cast<std::size_t>(hurt.m_size), 36);
            for (std::size_t bit = 8 * 8; bit < header * 8; ++bit)
            {
                Bytes bad = good;
                bad[start + bit / 8] = static_cast<char>(bad[start + bit / 8] ^ 1 << bit % 8);
                ASSERT_EQ(Without(Split(bad), hurt), Without(all, hurt))
                    << "file " << number << ", record at " << start << ", byte " << bit / 8 << ", bit " << bit % 8;
            }
            // Nor does a chunk of a wrong size, which may hide the next chunk.
            const bool isOlder = good[start + 8] != '5';
            for (std::size_t at = isOlder ? 16 : 40; at + 4 <= hurt.m_size && at < 60; at += isOlder ? 4 : 16)
            {
                for (unsigned bit = 0; bit < 32; ++bit)
                {
                    Bytes bad = good;
                    bad[start + at + bit / 8] = static_cast<char>(bad[start + at + bit / 8] ^ 1 << bit % 8);
                    ASSERT_EQ(Without(Split(bad), hurt), Without(all, hurt)) << number << " " << start << " " << bit;
                }
            }
        }
    }
}

TEST(PreferenceRecords, DamageCostsTheRecordInWhichItLies)
{
    const TempFolder folder;
    const Bytes good = File({Record({1, 1}, 1), Record({2, 2}, 2), Record({3, 3}, 3)});
    const size_t size = Record({1, 1}, 1).size();
    // The first bytes are the count of records; keys, identifiers and values may change without being noticed.
    for (size_t at = 0; at < size; ++at)
    {
        Bytes bad = good;
        char& byte = bad[4 + at % 3 * size + at];
        byte = static_cast<char>(byte ^ 0x80);
        const std::wstring path = folder.WriteFile("prefs", bad);
        Records records;
        if (!XListPreferences(path.c_str(), records))
        {
            EXPECT_EQ(KeptAfterSaving(folder, bad), 2) << "byte " << at;
        }
    }
    for (size_t cut = 1; cut < good.size(); cut += 3)
        EXPECT_EQ(KeptAfterSaving(folder, good.substr(0, cut)), static_cast<int>((cut < 4 ? 0 : cut - 4) / size))
            << cut;
    EXPECT_EQ(KeptAfterSaving(folder, good + "more"), 3);
    EXPECT_EQ(KeptAfterSaving(folder, "\2" + good.substr(1)), 3) << "the number of records lies";
    const Bytes rubbish = good.substr(0, 4 + size) + "rubbish";
    EXPECT_EQ(KeptAfterSaving(folder, rubbish + good.substr(4 + size)), 3);
    // Records of the older layouts, and empty ones, are found where the next record or the end of the file follows.
    const Bytes keys = "\3\0\0\0\3\0\0\0"s;
    const Bytes value = Number(kValue) + Number(4) + Number(3);
    for (const Bytes& found : {keys + "USUC" + Number(12) + value, keys + "TSUC" + Number(1) + value})
    {
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found), 2);
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + Record({2, 2}, 2)), 3);
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + "more"), 1) << "it may be part of a value";
        EXPECT_EQ(KeptAfterSaving(folder, rubbish + found + value + value), 1);
        EXPECT_EQ(KeptAfterSaving(folder, File({Record({1, 1}, 1), found}) + "more"), 2) << "it is no part of a value";
    }
    const std::vector<Bytes> layouts = {
        keys + "USUC" + Number(1 << 24) + value,    // more than there is
        keys + "USUC" + Number(13) + value,         // not a whole number of records
        keys + "USUC" + Number(24) + value + value, // an identifier twice
        keys + "TSUC" + Number(2) + value,          // too few
        keys + "5SUC" + Number(52) + Number(1) + Number(2) + Number(8) + Number(0) + Number(0) +
            Record({0, 0}, 1).substr(36) + Record({0, 0}, 1).substr(36), // an identifier twice
        keys + StoreOf(Chunk(7, 1, "a") + Chunk(8, 1, "b") + Chunk(7, 1, "c"), 3),
        keys + "5SUC" + Number(36) + Number(2) + Number(1) + Number(4) + Number(0) + Number(0) + Bytes(16, '\0'),
    };
    for (const Bytes& bad : layouts)
        EXPECT_EQ(KeptAfterSaving(folder, File({Record({1, 1}, 1), bad, Record({2, 2}, 2)})), 2);
    // The counts in a header are not needed for loading; where both are wrong the record ends at the next one.
    Bytes other = Record({2, 2}, 2);
    other[12] = 40;
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, Record({3, 3}, 3)})).size(), 2U) << "not without its total";
    for (const std::size_t at : {20, 24})
    {
        other = Record({2, 2}, 2);
        other[at] = 9;
        EXPECT_EQ(Split(File({Record({1, 1}, 1), other, "no record"})).size(), 2U) << at;
    }
    other[20] = 9;
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, Record({3, 3}, 3)})).size(), 3U);
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, "no record"})).size(), 1U);
    other[20] = 1;
    EXPECT_EQ(Split(rubbish + other).size(), 2U);
    EXPECT_EQ(Split(rubbish + other + "more").size(), 1U) << "it may be part of a value";
    other[12] = 99; // with the total wrong too its end is not known
    EXPECT_EQ(Split(File({Record({1, 1}, 1), other, Record({3, 3}, 3)})).size(), 2U);
    EXPECT_EQ(Split(File({keys + "USUC" + Number(28) + value + Number(5) + Number(0) + Number(5) + Number(0)})).size(),
              1U)
        << "values without bytes are none";
    Records listed;
    for (int i = 0; i < 2; ++i) // what the list held before is forgotten
        EXPECT_FALSE(tev::SplitPreferences({1, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0}, listed));
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0].m_key2, 6U);
    EXPECT_TRUE(tev::SplitPreferences({0, 0, 0, 0}, listed) && listed.empty());
    listed = Split(File({RecordOf({{1, 1}, {}}), RecordOf({{2, 2}, {4, 0, 4}})}));
    ASSERT_EQ(listed.size(), 2U);
    EXPECT_EQ(listed[0].m_valueCount, 0U);
    EXPECT_EQ(listed[1].m_valueCount, 3U);
    // What a value holds is not taken for a record, though the one that holds it is damaged.
    Bytes outer = RecordOf({{2, 2}, {static_cast<unsigned>(Record({7, 7}, 7).size())}});
    outer.replace(48, outer.npos, Record({7, 7}, 7));
    for (const std::size_t at : {8, 12, 16, 20, 24})
    {
        Bytes bad = outer;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        for (const XPreferenceRecord& record : Split(File({Record({1, 1}, 1), bad, Record({3, 3}, 3)})))
            EXPECT_NE(record.m_key1, 7U) << at;
    }
    EXPECT_EQ(Split(File({RecordOf({{1, 1}, {0}}), RecordOf({{2, 2}, {}})})).size(), 2U) << "values without bytes";
    for (const char* const damage : {"?", "rubbish"})
    {
        EXPECT_EQ(Split(File({damage, RecordOf({{2, 2}, {}})})).size(), 1U) << damage;
        EXPECT_EQ(Split(File({damage, RecordOf({{2, 2}, {}}), "more"})).size(), 0U) << "it may be part of a value";
    }
    EXPECT_EQ(Split(File({keys + StoreOf("", 0)})).size(), 1U) << "a header without chunks";
    // Made to be searched for long: signatures everywhere; sound records that each follow one which claims all the rest,
    // as a size or as records to be counted; headers that count all the chunks behind them.
    const Bytes empty = keys + "5SUC\0\0\0\0"s;
    for (const Bytes& trap :
         {"5SUC"s, keys + "5SUC\0\0\x10\0\1\0\0\0"s + empty, keys + "TSUC\xFF\xFF\xFF\x7F"s + empty,
          Number(0) + Number(24) + "5SUC" + Number(0x100000) + Number(1) + Number(0x10000) + Number(1) + Number(0)})
    {
        Bytes traps = "\3\0\0\0"s;
        while (traps.size() < 2000000)
            traps += trap;
        Records records;
        static_cast<void>(tev::SplitPreferences(std::vector<unsigned char>(traps.begin(), traps.end()), records));
        EXPECT_FALSE(records.empty());
    }
}
} // namespace
