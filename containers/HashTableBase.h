#pragma once

#include "containers/CHashMethods.h"
#include "containers/HashSlot.h"
#include "containers/HashTags.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

// What CHashMap and CHashTable have in common: the table, its probing, its growth.
//
// A table is an array of slots of a prime size, kept less than half full counting the slots of removed entries. A key's home
// is its hash modulo the size; a slot that is taken sends the search on by 1, 3, 5, ... slots, so that the distances from
// home are the squares. With a prime size the squares reach more than half of the slots before they repeat, so a search
// always ends at an empty one.
//
// The order of the slots is what callers see when they walk a map, so home, probing and growth are fixed for good. What is
// free is how a slot is looked at. Behind the slots lies one byte for each, its tag: 0 empty, 0x40 deleted, else the hash's
// low seven bits with the high bit set. A search reads the tags and compares keys only where they match, so a miss rarely
// touches a slot. The first three slots of a search, 0, 1 and 4 behind its home, have their tags in one 64-bit word and are
// looked at together without a branch for each, since such branches cannot be foretold. A walk finds the next entry in the
// same words. The first tags are repeated behind the last, so that a word may be read at any slot.

namespace tev
{
inline constexpr unsigned kDefaultHashSize = 23;

// Sizes of tables; 0 where the size would need more than 32 bits.

/// For a constructor's request, which names a size.
TEVTOOLS_API unsigned HashSizeForRequest(unsigned request) noexcept;
/// With room for that many entries.
TEVTOOLS_API unsigned HashSizeForEntries(unsigned count) noexcept;
/// The smallest for that many entries.
TEVTOOLS_API unsigned HashSizeMinimal(unsigned count) noexcept;
/// After a table of that size has become full: larger, or fit for the live entries when most were deleted.
TEVTOOLS_API unsigned HashSizeRebuilt(unsigned size, unsigned used, unsigned count) noexcept;

/// Memory for the slots of a table and, behind them, a byte for each and kTagPadding; null when it cannot be had.
TEVTOOLS_API void* AllocateHashSlots(unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept;
TEVTOOLS_API void FreeHashSlots(void* block, unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept;

/// What lookups take: the methods' own type where they name one, else the key as the map passes it.
template <class METHODS, class ARG_KEY, class = void>
struct LookupKeyOf
{
    using Type = ARG_KEY;
};

template <class METHODS, class ARG_KEY>
struct LookupKeyOf<METHODS, ARG_KEY, std::void_t<typename METHODS::LookupKey>>
{
    using Type = typename METHODS::LookupKey;
};

/// The operations that need no value. See CHashMap.
template <class SLOT, class ARG_KEY, class METHODS>
class HashTableBase
{
public:
    using Key = typename SLOT::Key;
    using LookupKey = typename LookupKeyOf<METHODS, ARG_KEY>::Type;

    /// The position behind the last entry.
    static constexpr unsigned kNoPosition = 0xFFFFFFFF;

    virtual ~HashTableBase() { Release(); }

    bool IsEmpty() const noexcept { return m_count == 0; }
    unsigned int GetCount() const noexcept { return m_count; }
    /// The number of slots.
    unsigned int GetHashTableSize() const noexcept { return m_tableSize; }
    bool IsFound(LookupKey key) const { return FindSlot(key) != nullptr; }

    /// The position of the first entry, kNoPosition (0xFFFFFFFF) when there is none.
    unsigned int GetFirst() const noexcept { return NextOccupied(0); }
    /// Adds every key, in the order of the slots, to an array and returns how many there were.
    template <class ARRAY>
    unsigned int CopyTo(ARRAY& keys) const
    {
        ForEach([&keys](const SLOT& slot) { keys.Add(slot.m_key); });
        return m_count;
    }

    /// Removes an entry; 1 when there was one, else 0. Its slot stays deleted, and searches pass over it, until the next
    /// rebuild; with `rehash` that is done at once when it is due and more than 23 entries are left.
    int Remove(LookupKey key, bool rehash = false)
    {
        SLOT* slot = FindSlot(key);
        if (slot == nullptr)
            return 0;
        RemoveSlot(static_cast<std::size_t>(slot - m_slots));
        if (rehash && m_count > kDefaultHashSize)
            RebuildIfFull();
        return 1;
    }

    /// Removes every entry and keeps the slots.
    void Clear() noexcept
    {
        if (m_used == 0)
            return;
        DestroyEntries();
        for (std::size_t at = 0; at < m_tableSize; ++at)
            m_slots[at].m_state = kSlotEmpty;
        std::memset(m_tags, kEmptyTag, m_tableSize + kTagPadding);
        m_used = 0;
        m_count = 0;
    }

    /// Removes every entry and starts again with 23 slots.
    void Free() noexcept { Restart(kDefaultHashSize); }

    /// Removes every entry and makes room for `count` of them, so that they go in without a rebuild. Does nothing when the
    /// table was last made for the same size, filled or not. A table without slots gets `count` of them. False when
    /// there is no such size (nothing has changed) or no memory (the table has no slots).
    bool InitHashTable(unsigned int count)
    {
        const unsigned size = m_slots == nullptr ? HashSizeForRequest(count) : HashSizeForEntries(count);
        if (size == 0)
            return false;
        return (m_slots != nullptr && size == m_requestedSize) || Restart(size);
    }

    /// Rebuilds the table at the smallest size for its entries. False when it has that already, or no memory was left.
    bool Minimize()
    {
        const unsigned size = HashSizeMinimal(m_count);
        return size != m_tableSize && size != 0 && Rebuild(size);
    }

protected:
    explicit HashTableBase(unsigned request)
    {
        const unsigned size = HashSizeForRequest(request);
        Restart(size == 0 ? kDefaultHashSize : size);
    }
    HashTableBase(const HashTableBase& other) : HashTableBase(NoSlots()) { CopySlots(other); }
    HashTableBase(HashTableBase&& other) noexcept : HashTableBase(NoSlots()) { Swap(other); }
    HashTableBase& operator=(const HashTableBase& other)
    {
        if (this != &other)
        {
            HashTableBase copy(other);
            Swap(copy);
        }
        return *this;
    }
    HashTableBase& operator=(HashTableBase&& other) noexcept
    {
        HashTableBase taken(std::move(other));
        Swap(taken);
        return *this;
    }

    template <class K>
    SLOT* FindSlot(const K& key) const
    {
        const unsigned hash = METHODS::HashKey(key);
        return Search(key, TagOf(hash), Home(hash));
    }

    /// The key's slot, or null and, where asked for, the slot that a new key takes: the first one of the search that is
    /// deleted, else the empty one at its end.
    template <class K>
    SLOT* Search(const K& key, unsigned char tag, std::size_t home, std::size_t* vacant = nullptr) const
    {
        if (m_tags[home] == tag && METHODS::Compare(m_slots[home].m_key, key))
            return m_slots + home;
        const TagWord word(m_tags + home);
        for (std::uint64_t equal = word.Equal(tag); equal != 0; equal &= equal - 1)
        {
            SLOT* slot = m_slots + Wrap(home + TagWord::First(equal));
            if (METHODS::Compare(slot->m_key, key))
                return slot;
        }
        const std::uint64_t free = vacant == nullptr ? 0 : word.EmptyOrDeleted();
        if (free != 0)
            *vacant = Wrap(home + TagWord::First(free));
        return word.Empty() != 0 ? nullptr : FindFurther(key, tag, home, free != 0 ? nullptr : vacant);
    }

    /// 1 for a new entry, 0 when the key was there (its value is overwritten) or there is no memory for one more slot.
    template <class... VALUES>
    int InsertEntry(const Key& key, VALUES&&... value)
    {
        const unsigned hash = METHODS::HashKey(key);
        const unsigned char tag = TagOf(hash);
        const std::size_t home = Home(hash);
        std::size_t at = home;
        if (m_tags[home] != kEmptyTag)
        {
            SLOT* found = Search(key, tag, home, &at);
            if (found != nullptr)
            {
                found->Overwrite(std::forward<VALUES>(value)...);
                return 0;
            }
        }

        const bool reused = m_tags[at] == kDeletedTag;
        if (!reused && (m_used >= m_tableSize / 2 || m_slots == nullptr))
            return InsertAfterRebuild(key, std::forward<VALUES>(value)...);

        m_slots[at].Create(key, std::forward<VALUES>(value)...);
        Occupy(at, tag, reused);
        if (m_used >= m_tableSize / 2)
            RebuildAround(at, reused);
        return 1;
    }

    /// Removes every key of the other table, which may be this one.
    void RemoveKeys(const HashTableBase& other)
    {
        other.ForEach([this](const SLOT& theirs) {
            const SLOT* slot = FindSlot(theirs.m_key);
            if (slot != nullptr)
                RemoveSlot(static_cast<std::size_t>(slot - m_slots));
        });
    }

    /// The slot at a position, which moves on to the next entry; null where no entry stands (any more).
    SLOT* TakePosition(unsigned& position) const noexcept
    {
        const std::size_t at = position;
        position = NextOccupied(at + 1);
        return m_slots != nullptr && at < m_tableSize && m_tags[at] >= kOccupiedTag ? m_slots + at : nullptr;
    }

    /// Position of the first entry at `from` or behind it.
    unsigned NextOccupied(std::size_t from) const noexcept
    {
        const std::size_t end = m_slots == nullptr ? 0 : m_tableSize;
        for (; from < end; from += 8)
        {
            const std::uint64_t occupied = TagWord(m_tags + from).Occupied();
            if (occupied == 0)
                continue;
            const std::size_t at = from + TagWord::First(occupied);
            return at < end ? static_cast<unsigned>(at) : kNoPosition;
        }
        return kNoPosition;
    }

    /// Calls a function with each occupied slot, in order. It may remove that one.
    template <class FUNCTION>
    void ForEach(FUNCTION function) const
    {
        const std::size_t end = m_slots == nullptr ? 0 : m_tableSize;
        for (std::size_t from = 0; from < end; from += 8)
        {
            for (std::uint64_t occupied = TagWord(m_tags + from).Occupied(); occupied != 0; occupied &= occupied - 1)
            {
                // The last word may reach into the repeated tags.
                const std::size_t at = from + TagWord::First(occupied);
                if (at < end)
                    function(m_slots[at]);
            }
        }
    }

private:
    struct NoSlots
    {
    };
    /// An entry on its way into a new table.
    struct Arrival
    {
        SLOT* m_slot;
        std::size_t m_home;
        unsigned char m_tag;
    };

    static constexpr std::size_t kNearBytes = std::size_t(1) << 18;

    explicit HashTableBase(NoSlots) noexcept {}

    static unsigned char TagOf(unsigned hash) noexcept { return static_cast<unsigned char>(hash | kOccupiedTag); }
    std::size_t Home(unsigned hash) const noexcept { return Remainder(hash, m_tableSize, m_reciprocal); }
    std::size_t Wrap(std::size_t at) const noexcept { return at >= m_tableSize ? at - m_tableSize : at; }

    void SetTag(std::size_t at, unsigned char tag) noexcept
    {
        m_tags[at] = tag;
        for (at += m_tableSize; at < m_tableSize + kTagPadding; at += m_tableSize)
            m_tags[at] = tag;
    }

    /// The rest of a search, after the first three slots.
    template <class K>
    SLOT* FindFurther(const K& key, unsigned char tag, std::size_t home, std::size_t* vacant) const
    {
        std::size_t at = Fourth(home);
        for (std::size_t step = kFourthStep; m_tags[at] != kEmptyTag; step += 2)
        {
            if (m_tags[at] == tag && METHODS::Compare(m_slots[at].m_key, key))
                return m_slots + at;
            if (m_tags[at] == kDeletedTag && vacant != nullptr)
                *std::exchange(vacant, nullptr) = at;
            at = Wrap(at + step);
        }
        if (vacant != nullptr)
            *vacant = at;
        return nullptr;
    }

    /// The slot for a key that is known not to be there.
    std::size_t FreeSlot(std::size_t home) const noexcept
    {
        const TagWord word(m_tags + home);
        const std::uint64_t vacant = word.EmptyOrDeleted();
        if (vacant != 0)
            return Wrap(home + TagWord::First(vacant));
        std::size_t at = Fourth(home);
        for (std::size_t step = kFourthStep; m_tags[at] >= kOccupiedTag; step += 2)
            at = Wrap(at + step);
        return at;
    }

    /// The fourth slot of a search; a small table is passed more than once on the way.
    std::size_t Fourth(std::size_t home) const noexcept
    {
        return m_tableSize > kFourthProbe ? Wrap(home + kFourthProbe) : (home + kFourthProbe) % m_tableSize;
    }

    void Occupy(std::size_t at, unsigned char tag, bool reused) noexcept
    {
        m_slots[at].m_state = kSlotOccupied;
        SetTag(at, tag);
        ++m_count;
        m_used += reused ? 0 : 1;
    }

    void RemoveSlot(std::size_t at) noexcept
    {
        m_slots[at].Destroy();
        m_slots[at].m_state = kSlotDeleted;
        SetTag(at, kDeletedTag);
        --m_count;
    }

    /// Where an earlier rebuild found no memory, the table is as full as searches allow: one more slot is used only after a
    /// rebuild. Key and value may lie in the slots that it moves.
    template <class... VALUES>
    int InsertAfterRebuild(const Key& key, VALUES&&... value)
    {
        using Kept = std::tuple<Key, std::decay_t<VALUES>...>;
        const std::unique_ptr<Kept> kept(new (std::nothrow) Kept(key, std::forward<VALUES>(value)...));
        if (kept == nullptr)
            return 0;
        if (!(m_slots == nullptr ? Allocate(m_tableSize) : Rebuild(HashSizeRebuilt(m_tableSize, m_used, m_count))))
            return 0;
        return std::apply([this](const Key& k, auto&... values) { return this->InsertEntry(k, std::move(values)...); },
                          *kept);
    }

    bool RebuildIfFull() { return m_used >= m_tableSize / 2 && Rebuild(HashSizeRebuilt(m_tableSize, m_used, m_count)); }

    /// Rebuilds after an entry went in, and takes that one out again when copying the others throws.
    void RebuildAround(std::size_t at, bool reused)
    {
        if constexpr (SLOT::kMoves)
            RebuildIfFull();
        else
        {
            try
            {
                RebuildIfFull();
            }
            catch (...)
            {
                RemoveSlot(at);
                if (!reused)
                {
                    m_slots[at].m_state = kSlotEmpty;
                    SetTag(at, kEmptyTag);
                    --m_used;
                }
                throw;
            }
        }
    }

    /// Puts the entries, in the order of their slots, into a table of another size. Without memory nothing changes.
    bool Rebuild(unsigned size)
    {
        HashTableBase fresh{NoSlots()};
        if (size == 0 || !fresh.Allocate(size))
            return false;
        fresh.m_requestedSize = m_requestedSize;
        fresh.TakeEntries(*this);
        Swap(fresh);
        return true;
    }

    /// Where the table is larger than the nearer caches, the homes of the entries are fetched some entries ahead.
    void TakeEntries(HashTableBase& old)
    {
        constexpr unsigned kAhead = 16;
        const unsigned ahead = m_tableSize * sizeof(SLOT) < kNearBytes ? 1 : kAhead;
        Arrival arrivals[kAhead];
        unsigned arrived = 0;
        unsigned settled = 0;
        old.ForEach([&](SLOT& slot) {
            const unsigned hash = METHODS::HashKey(slot.m_key);
            const std::size_t home = Home(hash);
            PrefetchForWrite(m_tags + home);
            PrefetchForWrite(m_slots + home);
            arrivals[arrived++ % kAhead] = {&slot, home, TagOf(hash)};
            if (arrived - settled == ahead)
                Settle(arrivals[settled++ % kAhead]);
        });
        while (settled != arrived)
            Settle(arrivals[settled++ % kAhead]);

        // What was moved is gone already.
        if constexpr (SLOT::kMoves)
        {
            old.m_count = 0;
        }
    }

    void Settle(const Arrival& arrival)
    {
        const std::size_t at = m_tags[arrival.m_home] == kEmptyTag ? arrival.m_home : FreeSlot(arrival.m_home);
        if constexpr (SLOT::kMoves)
        {
            m_slots[at].CreateMoved(*arrival.m_slot);
            arrival.m_slot->Destroy();
        }
        else
            m_slots[at].CreateCopy(*arrival.m_slot);
        Occupy(at, arrival.m_tag, false);
    }

    /// Drops everything, then makes empty slots. False, and no slots, without memory.
    bool Restart(unsigned size) noexcept
    {
        Release();
        m_requestedSize = size;
        return Allocate(size);
    }

    /// For a table without slots.
    bool Allocate(unsigned size) noexcept
    {
        m_tableSize = size;
        m_used = 0;
        m_count = 0;
        void* block = AllocateHashSlots(size, sizeof(SLOT), alignof(SLOT));
        if (block == nullptr)
            return false;
        m_slots = static_cast<SLOT*>(block);
        for (std::size_t at = 0; at < size; ++at)
            ::new (static_cast<void*>(m_slots + at)) SLOT;
        m_tags = static_cast<unsigned char*>(block) + size * sizeof(SLOT);
        std::memset(m_tags, kEmptyTag, std::size_t(size) + kTagPadding);
        m_reciprocal = ReciprocalOf(size);
        return true;
    }

    void Release() noexcept
    {
        if (m_slots == nullptr)
            return;
        DestroyEntries();
        FreeHashSlots(m_slots, m_tableSize, sizeof(SLOT), alignof(SLOT));
        m_slots = nullptr;
        m_tags = const_cast<unsigned char*>(kNoTags);
        m_reciprocal = 0;
        m_used = 0;
        m_count = 0;
    }

    void DestroyEntries() noexcept
    {
        if constexpr (!SLOT::kPlain)
        {
            if (m_count != 0)
                ForEach([](SLOT& slot) { slot.Destroy(); });
        }
    }

    /// Into a table without slots.
    void CopySlots(const HashTableBase& other)
    {
        m_requestedSize = other.m_requestedSize;
        m_tableSize = other.m_tableSize;
        if (other.m_slots == nullptr || !Allocate(other.m_tableSize))
            return;
        for (std::size_t at = 0; at < m_tableSize; ++at)
        {
            const unsigned char tag = other.m_tags[at];
            if (tag >= kOccupiedTag)
            {
                m_slots[at].CreateCopy(other.m_slots[at]);
                ++m_count;
            }
            m_slots[at].m_state = other.m_slots[at].m_state;
            SetTag(at, tag);
        }
        m_used = other.m_used;
    }

    void Swap(HashTableBase& other) noexcept
    {
        std::swap(m_requestedSize, other.m_requestedSize);
        std::swap(m_tableSize, other.m_tableSize);
        std::swap(m_used, other.m_used);
        std::swap(m_count, other.m_count);
        std::swap(m_slots, other.m_slots);
        std::swap(m_tags, other.m_tags);
        std::swap(m_reciprocal, other.m_reciprocal);
    }

    unsigned m_requestedSize = kDefaultHashSize;
    unsigned m_tableSize = kDefaultHashSize;
    unsigned m_used = 0;
    unsigned m_count = 0;
    SLOT* m_slots = nullptr;
    unsigned char* m_tags = const_cast<unsigned char*>(kNoTags);
    std::uint64_t m_reciprocal = 0;
};
} // namespace tev
