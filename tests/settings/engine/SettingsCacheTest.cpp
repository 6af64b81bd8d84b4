#include "tests/support/Eventually.h"
#include "tests/support/PrintText.h"
#include "tests/support/SettingsFixture.h"

#include <sqlite3.h>
#include <unistd.h>

// What was read once is answered from memory, until somebody changes the database.

namespace
{
using namespace tev::test;

constexpr int kNames = 6;

std::wstring NameOf(int i)
{
    return L"name" + std::to_wstring(i % kNames);
}

/// A change of one value or key below `kPath`. The key that it is in: even numbers in the base, odd ones in a key below it.
struct CacheOrder
{
    enum class Kind : int
    {
        Write,
        WriteLong,
        Delete,
        DeleteKey,
        End
    } kind;
    int name;
    int value;
};

std::wstring TextOf(const CacheOrder& order)
{
    return std::wstring(order.kind == CacheOrder::Kind::WriteLong ? 6000 : 3,
                        static_cast<wchar_t>(L'a' + order.value % 26));
}

bool Obey(const CacheOrder& order)
{
    CRegUtil registry(kAll);
    const std::wstring name = NameOf(order.name);
    const wchar_t* const key = order.name % 2 == 0 ? L"" : L"Below\\It";
    if (!registry.SetPath(kPath, true))
        return false;
    if (order.kind == CacheOrder::Kind::Delete)
        return registry.DeleteValue(key, name.c_str()) || registry.GetLastError() == 2;
    if (order.kind == CacheOrder::Kind::DeleteKey)
        return registry.DeleteKey(L"Below", true) || registry.GetLastError() == 2;
    return registry.WriteSubKeyString(key, name.c_str(), TextOf(order).c_str());
}

/// A process that was there before anything was read, and changes what it is told to.
class OtherProgram
{
public:
    bool Do(const CacheOrder& order)
    {
        char answer = 0;
        return write(m_orders[1], &order, sizeof order) == sizeof order && read(m_answers[0], &answer, 1) == 1 &&
               answer == 1;
    }
    ~OtherProgram()
    {
        CacheOrder end = {CacheOrder::Kind::End, 0, 0};
        EXPECT_EQ(write(m_orders[1], &end, sizeof end), static_cast<ssize_t>(sizeof end));
        EXPECT_TRUE(m_process.EndsWell());
        for (const int pipe : {m_orders[0], m_orders[1], m_answers[0], m_answers[1]})
            close(pipe);
    }

private:
    struct Pipe
    {
        int ends[2];
        Pipe() { EXPECT_EQ(pipe(ends), 0); }
        int operator[](int end) const { return ends[end]; }
    };

    Pipe m_orders;
    Pipe m_answers;
    ChildProcess m_process{[this] {
        CacheOrder order;
        while (read(m_orders[0], &order, sizeof order) == sizeof order && order.kind != CacheOrder::Kind::End)
        {
            const char answer = Obey(order) ? 1 : 0;
            if (write(m_answers[1], &answer, 1) != 1)
                return false;
        }
        return true;
    }};
};

TEST_F(SettingsStore, WhatWasReadBeforeIsReadAnewAfterEachChangeOfAnyProgram)
{
    OtherProgram other;
    ASSERT_TRUE(other.Do({CacheOrder::Kind::Write, 0, 0}));
    CRegUtil open(kAll);
    ASSERT_TRUE(open.SetPath(kPath, false) && open.OpenBase(false));
    std::map<std::wstring, std::wstring> model[2];
    model[0][NameOf(0)] = TextOf({CacheOrder::Kind::Write, 0, 0});
    const auto seen = [&open](int i) {
        CRegUtil closed(kAll);
        const std::wstring name = NameOf(i);
        const bool isBelow = i % 2 != 0;
        const bool isThere = closed.SetPath(isBelow ? L"Software\\Program\\Below\\It" : kPath, false);
        const std::wstring text =
            open.GetSubKeyString(isBelow ? L"Below\\It" : L"", name.c_str(), L"none", false).GetConstBuffer();
        EXPECT_TRUE(isThere || text == L"none");
        EXPECT_EQ(closed.KeyExists(name.c_str()), text != L"none");
        EXPECT_TRUE(!isThere || text == L"none" || text == closed.GetKeyString(name.c_str(), false).GetConstBuffer());
        return text;
    };
    std::minstd_rand random(11);
    for (int round = 0; round < 400; ++round)
    {
        const auto roll = static_cast<int>(random() % 16);
        const CacheOrder order = {roll < 9    ? CacheOrder::Kind::Write
                                  : roll < 10 ? CacheOrder::Kind::WriteLong
                                  : roll < 14 ? CacheOrder::Kind::Delete
                                              : CacheOrder::Kind::DeleteKey,
                                  static_cast<int>(random() % kNames), static_cast<int>(random() % 26)};
        ASSERT_TRUE(random() % 4 == 0 ? Obey(order) : other.Do(order)) << round;
        auto& values = model[order.name % 2];
        if (order.kind == CacheOrder::Kind::Delete)
            values.erase(NameOf(order.name));
        else if (order.kind == CacheOrder::Kind::DeleteKey)
            model[1].clear();
        else
            values[NameOf(order.name)] = TextOf(order);
        for (int i = 0; i < kNames; ++i)
        {
            const auto found = model[i % 2].find(NameOf(i));
            const std::wstring expected = found == model[i % 2].end() ? L"none" : found->second;
            ASSERT_EQ(seen(i), expected) << round << ", " << i;
            if (random() % 2 == 0) // from memory
            {
                ASSERT_EQ(seen(i), expected) << round << ", " << i;
            }
        }
    }
}

// Two databases whose logs are empty are in the same state, as far as their indexes say.
TEST_F(SettingsStore, WhatWasReadIsForgottenWithTheConnection)
{
    const auto change = [this](unsigned long value) {
        EXPECT_TRUE(ChildProcess([value] {
                        CRegUtil registry(kAll);
                        return registry.SetPath(kPath, true) && registry.WriteKeyInt(L"v", value);
                    }).EndsWell());
        Ask(File(), "PRAGMA wal_checkpoint(TRUNCATE)");
    };
    CRegUtil registry(kAll);
    for (unsigned long value = 1; value < 4; ++value)
    {
        change(value);
        ASSERT_TRUE(value != 1 || registry.SetPath(kPath, false));
        for (int read = 0; read < 2; ++read)
            EXPECT_EQ(registry.GetSubKeyInt(L"", L"v", 0), static_cast<int>(value));
    }
}

TEST_F(SettingsStore, WhatAKilledWriterHasDoneIsRead)
{
    const auto write = [](CRegUtil& registry, int i) {
        return registry.WriteKeyInt(L"n", static_cast<unsigned long>(i));
    };
    for (int round = 0; round < 10; ++round)
    {
        ChildProcess writer([&] {
            CRegUtil registry(kAll);
            bool good = registry.SetPath(kPath, true) && registry.OpenBase(false);
            for (int i = 1; good; ++i)
                good = write(registry, i);
            return good;
        });
        CRegUtil registry(kAll);
        ASSERT_TRUE(registry.SetPath(kPath, true));
        unsigned long n = 0;
        const bool isSeen =
            Eventually([&] { return registry.GetKeyInt(L"n", n) && n >= 20U * static_cast<unsigned>(round + 1); });
        writer.Kill();
        EXPECT_FALSE(writer.EndsWell());
        ASSERT_TRUE(isSeen);
        unsigned long kept = 0;
        ASSERT_TRUE(registry.GetKeyInt(L"n", kept));
        char bytes[16];
        std::snprintf(bytes, sizeof bytes, "%02X%02X%02X%02X", static_cast<unsigned>(kept & 0xFF),
                      static_cast<unsigned>(kept >> 8 & 0xFF), static_cast<unsigned>(kept >> 16 & 0xFF),
                      static_cast<unsigned>(kept >> 24));
        EXPECT_EQ(Ask(File(), "SELECT hex(data) FROM entries"), bytes) << "as a program reads it that starts now";
        ASSERT_TRUE(write(registry, 0));
    }
}

TEST_F(SettingsStore, ABatchIsMadeAsAWholeOrNotAtAll)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true) && registry.WriteKeyInt(L"old", 1));
    const auto names = [this] {
        return Ask(File(), "SELECT coalesce(group_concat(CAST(name AS TEXT) || hex(data)), '') FROM "
                           "(SELECT * FROM entries ORDER BY key, fold)");
    };
    EXPECT_EQ(ErrorOf(registry, registry.EndBatch()), 87) << "none was begun";
    const auto collect = [&](CRegUtil& in) {
        EXPECT_TRUE(in.StartBatch());
        EXPECT_TRUE(in.WriteKeyInt(L"new", 2) && in.WriteSubKeyInt(L"Below", L"New", 3) && in.WriteKeyInt(L"NEW", 4));
        EXPECT_TRUE(in.DeleteValue(L"", L"old") && in.DeleteValue(L"", L"none"));
        EXPECT_EQ(in.GetSubKeyInt(L"", L"old", 7), 1) << "still";
        EXPECT_EQ(names(), "old01000000");
    };
    collect(registry);
    EXPECT_FALSE(registry.StartBatch());
    EXPECT_TRUE(registry.EndBatch(true));
    EXPECT_EQ(names(), "old01000000") << "discarded";
    {
        CRegUtil ended(kAll);
        ASSERT_TRUE(ended.SetPath(kPath, false));
        collect(ended);
    }
    EXPECT_EQ(names(), "old01000000") << "discarded with the object";

    collect(registry);
    EXPECT_TRUE(registry.WriteSubKeyInt(L"Gone", L"v", 5));
    EXPECT_TRUE(CRegUtil(kAll).DeleteKey(L"Software\\Program\\Gone", true));
    EXPECT_EQ(ErrorOf(registry, registry.EndBatch()), 1018) << "a key was deleted meanwhile";
    EXPECT_EQ(names(), "old01000000");

    collect(registry);
    EXPECT_TRUE(registry.EndBatch()) << registry.GetLastError();
    EXPECT_EQ(names(), "new04000000,New03000000");
    EXPECT_TRUE(registry.WriteKeyInt(L"after", 6));
    EXPECT_EQ(names(), "after06000000,new04000000,New03000000") << "at once again";

    CRegUtil reader(CRegUtil::kRead);
    ASSERT_TRUE(reader.SetPath(kPath, false) && reader.StartBatch());
    EXPECT_EQ(ErrorOf(reader, reader.WriteKeyInt(L"v", 1)), 5);
}

TEST_F(SettingsStore, ABatchWithConditionsLosesNobodysChange)
{
    CRegUtil registry(kAll);
    ASSERT_TRUE(registry.SetPath(kPath, true));
    const unsigned char one[] = {1, 0, 0, 0};
    EXPECT_FALSE(registry.ExpectNoValue(L"n")) << "no batch";
    // What stands there when the batch is made, and whether it expects a value; then whether it is made.
    constexpr struct
    {
        unsigned long type;
        unsigned char bytes[5];
        unsigned size; // 5: there is none
        bool isExpected;
        bool isMade;
    } cases[] = {{4, {1}, 4, true, true},   {4, {2}, 4, true, false}, {3, {1}, 4, true, false},
                 {4, {1}, 3, true, false},  {0, {}, 5, true, false},  {0, {}, 5, false, true},
                 {4, {1}, 4, false, false}, {0, {}, 0, false, false}};
    for (const auto& row : cases)
    {
        SCOPED_TRACE(&row - cases);
        CRegUtil other(kAll);
        ASSERT_TRUE(other.SetPath(kPath, false) && registry.StartBatch());
        ASSERT_TRUE(row.isExpected ? registry.ExpectValue(L"N", 4, one, 4) : registry.ExpectNoValue(L"N"));
        ASSERT_TRUE(registry.WriteKeyInt(L"n", 7) && registry.WriteKeyInt(L"beside", 8));
        other.DeleteValue(L"", L"n");
        other.DeleteValue(L"", L"beside");
        ASSERT_TRUE(row.size == 5 || other.WriteValue(L"n", row.type, row.bytes, row.size));
        EXPECT_EQ(row.isMade, registry.EndBatch());
        EXPECT_EQ(row.isMade ? 0 : 1237, registry.GetLastError());
        EXPECT_EQ(row.isMade ? 7 : row.size == 4 ? row.bytes[0] : -1, other.GetSubKeyInt(L"", L"n", -1));
        EXPECT_EQ(row.isMade, other.KeyExists(L"beside"));
    }
}
} // namespace
