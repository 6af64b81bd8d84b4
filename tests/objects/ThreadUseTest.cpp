// The checks are tested in every build; no other source has maps of this key.
#undef NDEBUG
#include "objects/ThreadUse.h"

#include "maps/CHashMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

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
