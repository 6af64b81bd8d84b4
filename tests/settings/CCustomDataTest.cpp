#include "settings/CCustomData.h"

#include "objects/CXSingleLock.h"
#include "tests/support/BusyFork.h"
#include "tests/support/Eventually.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PrintText.h"
#include "tests/support/StoreBytes.h"
#include "tests/support/TempFolder.h"
#include "values/CXTime.h"

#include <pthread.h>

namespace
{
using namespace tev::test;
using Bytes = std::string;

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
        EXPECT_EQ(Thrown([&] { store.SetLong(1, tooLong); }), kInvalidArgument);
        EXPECT_EQ(Thrown([&] { store.SetULong(1, 2UL * tooLong); }), kInvalidArgument);
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
        for (const Model::Value& value : model.m_values)
        {
            Bytes data(value.m_data.size(), '\0');
            ASSERT_TRUE(store->GetBinary(value.m_id, data.data(), static_cast<unsigned>(data.size())));
            ASSERT_EQ(data, value.m_data) << "step " << step;
        }
        // Whatever shows the order may change how the store lies in memory, so it is not asked at each step. Once a pointer
        // into the store is handed out, nothing moves any more.
        if (random() % 4 == 0 || model.m_values.empty())
            continue;
        const void* const pointer = store->GetCustomPtr(model.m_values.back().m_id, size);
        ASSERT_EQ(ChunksOf(*store), model.Chunks()) << "step " << step;
        ASSERT_EQ(store->GetCustomPtr(model.m_values.back().m_id, size), pointer);
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
        static const TempFolder folder;
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
    [](CCustomData& store, CCustomData&, unsigned) { Load(store, StoreOf(Chunk(1, 2, "abc"), 1)); },
    [](CCustomData& store, CCustomData&, unsigned) { SerializedBytes(store); },
    [](CCustomData& store, CCustomData&, unsigned) { delete store.Copy(); },
    [](CCustomData& store, CCustomData&, unsigned) { static_cast<void>(store.DumpCustomData(true, 0)); },
    [](CCustomData& store, CCustomData&, unsigned id) {
        unsigned kind = 0;
        store.GetIDByIndex(id, kind);
        store.GetDataKindOf(id), store.GetDataSize(id), store.GetChecksum(id), store.GetTimeStamp();
        kind += store.HasData(id) ? 1 : 0;
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

void ActOnce(CCustomData (&stores)[2], std::mt19937& random)
{
    const unsigned first = random() % 2;
    const Action action = kActions[random() % std::size(kActions)];
    // Stores within stores double at each step.
    unsigned size = 0;
    if (stores[first].GetData(size), size > 100000)
        stores[first].RemoveAll();
    action(stores[first], stores[1 - first], random() % 8);
}

bool AreWellFormed(const CCustomData (&stores)[2])
{
    CCustomData checked;
    return Load(checked, SerializedBytes(stores[0])) && Load(checked, SerializedBytes(stores[1]));
}

TEST(CCustomData, ThreadsUseEveryMemberAtOnce)
{
    CCustomData stores[2];
    OnThreads(4, [&stores](int seed) {
        std::mt19937 random(static_cast<unsigned>(seed));
        for (int step = 0; step < 5000; ++step)
            ActOnce(stores, random);
    });
    EXPECT_TRUE(AreWellFormed(stores));
}

TEST(CCustomData, IsWholeInAChildOfABusyProcess)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    CCustomData stores[2];
    const auto act = [&stores] {
        thread_local std::mt19937 random;
        ActOnce(stores, random);
        return true;
    };
    // Each fork waits for the stores' locks, which are nearly always taken; the test below holds the rule without chance.
    EXPECT_EQ(ForkWhileBusy(
                  act, [&] { return AreWellFormed(stores) && act() && stores[0].SetInt(1, 2); }, 40),
              0);
}

std::atomic<bool> g_forkBegins{false};

TEST(CCustomData, AForkWaitsForAThreadThatIsChangingAStore)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    ASSERT_EQ(pthread_atfork([] { g_forkBegins = true; }, nullptr, nullptr), 0);
    CCustomData store;
    store.SetInt(1, 2);
    std::atomic<bool> isHalfChanged{false};
    std::thread changer([&] {
        const tev::LockGuard held(*store.GetThreadLock());
        unsigned size = 0;
        void* const block = store.Detach(size);
        g_forkBegins = false;
        isHalfChanged = true;
        EXPECT_TRUE(Eventually([] { return g_forkBegins.load(); }));
        EXPECT_TRUE(store.Attach(block, size));
    });
    EXPECT_TRUE(Eventually([&isHalfChanged] { return isHalfChanged.load(); }));
    EXPECT_EQ(ResultInChild([&store] {
                  int value = 0;
                  return store.GetInt(1, value, 0) && value == 2 ? 0 : 1;
              }),
              0);
    changer.join();
}

// The analysis does not follow a lock into another process.
void Take(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    lock.Lock();
}
void Release(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    lock.Unlock();
}
bool IsFree(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    const bool isTaken = lock.TryLock();
    if (isTaken)
        lock.Unlock();
    return isTaken;
}

// A lock that stays with a thread of the parent, as that of a store which is being saved, is free in the child.
TEST(CCustomData, ALockThatAThreadHoldsForLongIsFreeInAChild)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    CCustomData store;
    CXCriticalSection lock;
    std::atomic<bool> isHeld{false};
    std::atomic<bool> mayEnd{false};
    std::thread holder([&] {
        const tev::LockGuard held(*store.GetThreadLock());
        const tev::LockGuard alsoHeld(lock);
        isHeld = true;
        EXPECT_TRUE(Eventually([&mayEnd] { return mayEnd.load(); }));
    });
    EXPECT_TRUE(Eventually([&isHeld] { return isHeld.load(); }));
    const auto useBoth = [&] { return IsFree(lock) && store.SetInt(1, 2); };
    EXPECT_EQ(ResultInChild([&useBoth] { return useBoth() && useBoth() ? 0 : 1; }), 0);
    CXCriticalSection own; // of the thread that forks: it stays its own, for other threads of the child, too
    Take(own);
    EXPECT_EQ(ResultInChild([&own] {
                  bool isFreeBefore = true;
                  bool isFreeAfter = false;
                  std::thread([&] { isFreeBefore = IsFree(own); }).join();
                  Release(own);
                  std::thread([&] { isFreeAfter = IsFree(own); }).join();
                  return !isFreeBefore && isFreeAfter ? 0 : 1;
              }),
              0);
    Release(own);
    EXPECT_FALSE(IsFree(lock)) << "in the parent it is held all the time";
    mayEnd = true;
    holder.join();
}
} // namespace
