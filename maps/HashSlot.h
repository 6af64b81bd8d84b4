#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace tev
{
/// An entry of a map as a walk shows it: `auto& [key, value]`, or GetKey and GetValue. The key cannot be changed. A copy
/// of an entry has a key and a value of its own.
template <class KEY, class VALUE>
class HashEntry
{
public:
    HashEntry(const HashEntry&) = default;
    HashEntry& operator=(const HashEntry&) = delete;
    ~HashEntry() = default;

    const KEY& GetKey() const noexcept { return m_key; }
    VALUE& GetValue() noexcept { return m_value; }
    const VALUE& GetValue() const noexcept { return m_value; }

protected:
    template <class K, class V>
    HashEntry(K&& key, V&& value) : m_key(std::forward<K>(key)), m_value(std::forward<V>(value))
    {
    }

    KEY m_key;
    VALUE m_value;
};

/// Key and value. They exist only while the slot is occupied, which its tag says: see HashTags.h.
template <class KEY, class VALUE>
struct HashSlot : HashEntry<KEY, VALUE>
{
    using Key = KEY;
    using Entry = HashEntry<KEY, VALUE>;

    template <class K, class V>
    HashSlot(std::in_place_t, K&& key, V&& value) : Entry(std::forward<K>(key), std::forward<V>(value))
    {
    }
    HashSlot(const HashSlot&) = delete;
    HashSlot& operator=(const HashSlot&) = delete;
    ~HashSlot() = default;

    template <class V>
    void Overwrite(V&& value)
    {
        m_value = std::forward<V>(value);
    }
    void CopyTo(void* slot) const { ::new (slot) HashSlot(std::in_place, m_key, m_value); }
    void MoveTo(void* slot) { ::new (slot) HashSlot(std::in_place, std::move(m_key), std::move(m_value)); }

    static constexpr bool kIsMap = true;
    static constexpr bool kPlain = std::is_trivially_copyable_v<KEY> && std::is_trivially_copyable_v<VALUE>;
    static constexpr bool kMoves =
        std::is_nothrow_move_constructible_v<KEY> && std::is_nothrow_move_constructible_v<VALUE>;

    using Entry::m_key;
    using Entry::m_value;
};

/// A key alone.
template <class KEY>
struct HashSlot<KEY, void>
{
    using Key = KEY;

    template <class K>
    HashSlot(std::in_place_t, K&& key) : m_key(std::forward<K>(key))
    {
    }
    HashSlot(const HashSlot&) = delete;
    HashSlot& operator=(const HashSlot&) = delete;
    ~HashSlot() = default;

    void Overwrite() noexcept {}
    void CopyTo(void* slot) const { ::new (slot) HashSlot(std::in_place, m_key); }
    void MoveTo(void* slot) { ::new (slot) HashSlot(std::in_place, std::move(m_key)); }

    static constexpr bool kIsMap = false;
    static constexpr bool kPlain = std::is_trivially_copyable_v<KEY>;
    static constexpr bool kMoves = std::is_nothrow_move_constructible_v<KEY>;

    KEY m_key;
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
