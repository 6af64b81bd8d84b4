#pragma once

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
    kSlotDeleted = 2
};

/// Key, value and state. Key and value exist only while the slot is occupied.
template <class KEY, class VALUE>
struct HashSlot
{
    using Key = KEY;

    HashSlot() noexcept : m_state(kSlotEmpty) {}
    HashSlot(const HashSlot&) = delete;
    HashSlot& operator=(const HashSlot&) = delete;
    ~HashSlot() {}

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
    template <class V>
    void Overwrite(V&& value)
    {
        m_value = std::forward<V>(value);
    }
    void CreateCopy(const HashSlot& other) { Create(other.m_key, other.m_value); }
    void CreateMoved(HashSlot& other) { Create(std::move(other.m_key), std::move(other.m_value)); }
    void Destroy() noexcept
    {
        m_value.~VALUE();
        m_key.~KEY();
    }

    static constexpr bool kPlain = std::is_trivially_copyable_v<KEY> && std::is_trivially_copyable_v<VALUE>;
    static constexpr bool kMoves =
        std::is_nothrow_move_constructible_v<KEY> && std::is_nothrow_move_constructible_v<VALUE>;

    union {
        KEY m_key;
    };
    union {
        VALUE m_value;
    };
    unsigned m_state;
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
} // namespace tev
