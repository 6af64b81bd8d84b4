#include "settings/CXDataListener.h"

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "objects/CXSingleLock.h"
#include "services/LogFile.h"
#include "settings/CDataKey.h"
#include "tests/support/Eventually.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PrintText.h"
#include "tests/support/TempFolder.h"

namespace
{
using namespace tev::test;

/// Records what is reported, as "set 5 ".
class Recorder
{
public:
    explicit Recorder(const CCustomData& store)
        : m_store(&store), m_listener(store, [this](const CXDataChange& change) { Note(change); })
    {
    }
    std::string Take() { return std::exchange(m_seen, {}); }

private:
    void Note(const CXDataChange& change)
    {
        EXPECT_EQ(change.m_store, m_store);
        // The lock is free: another thread can have it.
        std::async(std::launch::async, [this] { static_cast<void>(m_store->HasData()); }).get();
        constexpr const char* kNames[] = {"set ", "removed ", "replaced "};
        m_seen += kNames[change.m_what] + std::to_string(change.m_id) + " ";
    }

    const CCustomData* m_store;
    std::string m_seen;
    CXDataListener m_listener;
};

class Window : public CCustomDataClass
{
public:
    void SaveTo(CCustomData& data) const override { data.SetInt(1, 5); }
    bool LoadFrom(const CCustomData&) override { return true; }
};

TEST(CXDataListener, EachChangeIsReportedAndNothingElse)
{
    const TempFolder folder;
    const CXTString<wchar_t> file = folder.WidePath("prefs").c_str();
    CCustomData other;
    other.SetInt(5, 1);
    other.SetDouble(6, 1);
    ASSERT_TRUE(other.SaveToPrefs(file, 1, 1));
    unsigned __int64 size = 0;
    const std::unique_ptr<void, void (*)(void*)> bytes(other.SerializeToData(size), &CCustomData::Free);
    const auto block = [&](unsigned& blockSize) {
        const void* data = other.GetData(blockSize);
        void* copy = CCustomData::Alloc(blockSize);
        std::memcpy(copy, data, blockSize);
        return copy;
    };

    CCustomData store;
    Recorder recorder(store);
    const struct
    {
        std::function<void()> m_change;
        std::string m_reported;
    } steps[] = {
        {[&] { store.SetInt(5, 1); }, "set 5 "},
        {[&] { store.SetInt(5, 1); }, ""},
        {[&] { store.SetInt(5, 2); }, "set 5 "},
        {[&] { store.SetUInt(5, 2); }, "set 5 "}, // another kind, the same bytes
        {[&] { store.SetString(6, L"text"); }, "set 6 "},
        {[&] { store.SetString(6, L"text"); }, ""},
        {[&] { store.SetStringA(6, "text"); }, "set 6 "},
        {[&] {
             store.SetStringList(7, {L"a", L"b"});
         },
         "set 7 "},
        {[&] {
             store.SetStringArray(7, {L"a", L"b"});
         },
         ""},
        {[&] { store.SetUTCTime(8, std::tm()); }, "set 8 "},
        {[&] { store.SetBinary(9, "abc", 3); }, "set 9 "},
        {[&] { store.SetBinary(9, "abd", 3); }, "set 9 "},
        {[&] { store.SetBinary(9, "", 0); }, "removed 9 "},
        {[&] { store.SetArray(10, "abcd", 2, 2); }, "set 10 "},
        {[&] { store.SetArray(10, "abcd", 1, 4); }, "set 10 "},
        {[&] { store.SetArray(10, "", 1, 0); }, "removed 10 "},
        {[&] { store.SetArray(10, "", 1, 0); }, ""},
        {[&] { store.SetCustomData(11, other); }, "set 11 "},
        {[&] { store.SetCustomClass(12, Window()); }, "set 12 "},
        {[&] { store.AddToCustomData(12, other, 1); }, "set 12 "},
        {[&] { store.AddToCustomData(12, other, 1); }, ""},
        {[&] { store.Set(CDataKey<bool>(13), true); }, "set 13 "},
        {[&] { store.CopyID(&other, 6, 14); }, "set 14 "},
        {[&] { store.CopyID(&store, 14, 15); }, "set 15 "},
        {[&] { store.CopyID(&other, 99, 14); }, ""},
        {[&] { store.ChangeID(15, 16); }, "removed 15 set 16 "},
        {[&] { store.ChangeID(15, 16); }, ""},
        {[&] { store.RemoveCustom(16); }, "removed 16 "},
        {[&] { store.RemoveCustom(16); }, ""},
        {[&] { store = other; }, "replaced 0 "},
        {[&] {
             CCustomData copy(store), assigned;
             assigned = store;
             copy.SetInt(1, 1);
             assigned.RemoveAll();
         },
         ""},
        {[&] { EXPECT_TRUE(store.SerializeFromData(bytes.get(), size)); }, "replaced 0 "},
        {[&] { EXPECT_FALSE(store.SerializeFromData(bytes.get(), size - 1)); }, "replaced 0 "},
        {[&] { EXPECT_TRUE(store.LoadFromPrefs(file, 1, 1, true)); }, "replaced 0 "},
        {[&] { EXPECT_FALSE(store.LoadFromPrefs(file, 1, 2, true)); }, ""},
        {[&] {
             unsigned n = 0;
             const void* data = other.GetData(n);
             EXPECT_TRUE(store.SetData(data, n));
         },
         "replaced 0 "},
        {[&] { EXPECT_FALSE(store.SetData("abc", 3)); }, ""},
        {[&] {
             unsigned n = 0;
             void* data = block(n);
             EXPECT_TRUE(store.Attach(data, n));
         },
         "replaced 0 "},
        {[&] {
             unsigned n = 0;
             CCustomData::Free(store.Detach(n));
         },
         "replaced 0 "},
        {[&] {
             store.RemoveAll();
             store.FreeExtra();
         },
         ""},
        {[&] {
             other.SetCustomData(20, other);
             EXPECT_TRUE(other.GetCustomData(20, store));
         },
         "replaced 0 "},
        {[&] { store.RemoveAll(); }, "replaced 0 "},
    };
    for (const auto& [change, reported] : steps)
    {
        change();
        EXPECT_EQ(recorder.Take(), reported) << &reported - &steps[0].m_reported;
    }

    // Loading through an archive, sound and cut off.
    for (const unsigned cut : {0U, 1U})
    {
        CXMemFile source(static_cast<unsigned char*>(bytes.get()), size - cut, false);
        CXArchive archive(&source, xArchiveLoad);
        EXPECT_EQ(Thrown([&] { store.Serialize(archive); }), cut == 0 ? kNothingThrown : int(fileEndOfFile));
        EXPECT_EQ(recorder.Take(), "replaced 0 ");
    }
}

TEST(CXDataListener, ReportsWaitForTheReleaseOfTheLastLock)
{
    CCustomData store;
    CCustomData other;
    Recorder recorder(store);
    Recorder ofOther(other);
    {
        const CXSingleLock lock(store.GetThreadLock(), true);
        {
            const CXLogLock log;
            store.SetInt(1, 1);
            other.SetInt(2, 2);
            EXPECT_EQ(recorder.Take() + ofOther.Take(), "");
        }
        store.SetInt(1, 2);
        EXPECT_EQ(recorder.Take() + ofOther.Take(), "");
    }
    EXPECT_EQ(recorder.Take(), "set 1 set 1 ");
    EXPECT_EQ(ofOther.Take(), "set 2 ");

    // Both directions, since one of the two locks is released first.
    store.CopyID(&other, 2, 3);
    other.CopyID(&store, 1, 3);
    EXPECT_EQ(recorder.Take() + ofOther.Take(), "set 3 set 3 ");
    {
        const CXSingleLock lock(other.GetThreadLock(), true);
        CCustomData destroyed;
        const Recorder none(destroyed);
        destroyed.SetInt(1, 1);
    }
}

TEST(CXDataListener, FunctionsMayDoEverything)
{
    CCustomData store;
    std::string seen;
    std::optional<CXDataListener> first;
    CXDataListener late;
    int depth = 0;
    first.emplace(store, [&, owned = std::make_shared<int>(7)](const CXDataChange& change) {
        EXPECT_EQ(++depth, 1) << "no call within a call";
        seen += "first " + std::to_string(change.m_id) + " ";
        if (change.m_id == 1)
        {
            store.SetInt(1, 5); // as it is
            store.SetInt(2, 5);
            late = CXDataListener(
                store, [&](const CXDataChange& later) { seen += "late " + std::to_string(later.m_id) + " "; });
        }
        else
        {
            first.reset();
            EXPECT_EQ(*owned, 7) << "what the function holds lives as long as it runs";
        }
        --depth;
    });
    const CXDataListener throwing(store, [](const CXDataChange& change) {
        if (change.m_id == 1)
            CXInvalidArgException::Throw();
        throw std::runtime_error("of a listener");
    });
    const CXDataListener last(store, [&](const CXDataChange& change) { seen += std::to_string(change.m_id) + " "; });
    EXPECT_TRUE(store.SetInt(1, 5));
    EXPECT_EQ(seen, "first 1 1 first 2 2 late 2 ");
    EXPECT_EQ(XTakeThreadException(), nullptr);
    EXPECT_TRUE(store.SetInt(3, 5));
    EXPECT_EQ(seen, "first 1 1 first 2 2 late 2 3 late 3 ");

    auto destroyed = std::make_unique<CCustomData>();
    const CXDataListener destroyer(*destroyed, [&](const CXDataChange&) { destroyed.reset(); });
    EXPECT_TRUE(destroyed->SetInt(1, 1));
    EXPECT_EQ(destroyed, nullptr);
    late = CXDataListener();
    late.Stop();
}

TEST(CXDataListenerThread, StopWaitsForACallOnAnotherThread)
{
    CCustomData store;
    std::promise<void> entered;
    std::promise<void> goOn;
    std::atomic<bool> isDone{false};
    CXDataListener listener(store, [&](const CXDataChange&) {
        entered.set_value();
        goOn.get_future().wait();
        isDone = true;
    });
    std::thread changer([&] { store.SetInt(1, 1); });
    entered.get_future().wait();
    std::atomic<bool> isStopped{false};
    std::thread stopper([&] {
        listener.Stop();
        EXPECT_TRUE(isDone);
        isStopped = true;
    });
    for (int i = 0; i < 30; ++i)
    {
        EXPECT_FALSE(isStopped);
        CXThread::SleepCurrentThread(1);
    }
    goOn.set_value();
    changer.join();
    stopper.join();
    EXPECT_TRUE(isStopped);
}

TEST(CXDataListenerThread, ChangesOfManyThreadsAreAllReported)
{
    constexpr int kThreads = 4;
    constexpr int kChanges = 500;
    CCustomData store;
    std::vector<int> counts(kThreads); // one call at a time, so no lock
    std::atomic<bool> isEnded{false};
    const CXDataListener counter(store, [&](const CXDataChange& change) { ++counts[change.m_id]; });
    std::thread others([&] {
        while (!isEnded)
            const CXDataListener another(store, [](const CXDataChange&) {});
    });
    OnThreads(kThreads, [&](int number) {
        for (int i = 1; i <= kChanges; ++i)
            store.SetInt(static_cast<unsigned>(number), i);
    });
    isEnded = true;
    others.join();
    EXPECT_EQ(counts, std::vector<int>(kThreads, kChanges));
}

TEST(CXDataListener, WithoutMemoryEverythingMayHaveChanged)
{
    CCustomData store;
    store.SetInt(1, 1);
    std::vector<CXDataChange::What> seen;
    seen.reserve(10);
    const CXDataListener listener(store, [&](const CXDataChange& change) { seen.push_back(change.m_what); });
    FailingAllocations none(1, true);
    EXPECT_TRUE(none.Run([&] { EXPECT_TRUE(store.SetInt(1, 2)); }));
    EXPECT_TRUE(none.HasFailed());
    EXPECT_EQ(seen, std::vector<CXDataChange::What>{CXDataChange::kReplaced});
    store.SetInt(1, 3);
    EXPECT_EQ(seen.back(), CXDataChange::kSet);
}

TEST(CXDataListener, AChildProcessListensWhateverTheParentsThreadsDo)
{
    CCustomData store;
    std::promise<void> entered;
    std::promise<void> goOn;
    std::atomic<int> calls{0};
    CXDataListener listener(store, [&](const CXDataChange&) {
        if (++calls != 1)
            return;
        entered.set_value();
        goOn.get_future().wait();
    });
    std::thread changer([&] { store.SetInt(1, 1); });
    entered.get_future().wait();
    EXPECT_EQ(ResultInChild([&] {
                  store.SetInt(1, 2);
                  const int seen = calls;
                  listener.Stop();
                  store.SetInt(1, 3);
                  return seen == 2 && calls == 2 ? 0 : 1;
              }),
              0);
    goOn.set_value();
    changer.join();

    // The thread that forks may be in the function itself.
    int result = -1;
    listener = CXDataListener(store, [&](const CXDataChange&) {
        result = ResultInChild([&] {
            listener.Stop();
            store.SetInt(5, 5);
            return 0;
        });
    });
    store.SetInt(1, 9);
    EXPECT_EQ(result, 0);
}

enum class Corner : unsigned char
{
    kLeft = 1,
    kRight
};
constexpr CDataKey<int> kWidth{1, 800};
constexpr CDataKey<CXTString<wchar_t>> kTitle{2, L"untitled"};
constexpr CDataKey<bool> kIsOpen{3, true};
constexpr CDataKey<Corner> kCorner{4, Corner::kRight};
constexpr CDataKey<CXTime> kUsed{5, 86400};
constexpr CDataKey<std::vector<CXTString<wchar_t>>> kRecent{6};
constexpr CDataKey<double> kScale{7, 0.5};
static_assert(kWidth.GetDefault() == 800 && kCorner.kKind == CCustomData::kUChar);

TEST(CDataKey, ValuesHaveTheKindsOfTheirTypes)
{
    CCustomData store;
    const auto all = [&store] {
        return std::make_tuple(store.Get(kWidth), store.Get(kTitle), store.Get(kIsOpen), store.Get(kCorner),
                               store.Get(kUsed), store.Get(kRecent), store.Get(kScale));
    };
    using Texts = std::vector<CXTString<wchar_t>>;
    EXPECT_TRUE(all() == std::make_tuple(800, L"untitled", true, Corner::kRight, CXTime(86400), Texts(), 0.5));
    EXPECT_TRUE(store.Set(kWidth, 5) && store.Set(kTitle, L"new") && store.Set(kIsOpen, false) &&
                store.Set(kCorner, Corner::kLeft) && store.Set(kUsed, CXTime(7)) &&
                store.Set(kRecent, Texts{L"a", L"b"}) && store.Set(kScale, 2));
    EXPECT_TRUE(all() == std::make_tuple(5, L"new", false, Corner::kLeft, CXTime(7), Texts{L"a", L"b"}, 2.0));
    unsigned char corner = 0;
    EXPECT_TRUE(store.GetUChar(4, corner, 0) && corner == 1);

    EXPECT_TRUE(store.Has(kWidth));
    store.SetUInt(1, 6);
    EXPECT_FALSE(store.Has(kWidth)) << "another kind";
    EXPECT_EQ(store.Get(kWidth), 800);
    EXPECT_TRUE(store.Remove(kScale));
    EXPECT_EQ(store.Get(kScale), 0.5);
}
} // namespace
