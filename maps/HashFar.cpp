#include "maps/HashFar.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

namespace tev
{
namespace
{
constexpr unsigned kFewestBits = 4;
constexpr unsigned kMostBits = 31;
} // namespace

// Addresses differ from run to run, and so does the clock.
std::uint64_t HashSecret() noexcept
{
    static const std::uint64_t secret = [] {
        const int onStack = 0;
        const auto time = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        const WideProduct product = Multiply(time ^ 0xD6E8FEB86659FD93, reinterpret_cast<std::uintptr_t>(&onStack) | 1);
        return product.m_high ^ product.m_low ^ reinterpret_cast<std::uintptr_t>(&HashSecret);
    }();
    return secret;
}

HashPairs::HashPairs() noexcept = default;
HashPairs::~HashPairs() = default;

bool HashPairs::CopyFrom(const HashPairs& other) noexcept
{
    if (other.m_pairs == nullptr)
        return true;
    const std::size_t size = std::size_t(1) << other.m_bits;
    m_pairs.reset(new (std::nothrow) Pair[size]);
    if (m_pairs == nullptr)
        return false;
    std::copy_n(other.m_pairs.get(), size, m_pairs.get());
    m_bits = other.m_bits;
    m_count = other.m_count;
    return true;
}

bool HashPairs::Resize(unsigned bits) noexcept
{
    std::unique_ptr<Pair[]> old(bits > kMostBits ? nullptr : new (std::nothrow) Pair[std::size_t(1) << bits]);
    if (old == nullptr)
        return false;
    std::swap(old, m_pairs);
    const std::size_t oldSize = old == nullptr ? 0 : std::size_t(1) << m_bits;
    m_bits = bits;
    for (std::size_t i = 0; i < oldSize; ++i)
    {
        if (old[i].m_value == kNone)
            continue;
        std::size_t at = Place(old[i].m_number);
        while (m_pairs[at].m_value != kNone)
            at = Next(at);
        m_pairs[at] = old[i];
    }
    return true;
}

bool HashPairs::Add(std::uint32_t number, std::uint32_t value) noexcept
{
    if ((m_pairs == nullptr || m_count >= (std::size_t(1) << m_bits) / 2) && !Resize(std::max(kFewestBits, m_bits + 1)))
        return false;
    std::size_t at = Place(number);
    while (m_pairs[at].m_value != kNone)
        at = Next(at);
    m_pairs[at] = {number, value};
    ++m_count;
    return true;
}

// What lies behind moves up into the gap where it may.
bool HashPairs::Remove(std::uint32_t number, std::uint32_t value) noexcept
{
    std::uint32_t* const found = Find(number, [value](std::uint32_t there) { return there == value; });
    if (found == nullptr)
        return false;
    const std::size_t mask = (std::size_t(1) << m_bits) - 1;
    std::size_t gap = Place(number);
    while (&m_pairs[gap].m_value != found)
        gap = Next(gap);
    for (std::size_t at = Next(gap); m_pairs[at].m_value != kNone; at = Next(at))
    {
        const std::size_t distance = (at - Place(m_pairs[at].m_number)) & mask;
        if (distance < ((at - gap) & mask))
            continue;
        m_pairs[gap] = m_pairs[at];
        gap = at;
    }
    m_pairs[gap] = Pair();
    --m_count;
    return true;
}

void HashPairs::Clear() noexcept
{
    m_pairs.reset();
    m_bits = 0;
    m_count = 0;
}

HashFar::HashFar() noexcept = default;
HashFar::~HashFar() = default;

std::unique_ptr<HashFar> HashFar::Copy() const noexcept
{
    std::unique_ptr<HashFar> copy(new (std::nothrow) HashFar);
    if (copy != nullptr && !copy->m_slots.CopyFrom(m_slots))
        copy.reset();
    return copy;
}

namespace
{
// Different homes have different numbers.
std::uint32_t NumberOfHome(unsigned home) noexcept
{
    return (home ^ static_cast<std::uint32_t>(HashSecret())) * 0x9E3779B1U;
}
} // namespace

unsigned HashFar::FirstProbe(unsigned home) const noexcept
{
    const std::uint32_t* const probe = m_probes.Find(NumberOfHome(home), [](std::uint32_t) { return true; });
    return probe == nullptr ? kNearProbes : *probe;
}

void HashFar::SetFirstProbe(unsigned home, unsigned probe) noexcept
{
    const std::uint32_t number = NumberOfHome(home);
    std::uint32_t* const known = m_probes.Find(number, [](std::uint32_t) { return true; });
    if (known != nullptr)
        *known = probe;
    else
        static_cast<void>(m_probes.Add(number, probe)); // without it a search is only longer
}
} // namespace tev
