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
// touches a slot, and a new table only has its tags cleared. The first four slots of a search, 0, 1, 4 and 9 behind its home,
// have their tags in one group of sixteen and are looked at together without a branch for each, since such branches cannot
// be predicted. A walk finds the next entry in the same groups. The first tags are repeated behind the last, so that a group
// may be read at any slot.
//
// Keys can be chosen so that many have one home. Entries that lie 16 steps or more from their homes, of which tables of
// other keys have next to none, are also listed by another hash (HashFar.h), so that neither looking for such an entry
// nor finding the slot of a new one passes all of them.

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

/// The methods' hash that keys cannot be chosen for where they have one, else their other one.
template <class METHODS, class KEY, class = void>
struct WideHashOf
{
    static std::uint64_t Of(const KEY& key) { return METHODS::HashKey(key); }
};

template <class METHODS, class KEY>
struct WideHashOf<METHODS, KEY, std::void_t<decltype(METHODS::WideHash(std::declval<const KEY&>()))>>
{
    static std::uint64_t Of(const KEY& key) { return METHODS::WideHash(key); }
};

/// The operations that need no value. See CHashMap.
template <class SLOT_TYPE, class ARG_KEY, class METHODS>
class HashTableBase : public HashSlots<SLOT_TYPE>
{
    using Slots = HashSlots<SLOT_TYPE>;
    using Frame = HashFrame<SLOT_TYPE>;

public:
    using Key = typename SLOT_TYPE::Key;
    using LookupKey = typename LookupKeyOf<METHODS, ARG_KEY>::Type;

    [[nodiscard]] bool IsFound(LookupKey key) const { return FindSlot(key) != nullptr; }

    /// Removes an entry; 1 when there was one, else 0. Its slot stays deleted, and searches pass over it, until the next
    /// rebuild; with `rehash` that is done at once when it is due and more than 23 entries are left.
    int Remove(LookupKey key, bool rehash = false)
    {
        const ExclusiveUse use(m_use);
        if (!RemoveKey(key))
            return 0;
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
            return NoteHashFailure(HashOperation::kInitialize, SLOT_TYPE::kIsMap, false);
        return (m_slots != nullptr && size == m_requestedSize) || Restart(size) ||
               NoteHashFailure(HashOperation::kInitialize, SLOT_TYPE::kIsMap);
    }

    /// Rebuilds the table at the smallest size for its entries. False when it has that already, or no memory was left.
    bool Minimize()
    {
        const ExclusiveUse use(m_use);
        const unsigned size = HashSizeMinimal(m_count);
        return size != m_tableSize && size != 0 &&
               (Rebuild(size) || NoteHashFailure(HashOperation::kMinimize, SLOT_TYPE::kIsMap));
    }

protected:
    explicit HashTableBase(unsigned request) : Slots(NoSlots())
    {
        const unsigned size = HashSizeForRequest(request);
        if (!Restart(size == 0 ? kDefaultHashSize : size))
            NoteHashFailure(HashOperation::kConstruct, SLOT_TYPE::kIsMap);
    }
    HashTableBase(const HashTableBase&) = default;
    HashTableBase(HashTableBase&&) noexcept = default;
    HashTableBase& operator=(const HashTableBase&) = default;
    HashTableBase& operator=(HashTableBase&&) noexcept = default;

    template <class K>
    SLOT_TYPE* FindSlot(const K& key) const
    {
        const SharedUse use(m_use);
        const unsigned hash = METHODS::HashKey(key);
        return Search(key, TagOf(hash), Slots::GetFrame().Home(hash));
    }

    /// The key's slot, or null and, where asked for, the slot that a new key takes: the first one of the search that is
    /// deleted, else the empty one at its end; with kFarSlot where it is far.
    template <class K>
    SLOT_TYPE* Search(const K& key, unsigned char tag, std::size_t home, std::size_t* vacant = nullptr) const
    {
        const Frame frame = Slots::GetFrame();
        const TagGroup group(frame.m_tags + home);
        for (unsigned equal = group.Equal(tag) & kProbedTags; equal != 0; equal &= equal - 1)
        {
            SLOT_TYPE* slot = frame.m_slots + frame.SlotOf(home, equal);
            if (METHODS::Compare(slot->m_key, key))
                return slot;
        }
        const unsigned free = vacant == nullptr ? 0 : ~group.Occupied() & kProbedTags;
        if (free != 0)
            *vacant = frame.SlotOf(home, free);
        if ((group.Equal(kEmptyTag) & kProbedTags) != 0)
            return nullptr;
        return FindFurther(key, tag, home, free != 0 ? nullptr : vacant);
    }

    /// 1 for a new entry, 0 when the key was there (its value is overwritten) or there is no memory for one more slot.
    template <class... VALUES>
    int InsertEntry(const Key& key, VALUES&&... value)
    {
        const ExclusiveUse use(m_use);
        const unsigned hash = METHODS::HashKey(key);
        const unsigned char tag = TagOf(hash);
        const std::size_t home = Slots::GetFrame().Home(hash);
        std::size_t at = home;
        SLOT_TYPE* found = Search(key, tag, home, &at);
        if (found != nullptr)
        {
            found->Overwrite(std::forward<VALUES>(value)...);
            return 0;
        }

        const bool isFar = at >= kFarSlot;
        at &= ~kFarSlot;
        const bool reused = m_tags[at] == kDeletedTag;
        if (!reused && (m_used >= m_tableSize / 2 || m_slots == nullptr))
            return InsertAfterRebuild(key, std::forward<VALUES>(value)...);

        ::new (static_cast<void*>(m_slots + at)) SLOT_TYPE(std::in_place, key, std::forward<VALUES>(value)...);
        Occupy(at, tag, reused);
        if (isFar)
            ListFar(at);
        if (m_used >= m_tableSize / 2)
            RebuildAround(at, home, reused);
        return 1;
    }

    /// Removes every key of the other table, which may be this one.
    void RemoveKeys(const HashTableBase& other)
    {
        other.ForEach([this](const SLOT_TYPE& theirs) { RemoveKey(theirs.m_key); });
    }

private:
    using typename Slots::NoSlots;
    using Slots::Allocate;
    using Slots::m_count;
    using Slots::m_far;
    using Slots::m_farCount;
    using Slots::m_requestedSize;
    using Slots::m_slots;
    using Slots::m_tableSize;
    using Slots::m_tags;
    using Slots::m_use;
    using Slots::m_used;
    using Slots::Occupy;
    using Slots::RemoveSlot;
    using Slots::Restart;
    using Slots::Swap;

    /// An entry on its way into a new table.
    struct Arrival
    {
        SLOT_TYPE* m_slot;
        std::size_t m_home;
        unsigned char m_tag;
    };

    static constexpr std::size_t kNearBytes = std::size_t(1) << 18;

    explicit HashTableBase(NoSlots none) noexcept : Slots(none) {}

    static unsigned char TagOf(unsigned hash) noexcept { return static_cast<unsigned char>(hash | kOccupiedTag); }

    /// The rest of a search, after the first four slots.
    template <class K>
    SLOT_TYPE* FindFurther(const K& key, unsigned char tag, std::size_t home, std::size_t* vacant) const
    {
        const Frame frame = Slots::GetFrame();
        std::size_t at = frame.Fifth(home);
        for (std::size_t step = kFifthStep; step <= kLastNearStep; step += 2)
        {
            if (frame.m_tags[at] == kEmptyTag)
            {
                if (vacant != nullptr)
                    *vacant = at;
                return nullptr;
            }
            if (frame.m_tags[at] == tag && METHODS::Compare(frame.m_slots[at].m_key, key))
                return frame.m_slots + at;
            if (frame.m_tags[at] == kDeletedTag && vacant != nullptr)
                *std::exchange(vacant, nullptr) = at;
            at = frame.Wrap(at + step);
        }
        return FindFar(key, tag, home, vacant);
    }

    /// The rest after the near slots, none of which is empty.
    template <class K>
    TEV_CALLED_SELDOM SLOT_TYPE* FindFar(const K& key, unsigned char tag, std::size_t home, std::size_t* vacant) const
    {
        if (m_far != nullptr)
        {
            const unsigned at = m_far->Find(WideHashOf<METHODS, K>::Of(key),
                                            [&](unsigned slot) { return METHODS::Compare(m_slots[slot].m_key, key); });
            if (at != HashPairs::kNone)
                return m_slots + at;
        }
        else if (m_farCount != 0)
        {
            const Frame frame = Slots::GetFrame();
            std::uint64_t probe = HashFar::kNearProbes;
            for (std::size_t at = frame.Probe(home, probe); frame.m_tags[at] != kEmptyTag;)
            {
                if (frame.m_tags[at] == tag && METHODS::Compare(frame.m_slots[at].m_key, key))
                    return frame.m_slots + at;
                at = frame.Probe(home, ++probe);
            }
        }
        if (vacant != nullptr)
            *vacant = FreeFarSlot(home) | kFarSlot;
        return nullptr;
    }

    /// The first slot for a new key behind the near ones.
    TEV_CALLED_SELDOM std::size_t FreeFarSlot(std::size_t home) const noexcept
    {
        const Frame frame = Slots::GetFrame();
        const auto number = static_cast<unsigned>(home);
        unsigned probe = m_far == nullptr ? HashFar::kNearProbes : m_far->FirstProbe(number);
        std::size_t at = frame.Probe(home, probe);
        while (frame.m_tags[at] >= kOccupiedTag)
            at = frame.Probe(home, ++probe);
        if (m_far != nullptr)
            m_far->SetFirstProbe(number, probe);
        return at;
    }

    /// Of an entry that has gone into a far slot.
    TEV_CALLED_SELDOM void ListFar(std::size_t at)
    {
        if (m_farCount++ == 0 && m_far == nullptr)
            m_far.reset(new (std::nothrow) HashFar);
        const auto slot = static_cast<unsigned>(at);
        if (m_far != nullptr && !m_far->Add(WideHashOf<METHODS, Key>::Of(m_slots[at].m_key), slot))
            m_far.reset();
    }

    /// Whether the key was there.
    template <class K>
    bool RemoveKey(const K& key)
    {
        const unsigned hash = METHODS::HashKey(key);
        const std::size_t home = Slots::GetFrame().Home(hash);
        const SLOT_TYPE* const slot = Search(key, TagOf(hash), home);
        if (slot != nullptr)
            RemoveEntry(static_cast<std::size_t>(slot - m_slots), home);
        return slot != nullptr;
    }

    void RemoveEntry(std::size_t at, std::size_t home)
    {
        if (m_far != nullptr)
        {
            m_far->ForgetProbes();
            if (!Slots::GetFrame().IsNear(at, home))
                UnlistFar(at);
        }
        RemoveSlot(at);
    }

    TEV_CALLED_SELDOM void UnlistFar(std::size_t at)
    {
        if (m_far->Remove(WideHashOf<METHODS, Key>::Of(m_slots[at].m_key), static_cast<unsigned>(at)))
            --m_farCount;
    }

    /// Where an earlier rebuild found no memory, the table is as full as searches allow: one more slot is used only after a
    /// rebuild. Key and value may lie in the slots that it moves.
    template <class... VALUES>
    int InsertAfterRebuild(const Key& key, VALUES&&... value)
    {
        using Kept = std::tuple<Key, std::decay_t<VALUES>...>;
        const std::unique_ptr<Kept> kept(new (std::nothrow) Kept(key, std::forward<VALUES>(value)...));
        if (kept == nullptr ||
            !(m_slots == nullptr ? Allocate(m_tableSize) : Rebuild(HashSizeRebuilt(m_tableSize, m_used, m_count))))
            return NoteHashFailure(HashOperation::kInsert, SLOT_TYPE::kIsMap) ? 1 : 0;
        return std::apply([this](const Key& k, auto&... values) { return this->InsertEntry(k, std::move(values)...); },
                          *kept);
    }

    bool RebuildIfFull() { return m_used >= m_tableSize / 2 && Rebuild(HashSizeRebuilt(m_tableSize, m_used, m_count)); }

    /// Rebuilds after an entry went in, and takes that one out again when copying the others throws.
    void RebuildAround(std::size_t at, std::size_t home, bool reused)
    {
        if constexpr (SLOT_TYPE::kMoves)
            RebuildIfFull();
        else
        {
            try
            {
                RebuildIfFull();
            }
            catch (...)
            {
                RemoveEntry(at, home);
                if (!reused)
                {
                    Slots::GetFrame().SetTag(at, kEmptyTag);
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

    void TakeEntries(HashTableBase& old)
    {
        if (m_tableSize * sizeof(SLOT_TYPE) < kNearBytes)
            TakeNear(old);
        else
            TakeFar(old);
        // The moved entries are destroyed already.
        if constexpr (SLOT_TYPE::kMoves)
            m_used = m_count = std::exchange(old.m_count, 0);
    }

    void TakeNear(HashTableBase& old)
    {
        const Frame frame = Slots::GetFrame();
        old.ForEach([this, frame](SLOT_TYPE& slot) {
            const unsigned hash = METHODS::HashKey(slot.m_key);
            Settle(frame, {&slot, frame.Home(hash), TagOf(hash)});
        });
    }

    /// Where the table is larger than the nearer caches, the homes of the entries are fetched some entries ahead.
    void TakeFar(HashTableBase& old)
    {
        constexpr unsigned kAhead = 16;
        const Frame frame = Slots::GetFrame();
        Arrival arrivals[kAhead];
        unsigned arrived = 0;
        unsigned settled = 0;
        old.ForEach([&, frame](SLOT_TYPE& slot) {
            const unsigned hash = METHODS::HashKey(slot.m_key);
            const std::size_t home = frame.Home(hash);
            PrefetchForWrite(frame.m_tags + home);
            PrefetchForWrite(frame.m_slots + home);
            arrivals[arrived++ % kAhead] = {&slot, home, TagOf(hash)};
            if (arrived - settled == kAhead)
                Settle(frame, arrivals[settled++ % kAhead]);
        });
        while (settled != arrived)
            Settle(frame, arrivals[settled++ % kAhead]);
    }

    void Settle(Frame frame, Arrival arrival)
    {
        const std::size_t at = frame.FreeSlot(arrival.m_home);
        if (at == kFarSlot)
            SettleFar(frame, arrival);
        else
            SettleAt(frame, arrival, at);
    }

    TEV_CALLED_SELDOM void SettleFar(Frame frame, Arrival arrival)
    {
        const std::size_t at = FreeFarSlot(arrival.m_home);
        SettleAt(frame, arrival, at);
        ListFar(at);
    }

    /// Copies may throw, and are counted one by one.
    void SettleAt(Frame frame, Arrival arrival, std::size_t at)
    {
        if constexpr (SLOT_TYPE::kMoves)
        {
            arrival.m_slot->MoveTo(frame.m_slots + at);
            arrival.m_slot->~SLOT_TYPE();
            frame.SetTag(at, arrival.m_tag);
        }
        else
        {
            arrival.m_slot->CopyTo(frame.m_slots + at);
            Occupy(at, arrival.m_tag, false);
        }
    }
};
} // namespace tev
