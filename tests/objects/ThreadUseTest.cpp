// The checks in templates are tested in every build; no other source has maps of this key and arrays of this value.
#if defined(NDEBUG)
constexpr bool kLibraryChecks = false;
#undef NDEBUG
#else
constexpr bool kLibraryChecks = true;
#endif
#include "objects/ThreadUse.h"

#include "arrays/CBitArray.h"
#include "arrays/CElementArray.h"
#include "arrays/COffsetArray.h"
#include "arrays/CXArray.h"
#include "arrays/ElementKinds.h"
#include "files/CStdioFileEx.h"
#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "maps/CHashMap.h"
#include "settings/CRegUtil.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/TestRegistry.h"
#include "tests/support/ZipTools.h"
#include "ui/CUserInterface.h"
#include "zip/CMiniZip.h"
#include "zip/CZip.h"

#include <optional>

namespace
{
enum class Key : int
{
};
using Map = CHashMap<Key, Key, int>;

/// Calls a function when it is copied, so that the map that it is put into is being changed.
struct Value
{
    Value() = default;
    explicit Value(std::function<void()> onCopy) : m_onCopy(std::move(onCopy)) {}
    Value(const Value& other)
    {
        if (other.m_onCopy != nullptr)
            other.m_onCopy();
    }
    Value& operator=(const Value&) = default;

    std::function<void()> m_onCopy;
};

void OnAnotherThread(const std::function<void()>& use)
{
    std::thread(use).join();
}

TEST(ThreadUseDeathTest, ASecondThreadInAMapThatChangesIsFound)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    using Watched = CHashMap<Key, Key, Value>;
    const std::function<void(Watched&)> uses[] = {
        [](Watched& map) { map.Find(Key(1)); }, [](Watched& map) { map.Remove(Key(1)); },
        [](Watched& map) { map.Insert(Key(2), Value()); }, [](Watched& map) { map.Clear(); },
        [](Watched& map) { static_cast<void>(map.begin()); }};
    for (const auto& use : uses)
    {
        Watched map;
        EXPECT_DEATH(map.Insert(Key(3), Value([&] { OnAnotherThread([&] { use(map); }); })), "thread");
    }
}

TEST(ThreadUseDeathTest, ASecondThreadInAnArrayThatChangesIsFound)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    using Watched = CXArray<Value>;
    const std::function<void(Watched&)> uses[] = {
        [](Watched& array) { static_cast<void>(array[0]); }, [](Watched& array) { static_cast<void>(array.begin()); },
        [](Watched& array) { array.SetSize(0); }, [](Watched& array) { array.RemoveAt(0); }};
    for (const auto& use : uses)
    {
        Watched array{Value()};
        EXPECT_DEATH(array.Add(Value([&] { OnAnotherThread([&] { use(array); }); })), "thread");
    }
}

/// Calls a function when its memory is copied to or from, and exposes none of it.
struct CallingFile : CXMemFile
{
    unsigned char* Memcpy(unsigned char* target, const unsigned char* source, unsigned __int64 count) override
    {
        if (m_onCopy != nullptr)
            std::exchange(m_onCopy, nullptr)();
        return CXMemFile::Memcpy(target, source, count);
    }
    unsigned __int64 BufferCommand(unsigned, unsigned __int64, unsigned char**, unsigned char**) override { return 0; }

    std::function<void()> m_onCopy;
};

TEST(ThreadUseDeathTest, ASecondThreadInTheLibrarysOwnClassesIsFound)
{
    if (!kLibraryChecks)
        GTEST_SKIP() << "the library is compiled without the checks";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const tev::test::TempFolder folder;
    COffsetArray offsets;
    offsets.SetSize(10000); // more than the archive has room for
    CElementArray elements(new CXIntElements);
    elements.SetSize(10000);
    CallingFile memory;
    CXArchive archive(&memory, xArchiveStore);
    const auto whileStoring = [&](auto& array, const std::function<void()>& use) {
        memory.m_onCopy = [&] { OnAnotherThread(use); };
        array.Serialize(archive);
        archive.Flush();
    };
    EXPECT_DEATH(whileStoring(offsets, [&] { offsets.GetAt(1); }), "thread");
    EXPECT_DEATH(whileStoring(offsets, [&] { offsets.SetAt(1, 1); }), "thread");
    EXPECT_DEATH(whileStoring(offsets, [&] { archive << 'c'; }), "thread");
    EXPECT_DEATH(whileStoring(offsets, [&] { archive.Flush(); }), "thread");
    EXPECT_DEATH(whileStoring(offsets, [&] { memory.Seek(0, CXFile::begin); }), "thread");
    EXPECT_DEATH(whileStoring(offsets, [&] { static_cast<void>(memory.GetLength()); }), "thread");
    EXPECT_DEATH(whileStoring(elements, [&] { elements.GetFirst(); }), "thread");
    EXPECT_DEATH(whileStoring(elements, [&] { elements.RemoveAll(); }), "thread");

    tev::test::FailingFileSystem files;
    CStdioFileEx text(folder.WidePath("text"), CXFile::modeCreate | CXFile::modeWrite);
    const auto whileWriting = [&](const std::function<void()>& use) {
        files.AtStep("write", [&] { OnAnotherThread(use); });
        text.WriteString(L"a line");
        text.Flush();
    };
    CXTString<wchar_t> line;
    EXPECT_DEATH(whileWriting([&] { text.ReadString(line); }), "thread");
    EXPECT_DEATH(whileWriting([&] { text.WriteString(L"b"); }), "thread");
    EXPECT_DEATH(whileWriting([&] { static_cast<void>(text.GetFilePath()); }), "thread");
}

/// Reaches a private member, as only an explicit instantiation may.
template <class OBJECT, tev::ThreadUse OBJECT::*USE>
struct Reveal
{
    friend tev::ThreadUse& UseOf(OBJECT& object) { return object.*USE; }
};
tev::ThreadUse& UseOf(CBitArray&);
tev::ThreadUse& UseOf(CMiniZip&);
tev::ThreadUse& UseOf(CRegUtil&);
tev::ThreadUse& UseOf(CZip&);
template struct Reveal<CBitArray, &CBitArray::m_use>;
template struct Reveal<CMiniZip, &CMiniZip::m_use>;
template struct Reveal<CRegUtil, &CRegUtil::m_use>;
template struct Reveal<CZip, &CZip::m_use>;

template <class OBJECT>
void ExpectEachIsFound(OBJECT& object, std::initializer_list<void (*)(OBJECT&)> uses)
{
    GTEST_FLAG_SET(death_test_style, "fast");
    std::optional<tev::CheckedExclusiveUse> change;
    OnAnotherThread([&] { change.emplace(UseOf(object)); });
    for (const auto& use : uses)
        EXPECT_DEATH(use(object), "thread") << "use " << &use - uses.begin();
    change.reset();
    for (const auto& use : uses)
        use(object);
}

TEST(ThreadUseDeathTest, EachOperationFindsAnotherThreadsChange)
{
    if (!kLibraryChecks)
        GTEST_SKIP() << "the library is compiled without the checks";
    const tev::test::TestRegistry registry;
    static unsigned words = 0;
    CBitArray bits;
    ExpectEachIsFound<CBitArray>(
        bits, {[](CBitArray& b) { b.SetSize(40, true); }, [](CBitArray& b) { b.SetAt(1, false); },
               [](CBitArray& b) { b.EraseByte(1, false); }, [](CBitArray& b) { static_cast<void>(b[1]); },
               [](CBitArray& b) { b.GetCount(true); }, [](CBitArray& b) { static_cast<void>(b.IsOneSet(true)); },
               [](CBitArray& b) { static_cast<void>(b.begin()); }, [](CBitArray& b) { b.GetBuffer(words); },
               [](CBitArray& b) { static_cast<void>(std::as_const(b).GetBuffer(words)); },
               [](CBitArray& b) { b.SetBuffer(nullptr, 0, 0); }, [](CBitArray& b) { b.RemoveAll(); },
               [](CBitArray& b) { static_cast<void>(b.DetachBuffer(words)); }});
    CRegUtil settings(CRegUtil::kAllAccess);
    ExpectEachIsFound<CRegUtil>(
        settings, {[](CRegUtil& r) { r.SetPath(L"a", true); }, [](CRegUtil& r) { r.SetRelPath(L"b", true); },
                   [](CRegUtil& r) { r.SetPath(); }, [](CRegUtil& r) { r.SetPath(nullptr, 0, nullptr, false); },
                   [](CRegUtil& r) { r.OpenBase(true); }, [](CRegUtil& r) { r.CloseBase(); },
                   [](CRegUtil& r) { r.KeyExists(L"v"); }, [](CRegUtil& r) { r.GetSubKeyInt(L"k", L"v", 0); },
                   [](CRegUtil& r) { r.StartBatch(); }, [](CRegUtil& r) { r.EndBatch(); },
                   [](CRegUtil& r) { r.DeleteKey(nullptr, false); }, [](CRegUtil& r) { r.StartSubKeyEnum(); },
                   [](CRegUtil& r) { r.GetNextSubKeyName(nullptr, 0); }, [](CRegUtil& r) { r.EndSubKeyEnum(); },
                   [](CRegUtil& r) { r.StartValueSection(L""); }, [](CRegUtil& r) { r.GetNextValueName(nullptr, 0); },
                   [](CRegUtil& r) { r.EndValueSection(); }, [](CRegUtil& r) { r.GetLastError(); },
                   [](CRegUtil& r) { const CRegUtil copy(r); }});
    CMiniZip unpacker;
    ExpectEachIsFound<CMiniZip>(unpacker,
                                {[](CMiniZip& z) { static_cast<void>(z.ExtractZip(L"", L"", false)); },
                                 [](CMiniZip& z) { static_cast<void>(z.ExtractZFile(L"", L"", false)); },
                                 [](CMiniZip& z) { z.Clean(); }, [](CMiniZip& z) { z.KeepFiles(); },
                                 [](CMiniZip& z) { z.SetPassword(L"p"); }, [](CMiniZip& z) { z.SetLimits({}); },
                                 [](CMiniZip& z) { z.GetLimits(); }, [](CMiniZip& z) { z.GetExtractedFiles(); },
                                 [](CMiniZip& z) { z.GetSkippedEntries(); }, [](CMiniZip& z) { z.GetFailure(); },
                                 [](CMiniZip& z) { z.GetDamage(); }});
    CZip archive;
    ExpectEachIsFound<CZip>(
        archive,
        {[](CZip& z) { z.Open(L"", zipOpenReadOnly, false, nullptr); }, [](CZip& z) { z.Close(false); },
         [](CZip& z) { z.Discard(); }, [](CZip& z) { static_cast<void>(z.IsClosed()); },
         [](CZip& z) { static_cast<void>(z.IsReadOnly()); }, [](CZip& z) { z.GetArchivePath(); },
         [](CZip& z) { z.SetPassword(L"p"); }, [](CZip& z) { z.SetLimits({}); }, [](CZip& z) { z.GetCount(true); },
         [](CZip& z) { z.TestFile(0); }, [](CZip& z) { z.GetLastFailure(); }, [](CZip& z) { z.GetLastSystemError(); }});
}

/// Use an object on another thread while it works.
struct CallingUnpacker : CMiniZip
{
    bool OnProgress(unsigned __int64, unsigned __int64) override
    {
        OnAnotherThread([this] { GetFailure(); });
        return true;
    }
};
struct CallingArchive : CZipExtractCallback
{
    bool OnProgress(unsigned __int64) override
    {
        OnAnotherThread([this] { m_archive.GetLastFailure(); });
        return true;
    }
    int OnExtractEntry(const CZipFileInfo&, const wchar_t*) override { return xZipExtractEntry; }
    CZip m_archive;
};
struct CallingHost : CUserInterface
{
    void ShowMessage(Severity, const CXTString<wchar_t>&) override
    {
        OnAnotherThread([this] { m_registry.GetLastError(); });
    }
    CRegUtil m_registry{CRegUtil::kRead};
};

TEST(ThreadUseDeathTest, AnObjectAtWorkIsBeingChanged)
{
    if (!kLibraryChecks)
        GTEST_SKIP() << "the library is compiled without the checks";
    GTEST_FLAG_SET(death_test_style, "fast");
    const tev::test::TempFolder folder;
    const std::wstring zip = folder.WidePath("a.zip");
    folder.WriteFile("file", "contents");
    ASSERT_TRUE(tev::test::ChangeArchive(
        zip, zipCreate, [&](CZip& made) { return made.AddNewFile(folder.WidePath("file"), false, zipLevelBest); }));
    CallingUnpacker unpacker;
    EXPECT_DEATH(static_cast<void>(unpacker.ExtractZip(zip, folder.WidePath("out"), true)), "thread");
    CallingArchive calling;
    ASSERT_TRUE(calling.m_archive.Open(zip, zipOpenReadOnly, false, &calling));
    EXPECT_DEATH(calling.m_archive.TestFile(0), "thread");
    calling.m_archive.Discard();
    CallingHost host;
    CUserInterface* const before = XSetUserInterface(&host);
    EXPECT_DEATH(host.m_registry.SetPath(), "thread");
    XSetUserInterface(before);
}

TEST(ThreadUse, ThreadsInTurnAndReadersAtOnceAreRight)
{
    Map map;
    map.Insert(Key(1), 1);
    OnAnotherThread([&map] { map.Insert(Key(2), 2); });
    for (const auto& [key, value] : map)
        OnAnotherThread([&map, key = key] { EXPECT_NE(map.Find(key), nullptr); });
    Map copy = map;
    copy = Map(map);
    EXPECT_EQ(map.Remove(Key(1)), 1);

    // What one thread does within its own change.
    CHashMap<Key, Key, Value> own;
    own.Insert(Key(1), Value([&own] { own.Find(Key(5)); }));
    OnAnotherThread([&own] { own.Insert(Key(2), Value()); });
    EXPECT_EQ(own.GetCount(), 2U);
}

TEST(ThreadUse, TheSizeIsTheSameWithAndWithoutTheChecks)
{
    // Nor have the classes become larger, but for one.
    EXPECT_EQ(sizeof(CXArray<int>), 40U);
    EXPECT_EQ(sizeof(COffsetArray), 48U);
    EXPECT_EQ(sizeof(CElementArray), 64U);
    EXPECT_EQ(sizeof(CXFile), 24U + sizeof(CXTString<wchar_t>));
    const tev::ThreadUse use;
    {
        const tev::CheckedExclusiveUse outer(use);
        const tev::CheckedExclusiveUse inner(use);
        const tev::UncheckedUse unchecked(use);
        OnAnotherThread([&use] { const tev::UncheckedUse ofAnother(use); });
    }
    OnAnotherThread([&use] { const tev::CheckedExclusiveUse ofAnother(use); });
    EXPECT_EQ(sizeof(use), sizeof(unsigned));
}
} // namespace
