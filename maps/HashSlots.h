#pragma once

#include "maps/HashFar.h"
#include "maps/HashSizes.h"
#include "maps/HashSlot.h"
#include "maps/HashTags.h"
#include "objects/ThreadUse.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory> // the tag of iterators, too; <iterator> brings the streams
#include <new>
#include <type_traits>
#include <utility>

namespace tev
{
/// Memory for the slots of a table and, behind them, a byte for each and for kTagGroup more; null when it cannot be had.
TEVTOOLS_API void* AllocateHashSlots(unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept;
/// The operations of a table that can fail.
enum class HashOperation : unsigned char
{
    kConstruct,
    kInsert,
    kInitialize,
    kMinimize
};
/// Notes why an operation of a map, or of a table without values, failed: for memory, or for an argument. Returns false. The
/// names are the library's, since those of a plug-in go with it.
TEVTOOLS_API bool NoteHashFailure(HashOperation operation, bool isMap, bool isMemory = true) noexcept;
TEVTOOLS_API void FreeHashSlots(void* block, unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept;

/// Marks a slot that lies far from its home.
inline constexpr std::size_t kFarSlot = ~(~std::size_t(0) >> 1);
/// The step from the last near slot of a search to the first far one.
inline constexpr std::size_t kLastNearStep = 2 * HashFar::kNearProbes - 1;

/// Where the slots of a table lie. Work on many slots takes a copy, whose members stay in registers: the compiler must take it
/// that storing a tag may change those of the table.
template <class SLOT_TYPE>
struct HashFrame
{
    SLOT_TYPE* m_slots;
    unsigned char* m_tags;
    std::size_t m_size;
    std::uint64_t m_reciprocal;

    std::size_t Home(unsigned hash) const noexcept
    {
        return Remainder(hash, static_cast<unsigned>(m_size), m_reciprocal);
    }
    std::size_t Wrap(std::size_t at) const noexcept { return at >= m_size ? at - m_size : at; }
    /// The first slot that the answer of a group names. A small table is passed more than once on the way.
    std::size_t SlotOf(std::size_t home, unsigned answer) const noexcept
    {
        std::size_t at = home + TrailingZeros(answer);
        while (at >= m_size)
            at -= m_size;
        return at;
    }
    /// The fifth slot of a search.
    std::size_t Fifth(std::size_t home) const noexcept
    {
        return m_size > kFifthProbe ? Wrap(home + kFifthProbe) : (home + kFifthProbe) % m_size;
    }
    std::size_t Probe(std::size_t home, std::uint64_t probe) const noexcept
    {
        return static_cast<std::size_t>((home + probe * probe) % m_size);
    }
    /// The slot for a key that is known not to be there; kFarSlot alone where the near ones are taken.
    std::size_t FreeSlot(std::size_t home) const noexcept
    {
        const unsigned vacant = ~TagGroup(m_tags + home).Occupied() & kProbedTags;
        if (vacant != 0)
            return SlotOf(home, vacant);
        std::size_t at = Fifth(home);
        for (std::size_t step = kFifthStep; m_tags[at] >= kOccupiedTag; step += 2)
        {
            at = Wrap(at + step);
            if (step == kLastNearStep)
                return kFarSlot;
        }
        return at;
    }
    /// Whether a search from that home comes to the slot of an entry among the near ones.
    bool IsNear(std::size_t at, std::size_t home) const noexcept
    {
        std::size_t near = home;
        for (std::size_t step = 1; near != at; step += 2)
        {
            if (step == kLastNearStep)
                return false;
            near = Wrap(near + step);
        }
        return true;
    }
    void SetTag(std::size_t at, unsigned char tag) const noexcept
    {
        m_tags[at] = tag;
        for (at += m_size; at < m_size + kTagGroup; at += m_size)
            m_tags[at] = tag;
    }
};

/// An iterator over the entries of a table, in the order of the slots. What invalidates positions invalidates it; its own
/// entry may be removed. SHOWN is what it shows of a slot: the entry, or the key.
template <class TABLE, class SHOWN>
class HashIterator
{
public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::remove_const_t<SHOWN>;
    using difference_type = std::ptrdiff_t;
    using pointer = SHOWN*;
    using reference = SHOWN&;

    HashIterator() noexcept = default;
    HashIterator(const TABLE& table, unsigned position) noexcept : m_table(&table), m_position(position) {}

    reference operator*() const noexcept { return TABLE::template Show<SHOWN>(m_table->m_slots[m_position]); }
    pointer operator->() const noexcept { return std::addressof(**this); }
    HashIterator& operator++() noexcept
    {
        m_position = m_table->NextOccupied(std::size_t(m_position) + 1);
        return *this;
    }
    HashIterator operator++(int) noexcept
    {
        HashIterator before(*this);
        ++*this;
        return before;
    }
    friend bool operator==(const HashIterator& a, const HashIterator& b) noexcept
    {
        return a.m_position == b.m_position;
    }
    friend bool operator!=(const HashIterator& a, const HashIterator& b) noexcept { return !(a == b); }

private:
    const TABLE* m_table = nullptr;
    unsigned m_position = 0;
};

/// The slots of a hash table and their tags: their memory, their states, and the walk over them. HashTableBase chooses the
/// slot for a key.
template <class SLOT_TYPE>
class HashSlots
{
public:
    /// The position behind the last entry.
    static constexpr unsigned kNoPosition = 0xFFFFFFFF;

    virtual ~HashSlots() { Release(); }

    [[nodiscard]] bool IsEmpty() const noexcept { return m_count == 0; }
    unsigned int GetCount() const noexcept { return m_count; }
    /// The number of slots.
    unsigned int GetHashTableSize() const noexcept { return m_tableSize; }

    /// The position of the first entry, kNoPosition (0xFFFFFFFF) when there is none.
    unsigned int GetFirst() const noexcept { return NextOccupied(0); }
    /// Adds every key, in the order of the slots, to an array and returns how many there were.
    template <class ARRAY>
    unsigned int CopyTo(ARRAY& keys) const
    {
        ForEach([&keys](const SLOT_TYPE& slot) { keys.Add(slot.m_key); });
        return m_count;
    }

    /// Removes every entry and keeps the slots.
    void Clear() noexcept
    {
        const ExclusiveUse use(m_use);
        if (m_used == 0)
            return;
        DestroyEntries();
        std::memset(m_tags, kEmptyTag, m_tableSize + kTagGroup);
        m_used = 0;
        m_count = 0;
        ForgetFar();
    }

protected:
    template <class TABLE, class SHOWN>
    friend class HashIterator;

    template <class SHOWN>
    using Iterator = HashIterator<HashSlots, SHOWN>;
    template <class SHOWN>
    Iterator<SHOWN> Begin() const noexcept
    {
        return {*this, GetFirst()};
    }
    template <class SHOWN>
    Iterator<SHOWN> End() const noexcept
    {
        return {*this, kNoPosition};
    }
    template <class SHOWN>
    static SHOWN& Show(SLOT_TYPE& slot) noexcept
    {
        if constexpr (std::is_same_v<SHOWN, const typename SLOT_TYPE::Key>)
            return slot.m_key;
        else
            return slot;
    }

    struct NoSlots
    {
    };

    explicit HashSlots(NoSlots) noexcept {}
    HashSlots(const HashSlots& other) : HashSlots(NoSlots()) { CopySlots(other); }
    HashSlots(HashSlots&& other) noexcept : HashSlots(NoSlots()) { Swap(other); }
    HashSlots& operator=(const HashSlots& other)
    {
        if (this != &other)
        {
            HashSlots copy(other);
            Swap(copy);
        }
        return *this;
    }
    HashSlots& operator=(HashSlots&& other) noexcept
    {
        HashSlots taken(std::move(other));
        Swap(taken);
        return *this;
    }

    /// The slot at a position, which moves on to the next entry; null where there is no entry.
    SLOT_TYPE* TakePosition(unsigned& position) const noexcept
    {
        const std::size_t at = position;
        position = NextOccupied(at + 1);
        return m_slots != nullptr && at < m_tableSize && m_tags[at] >= kOccupiedTag ? m_slots + at : nullptr;
    }

    /// Position of the first entry at `from` or behind it.
    unsigned NextOccupied(std::size_t from) const noexcept
    {
        const SharedUse use(m_use);
        const std::size_t end = m_slots == nullptr ? 0 : m_tableSize;
        for (; from < end; from += kTagGroup)
        {
            const unsigned occupied = TagGroup(m_tags + from).Occupied();
            if (occupied == 0)
                continue;
            const std::size_t at = from + TrailingZeros(occupied);
            return at < end ? static_cast<unsigned>(at) : kNoPosition;
        }
        return kNoPosition;
    }

    /// Calls a function with each occupied slot, in order. It may remove that one.
    template <class FUNCTION>
    void ForEach(FUNCTION function) const
    {
        const std::size_t end = m_slots == nullptr ? 0 : m_tableSize;
        for (std::size_t from = 0; from < end; from += kTagGroup)
        {
            for (unsigned occupied = TagGroup(m_tags + from).Occupied(); occupied != 0; occupied &= occupied - 1)
            {
                // The last group may reach into the repeated tags.
                const std::size_t at = from + TrailingZeros(occupied);
                if (at < end)
                    function(m_slots[at]);
            }
        }
    }

    HashFrame<SLOT_TYPE> GetFrame() const noexcept { return {m_slots, m_tags, m_tableSize, m_reciprocal}; }

    void Occupy(std::size_t at, unsigned char tag, bool reused) noexcept
    {
        GetFrame().SetTag(at, tag);
        ++m_count;
        m_used += reused ? 0 : 1;
    }

    void RemoveSlot(std::size_t at) noexcept
    {
        m_slots[at].~SLOT_TYPE();
        GetFrame().SetTag(at, kDeletedTag);
        --m_count;
    }

    /// Drops everything, then makes empty slots. False, and no slots, without memory.
    bool Restart(unsigned size) noexcept
    {
        const ExclusiveUse use(m_use);
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
        void* block = AllocateHashSlots(size, sizeof(SLOT_TYPE), alignof(SLOT_TYPE));
        if (block == nullptr)
            return false;
        m_slots = static_cast<SLOT_TYPE*>(block);
        m_tags = static_cast<unsigned char*>(block) + size * sizeof(SLOT_TYPE);
        std::memset(m_tags, kEmptyTag, std::size_t(size) + kTagGroup);
        m_reciprocal = ReciprocalOf(size);
        return true;
    }

    void Release() noexcept
    {
        if (m_slots == nullptr)
            return;
        DestroyEntries();
        FreeHashSlots(m_slots, m_tableSize, sizeof(SLOT_TYPE), alignof(SLOT_TYPE));
        m_slots = nullptr;
        m_tags = const_cast<unsigned char*>(kNoTags);
        m_reciprocal = 0;
        m_used = 0;
        m_count = 0;
        ForgetFar();
    }

    void Swap(HashSlots& other) noexcept
    {
        std::swap(m_requestedSize, other.m_requestedSize);
        std::swap(m_tableSize, other.m_tableSize);
        std::swap(m_used, other.m_used);
        std::swap(m_count, other.m_count);
        std::swap(m_slots, other.m_slots);
        std::swap(m_tags, other.m_tags);
        std::swap(m_reciprocal, other.m_reciprocal);
        std::swap(m_farCount, other.m_farCount);
        std::swap(m_far, other.m_far);
    }

    unsigned m_requestedSize = kDefaultHashSize;
    unsigned m_tableSize = kDefaultHashSize;
    unsigned m_used = 0;
    unsigned m_count = 0;
    SLOT_TYPE* m_slots = nullptr;
    unsigned char* m_tags = const_cast<unsigned char*>(kNoTags);
    std::uint64_t m_reciprocal = 0;
    ThreadUse m_use;
    unsigned m_farCount = 0;        ///< entries that lie far from their homes; too large where m_far is missing
    std::unique_ptr<HashFar> m_far; ///< all of them; null also where there was no memory for it

private:
    void ForgetFar() noexcept
    {
        m_farCount = 0;
        m_far.reset();
    }
    void DestroyEntries() noexcept
    {
        if constexpr (!SLOT_TYPE::kPlain)
        {
            if (m_count != 0)
                ForEach([](SLOT_TYPE& slot) { slot.~SLOT_TYPE(); });
        }
    }

    /// Into a table without slots.
    void CopySlots(const HashSlots& other)
    {
        m_requestedSize = other.m_requestedSize;
        m_tableSize = other.m_tableSize;
        if (other.m_slots == nullptr)
            return;
        if (!Allocate(other.m_tableSize))
        {
            NoteHashFailure(HashOperation::kConstruct, SLOT_TYPE::kIsMap);
            return;
        }
        if constexpr (SLOT_TYPE::kPlain)
        {
            std::memcpy(static_cast<void*>(m_slots), other.m_slots, std::size_t(m_tableSize) * sizeof(SLOT_TYPE));
            std::memcpy(m_tags, other.m_tags, std::size_t(m_tableSize) + kTagGroup);
            m_count = other.m_count;
        }
        else
        {
            for (std::size_t at = 0; at < m_tableSize; ++at)
            {
                const unsigned char tag = other.m_tags[at];
                if (tag >= kOccupiedTag)
                {
                    other.m_slots[at].CopyTo(m_slots + at);
                    ++m_count;
                }
                GetFrame().SetTag(at, tag);
            }
        }
        m_used = other.m_used;
        m_farCount = other.m_farCount;
        m_far = other.m_far == nullptr ? nullptr : other.m_far->Copy();
    }
};
} // namespace tev
