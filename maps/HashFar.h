#pragma once

#include "base/TevTypes.h"
#include "maps/CHashMethods.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tev
{
/// Pairs of numbers, found by the first, of which several may be the same. Numbers are spread already; values are below kNone.
class TEVTOOLS_API HashPairs
{
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    HashPairs() noexcept;
    ~HashPairs();
    HashPairs(const HashPairs&) = delete;
    HashPairs& operator=(const HashPairs&) = delete;

    /// False, with nothing changed, without memory.
    bool CopyFrom(const HashPairs& other) noexcept;
    bool Add(std::uint32_t number, std::uint32_t value) noexcept;
    bool Remove(std::uint32_t number, std::uint32_t value) noexcept;
    void Clear() noexcept;
    bool IsEmpty() const noexcept { return m_pairs == nullptr; }
    /// The first value of that number for which `is` holds, by address; null when there is none.
    template <class IS>
    std::uint32_t* Find(std::uint32_t number, IS is) const
    {
        if (m_pairs == nullptr)
            return nullptr;
        for (std::size_t at = Place(number); m_pairs[at].m_value != kNone; at = Next(at))
        {
            if (m_pairs[at].m_number == number && is(m_pairs[at].m_value))
                return &m_pairs[at].m_value;
        }
        return nullptr;
    }

private:
    struct Pair
    {
        std::uint32_t m_number = 0;
        std::uint32_t m_value = kNone;
    };

    std::size_t Place(std::uint32_t number) const noexcept { return std::uint64_t(number) >> (32 - m_bits); }
    std::size_t Next(std::size_t at) const noexcept { return (at + 1) & ((std::size_t(1) << m_bits) - 1); }
    bool Resize(unsigned bits) noexcept;

    std::unique_ptr<Pair[]> m_pairs;
    unsigned m_bits = 0;
    std::size_t m_count = 0;
};

/// What searches in a table need not look at slot by slot: the entries that lie far from their homes, by a hash of their own
/// with a secret, and for each home the slots of its searches that are known to be taken. Keys that are chosen to meet
/// would otherwise make searches as long as there are keys; others have no such entries.
class TEVTOOLS_API HashFar
{
public:
    /// A search looks at so many slots itself.
    static constexpr unsigned kNearProbes = 16;

    HashFar() noexcept;
    ~HashFar();
    HashFar(const HashFar&) = delete;
    HashFar& operator=(const HashFar&) = delete;

    /// Null without memory.
    std::unique_ptr<HashFar> Copy() const noexcept;
    /// False without memory.
    bool Add(std::uint64_t hash, unsigned slot) noexcept { return m_slots.Add(Spread(hash), slot); }
    /// Whether it was there.
    bool Remove(std::uint64_t hash, unsigned slot) noexcept { return m_slots.Remove(Spread(hash), slot); }
    /// The slot for which `is` holds; HashPairs::kNone when there is none.
    template <class IS>
    unsigned Find(std::uint64_t hash, IS is) const
    {
        const std::uint32_t* const slot = m_slots.Find(Spread(hash), is);
        return slot == nullptr ? HashPairs::kNone : *slot;
    }

    /// Slots of a search from that home before this one are taken.
    unsigned FirstProbe(unsigned home) const noexcept;
    void SetFirstProbe(unsigned home, unsigned probe) noexcept;
    /// After a slot became free.
    void ForgetProbes() noexcept
    {
        if (!m_probes.IsEmpty())
            m_probes.Clear();
    }

private:
    static std::uint32_t Spread(std::uint64_t hash) noexcept
    {
        const WideProduct product = Multiply(hash ^ HashSecret(), 0x9FB21C651E98DF25);
        return static_cast<std::uint32_t>((product.m_high ^ product.m_low) >> 16);
    }

    HashPairs m_slots;
    HashPairs m_probes;
};
} // namespace tev
