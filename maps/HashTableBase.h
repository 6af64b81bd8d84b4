#pragma once

#include "maps/CHashMethods.h"
#include "maps/HashSizes.h"
#include "maps/HashSlots.h"
#include "maps/HashTags.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

// What CHashMap and CHashTable have in common: the table, its probing, its growth.
//
// A table is an array of slots of a prime size, kept less than half full counting the slots of removed entries. A key's
// home is its hash modulo the size; a slot that is taken sends the search on by 1, 3, 5, ... slots, so that the
// distances from home are the squares. With a prime size the squares reach more than half of the slots before they
// repeat, so a search always ends at an empty one.
//
// The order of the slots is what callers see when they walk a map, so home, probing and growth are fixed for good. How a
// slot is examined is free. After the slots there is one byte for each, its tag: 0 empty, 0x40 deleted, else the hash's
// low seven bits with the high bit set. A search reads the tags and compares keys only where they match, so a miss rarely
// touches a slot. The first three slots of a search, 0, 1 and 4 behind its home, have their tags in one 64-bit word and are
// looked at together without a branch for each, since such branches cannot be predicted. A walk finds the next entry in the
// same words. The first tags are repeated behind the last, so that a word may be read at any slot.

namespace tev
{
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
class HashTableBase : public HashSlots<SLOT>
{
    using Slots = HashSlots<SLOT>;

public:
    using Key = typename SLOT::Key;
    using LookupKey = typename LookupKeyOf<METHODS, ARG_KEY>::Type;

    [[nodiscard]] bool IsFound(LookupKey key) const { return FindSlot(key) != nullptr; }

    /// Removes an entry; 1 when there was one, else 0. Its slot stays deleted, and searches pass over it, until the next
    /// rebuild; with `rehash` that is done at once when it is due and more than 23 entries are left.
    int Remove(LookupKey key, bool rehash = false)
    {
        const ExclusiveUse use(m_use);
        SLOT* slot = FindSlot(key);
        if (slot == nullptr)
            return 0;
        RemoveSlot(static_cast<std::size_t>(slot - m_slots));
        if (rehash && m_count > kDefaultHashSize)
            RebuildIfFull();
        return 1;
    }

    /// Removes every entry and starts again with 23 slots.
    void Free() noexcept { Restart(kDefaultHashSize); }

    /// Removes every entry and makes room for `count` of them, so that they go in without a rebuild. Does nothing when the
    /// table was last made for the same size, filled or not. A table without slots gets `count` of them. False when
    /// there is no such size (nothing has changed) or no memory (the table has no slots).
    bool InitHashTable(unsigned int count)
    {
        const ExclusiveUse use(m_use);
        const unsigned size = m_slots == nullptr ? HashSizeForRequest(count) : HashSizeForEntries(count);
        if (size == 0)
            return false;
        return (m_slots != nullptr && size == m_requestedSize) || Restart(size);
    }

    /// Rebuilds the table at the smallest size for its entries. False when it has that already, or no memory was left.
    bool Minimize()
    {
        const ExclusiveUse use(m_use);
        const unsigned size = HashSizeMinimal(m_count);
        return size != m_tableSize && size != 0 && Rebuild(size);
    }

protected:
    explicit HashTableBase(unsigned request) : Slots(NoSlots())
    {
        const unsigned size = HashSizeForRequest(request);
        Restart(size == 0 ? kDefaultHashSize : size);
    }
    HashTableBase(const HashTableBase&) = default;
    HashTableBase(HashTableBase&&) noexcept = default;
    HashTableBase& operator=(const HashTableBase&) = default;
    HashTableBase& operator=(HashTableBase&&) noexcept = default;

    template <class K>
    SLOT* FindSlot(const K& key) const
    {
        const SharedUse use(m_use);
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
        const ExclusiveUse use(m_use);
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

private:
    using typename Slots::NoSlots;
    using Slots::Allocate;
    using Slots::Home;
    using Slots::m_count;
    using Slots::m_requestedSize;
    using Slots::m_slots;
    using Slots::m_tableSize;
    using Slots::m_tags;
    using Slots::m_use;
    using Slots::m_used;
    using Slots::Occupy;
    using Slots::RemoveSlot;
    using Slots::Restart;
    using Slots::SetTag;
    using Slots::Swap;
    using Slots::Wrap;

    /// An entry on its way into a new table.
    struct Arrival
    {
        SLOT* m_slot;
        std::size_t m_home;
        unsigned char m_tag;
    };

    static constexpr std::size_t kNearBytes = std::size_t(1) << 18;

    explicit HashTableBase(NoSlots none) noexcept : Slots(none) {}

    static unsigned char TagOf(unsigned hash) noexcept { return static_cast<unsigned char>(hash | kOccupiedTag); }

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

        // The moved entries are destroyed already.
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
};
} // namespace tev
