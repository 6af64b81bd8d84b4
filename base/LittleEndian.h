#pragma once

// Every byte format of the library stores numbers in little-endian order.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace tev
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool kIsBigEndian = true;
#else
constexpr bool kIsBigEndian = false;
#endif

template <class T>
inline void StoreLittleEndian(unsigned char* target, T value) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    std::memcpy(target, &value, sizeof value);
    if constexpr (kIsBigEndian)
        std::reverse(target, target + sizeof value);
}

template <class T>
inline T LoadLittleEndian(const unsigned char* source) noexcept
{
    static_assert(std::is_arithmetic_v<T>);
    T value;
    if constexpr (kIsBigEndian)
        std::reverse_copy(source, source + sizeof value, reinterpret_cast<unsigned char*>(&value));
    else
        std::memcpy(&value, source, sizeof value);
    return value;
}
} // namespace tev
