// The checks in templates are tested in every build; no other source has maps of this key and arrays of this value.
#if defined(NDEBUG)
constexpr bool kLibraryChecks = false;
#undef NDEBUG
#else
constexpr bool kLibraryChecks = true;
#endif
#include "objects/ThreadUse.h"

#include "arrays/CElementArray.h"
#include "arrays/COffsetArray.h"
#include "arrays/CXArray.h"
#include "arrays/ElementKinds.h"
#include "files/CStdioFileEx.h"
#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "maps/CHashMap.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

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
