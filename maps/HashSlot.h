#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace tev
{
enum SlotState : unsigned
{
    kSlotOccupied = 0,
    kSlotEmpty = 1,
    kSlotDeleted = 2,
    kSlotCopy = 3 ///< not in a table: a copy that owns its key and value
};

/// An entry of a map as a walk shows it: `auto& [key, value]`, or GetKey and GetValue. The key cannot be changed. A copy
/// of an entry has a key and a value of its own.
template <class KEY, class VALUE>
class HashEntry
{
public:
    HashEntry(const HashEntry& other) : m_state(kSlotCopy) { Create(other.m_key, other.m_value); }
    HashEntry& operator=(const HashEntry&) = delete;
    /// Those of a table's slots are destroyed by the table.
    ~HashEntry()
    {
        if (m_state == kSlotCopy)
            Destroy();
    }

    const KEY& GetKey() const noexcept { return m_key; }
    VALUE& GetValue() noexcept { return m_value; }
    const VALUE& GetValue() const noexcept { return m_value; }

protected:
    HashEntry() noexcept : m_state(kSlotEmpty) {}

    template <class K, class V>
    void Create(K&& key, V&& value)
    {
        ::new (static_cast<void*>(std::addressof(m_key))) KEY(std::forward<K>(key));
        if constexpr (std::is_nothrow_constructible_v<VALUE, V&&>)
            ::new (static_cast<void*>(std::addressof(m_value))) VALUE(std::forward<V>(value));
        else
        {
            try
            {
                ::new (static_cast<void*>(std::addressof(m_value))) VALUE(std::forward<V>(value));
            }
            catch (...)
            {
                m_key.~KEY();
                throw;
            }
        }
    }
    void Destroy() noexcept
    {
        m_value.~VALUE();
        m_key.~KEY();
    }

    union {
        KEY m_key;
    };
    union {
        VALUE m_value;
    };
    unsigned m_state;
};

/// Key, value and state. Key and value exist only while the slot is occupied.
template <class KEY, class VALUE>
struct HashSlot : HashEntry<KEY, VALUE>
{
    using Key = KEY;
    using Entry = HashEntry<KEY, VALUE>;

    HashSlot() noexcept = default;
    HashSlot(const HashSlot&) = delete;
    HashSlot& operator=(const HashSlot&) = delete;
    ~HashSlot() = default;

    using Entry::Create;
    using Entry::Destroy;
    template <class V>
    void Overwrite(V&& value)
    {
        m_value = std::forward<V>(value);
    }
    void CreateCopy(const HashSlot& other) { Create(other.m_key, other.m_value); }
    void CreateMoved(HashSlot& other) { Create(std::move(other.m_key), std::move(other.m_value)); }

    static constexpr bool kPlain = std::is_trivially_copyable_v<KEY> && std::is_trivially_copyable_v<VALUE>;
    static constexpr bool kMoves =
        std::is_nothrow_move_constructible_v<KEY> && std::is_nothrow_move_constructible_v<VALUE>;

    using Entry::m_key;
    using Entry::m_state;
    using Entry::m_value;
};

/// Key and state.
template <class KEY>
struct HashSlot<KEY, void>
{
    using Key = KEY;

    HashSlot() noexcept : m_state(kSlotEmpty) {}
    HashSlot(const HashSlot&) = delete;
    HashSlot& operator=(const HashSlot&) = delete;
    ~HashSlot() {}

    template <class K>
    void Create(K&& key)
    {
        ::new (static_cast<void*>(std::addressof(m_key))) KEY(std::forward<K>(key));
    }
    void Overwrite() noexcept {}
    void CreateCopy(const HashSlot& other) { Create(other.m_key); }
    void CreateMoved(HashSlot& other) { Create(std::move(other.m_key)); }
    void Destroy() noexcept { m_key.~KEY(); }

    static constexpr bool kPlain = std::is_trivially_copyable_v<KEY>;
    static constexpr bool kMoves = std::is_nothrow_move_constructible_v<KEY>;

    union {
        KEY m_key;
    };
    unsigned m_state;
};

// For structured bindings.

template <std::size_t INDEX, class ENTRY>
auto& EntryPart(ENTRY& entry) noexcept
{
    static_assert(INDEX < 2, "an entry is a key and a value");
    if constexpr (INDEX == 0)
        return entry.GetKey();
    else
        return entry.GetValue();
}

template <std::size_t INDEX, class KEY, class VALUE>
auto& get(HashEntry<KEY, VALUE>& entry) noexcept
{
    return EntryPart<INDEX>(entry);
}
template <std::size_t INDEX, class KEY, class VALUE>
auto& get(const HashEntry<KEY, VALUE>& entry) noexcept
{
    return EntryPart<INDEX>(entry);
}
template <std::size_t INDEX, class KEY, class VALUE>
auto&& get(HashEntry<KEY, VALUE>&& entry) noexcept
{
    return std::move(EntryPart<INDEX>(entry));
}
} // namespace tev

template <class KEY, class VALUE>
struct std::tuple_size<tev::HashEntry<KEY, VALUE>> : std::integral_constant<std::size_t, 2>
{
};
template <class KEY, class VALUE>
struct std::tuple_element<0, tev::HashEntry<KEY, VALUE>>
{
    using type = const KEY;
};
template <class KEY, class VALUE>
struct std::tuple_element<1, tev::HashEntry<KEY, VALUE>>
{
    using type = VALUE;
};
