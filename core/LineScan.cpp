#include "core/LineScan.h"

#include "core/TextSearch.h"

#include <cstdint>

namespace
{
// A word with one bit set in each of its units, at the unit's lowest place; the highest place is that times 0x80 or 0x8000.
template <std::size_t unit>
constexpr std::uint64_t kLowest = unit == 1 ? 0x0101010101010101u : 0x0001000100010001u;
template <std::size_t unit>
constexpr std::uint64_t kHighest = kLowest<unit> << (8 * unit - 1);

// Not 0 when some unit of the word is 0. Bits above the first such unit mean nothing.
template <std::size_t unit>
std::uint64_t ZeroUnits(std::uint64_t word) noexcept
{
    return (word - kLowest<unit>)&~word & kHighest<unit>;
}

template <std::size_t unit>
std::uint64_t Repeat(char character, xStringEncoding encoding) noexcept
{
    char bytes[sizeof(std::uint64_t)] = {};
    for (std::size_t i = encoding == xEncodingUtf16BE ? 1 : 0; i < sizeof(bytes); i += unit)
        bytes[i] = character;
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

// Looks at 32 bytes at a time without a branch; what is found is then looked at unit by unit.
template <std::size_t unit, bool returnsToo>
std::size_t Find(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    constexpr std::size_t kWords = 4;
    const std::uint64_t lineFeeds = Repeat<unit>('\n', encoding);
    const std::uint64_t returns = Repeat<unit>('\r', encoding);
    std::size_t at = 0;
    for (std::uint64_t words[kWords]; size - at >= sizeof(words); at += sizeof(words))
    {
        std::memcpy(words, bytes + at, sizeof(words));
        std::uint64_t found = 0;
        for (const std::uint64_t word : words)
        {
            found |= ZeroUnits<unit>(word ^ lineFeeds);
            if constexpr (returnsToo)
                found |= ZeroUnits<unit>(word ^ returns);
        }
        if (found != 0)
            break;
    }
    for (; at < size; at += unit)
        if (tev::IsUnit(bytes + at, encoding, '\n') || (returnsToo && tev::IsUnit(bytes + at, encoding, '\r')))
            return at;
    return tev::kNotFound;
}
} // namespace

std::size_t tev::FindLineFeed(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? Find<2, false>(bytes, size, encoding) : FindCharacter(bytes, size, '\n');
}

std::size_t tev::FindLineBreak(const char* bytes, std::size_t size, xStringEncoding encoding) noexcept
{
    return IsUtf16(encoding) ? Find<2, true>(bytes, size, encoding) : Find<1, true>(bytes, size, encoding);
}
