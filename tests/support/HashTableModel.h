#pragma once

#include <cstdint>
#include <utility>
#include <vector>

/// The documented hash table of 32-bit keys, written down rule by rule with plain divisions and no thought of speed: what
/// CHashMap is compared with, slot order included.
class HashTableModel
{
public:
    struct Slot
    {
        std::uint32_t m_key = 0;
        int m_value = 0;
        unsigned m_state = 1; // 0 occupied, 1 empty, 2 deleted
    };

    explicit HashTableModel(std::uint32_t request = 23) : m_requested(SizeForRequest(request)), m_slots(m_requested) {}

    static std::uint32_t Hash(std::uint32_t key)
    {
        std::uint32_t h = (key << 18) + (~key);
        h = h ^ (h >> 31);
        h = h * 21;
        h = h ^ (h >> 11);
        h = h * 65;
        return h ^ (h >> 22);
    }

    /// The key of a hash: each step undone, the last one first.
    static std::uint32_t KeyOf(std::uint32_t h)
    {
        const auto inverse = [](std::uint32_t odd) {
            std::uint32_t x = odd;
            for (int i = 0; i < 5; ++i)
                x *= 2 - odd * x;
            return x;
        };
        h ^= h >> 22;
        h *= inverse(65);
        h ^= (h >> 11) ^ (h >> 22);
        h *= inverse(21);
        h ^= h >> 31;
        return (h + 1) * inverse((1U << 18) - 1);
    }

    static std::uint64_t NextPrime(std::uint64_t candidate)
    {
        while (candidate >= 9)
        {
            std::uint64_t divisor = 3;
            while (divisor * divisor <= candidate && candidate % divisor != 0)
                divisor += 2;
            if (divisor * divisor > candidate)
                break;
            candidate += 2;
        }
        return candidate;
    }

    std::size_t Probe(std::uint32_t key) const
    {
        const std::size_t size = m_slots.size();
        std::size_t at = Hash(key) % size;
        std::size_t deleted = size;
        for (std::size_t i = 1; m_slots[at].m_state != 1; ++i)
        {
            if (m_slots[at].m_state == 2 && deleted == size)
                deleted = at;
            if (m_slots[at].m_state == 0 && m_slots[at].m_key == key)
                return at;
            at += 2 * i - 1;
            if (at >= size)
                at -= size;
        }
        return deleted != size ? deleted : at;
    }

    int Insert(std::uint32_t key, int value)
    {
        Slot& slot = m_slots[Probe(key)];
        const unsigned before = slot.m_state;
        slot = {key, value, 0};
        if (before == 0)
            return 0;
        m_used += before == 1 ? 1 : 0;
        ++m_count;
        Rehash();
        return 1;
    }

    int Remove(std::uint32_t key, bool rehash)
    {
        Slot& slot = m_slots[Probe(key)];
        if (slot.m_state != 0)
            return 0;
        slot.m_state = 2;
        --m_count;
        if (rehash && m_count > 23)
            Rehash();
        return 1;
    }

    void Clear() { Start(Size()); }
    void Free()
    {
        m_requested = 23;
        Start(23);
    }
    void InitHashTable(std::uint32_t n)
    {
        std::uint64_t target = NextPrime(2 * std::uint64_t(n) + 3);
        target = target < 5 ? 5 : target;
        if (target == m_requested)
            return;
        m_requested = static_cast<std::uint32_t>(target);
        Start(m_requested);
    }
    bool Minimize()
    {
        const std::uint64_t doubled = 2 * std::uint64_t(m_count) + 2;
        const std::uint64_t target = NextPrime(doubled < 5 ? 5 : doubled + 1);
        if (target == Size())
            return false;
        Rebuild(target);
        return true;
    }

    std::uint32_t Size() const { return static_cast<std::uint32_t>(m_slots.size()); }
    std::uint32_t Count() const { return m_count; }
    const std::vector<Slot>& Slots() const { return m_slots; }

private:
    static std::uint32_t SizeForRequest(std::uint32_t n)
    {
        const std::uint64_t size = n == 23 ? 23 : n < 3 ? n + 1 : NextPrime(n % 2 == 0 ? n + 1 : n);
        return static_cast<std::uint32_t>(size < 5 ? 5 : size);
    }

    void Start(std::size_t size)
    {
        m_slots.assign(size, Slot());
        m_used = 0;
        m_count = 0;
    }

    void Rehash()
    {
        if (m_used < Size() / 2)
            return;
        std::uint64_t size = std::uint64_t(Size()) * (Size() < 251 ? 4 : 2);
        if (static_cast<float>(m_count) / static_cast<float>(m_used) <= 0.65F)
        {
            size = static_cast<std::uint64_t>(static_cast<float>(2 * m_count + 2) / 0.65F);
            size = size < 23 ? 23 : size;
        }
        Rebuild(NextPrime(size % 2 == 0 ? size + 1 : size));
    }

    void Rebuild(std::uint64_t size)
    {
        const std::vector<Slot> old = std::move(m_slots);
        Start(static_cast<std::size_t>(size));
        for (const Slot& slot : old)
        {
            if (slot.m_state != 0)
                continue;
            m_slots[Probe(slot.m_key)] = slot;
            ++m_used;
            ++m_count;
        }
    }

    std::uint32_t m_requested;
    std::vector<Slot> m_slots;
    std::uint32_t m_used = 0;
    std::uint32_t m_count = 0;
};
