#pragma once

#include "text/CXTString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace tev
{
/// High and low half of a 64 by 64 bit product.
struct WideProduct
{
    std::uint64_t m_high;
    std::uint64_t m_low;
};

constexpr WideProduct Multiply(std::uint64_t a, std::uint64_t b) noexcept
{
#if defined(__SIZEOF_INT128__)
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return {static_cast<std::uint64_t>(product >> 64), static_cast<std::uint64_t>(product)};
#else
    const std::uint64_t mask = 0xFFFFFFFF;
    const std::uint64_t low = (a & mask) * (b & mask);
    const std::uint64_t middle = (a >> 32) * (b & mask) + (low >> 32);
    const std::uint64_t other = (a & mask) * (b >> 32) + (middle & mask);
    return {(a >> 32) * (b >> 32) + (middle >> 32) + (other >> 32), (other << 32) | (low & mask)};
#endif
}

/// The hash of every key of up to 32 bits: shifts and multiplications, each of which can be undone, so that two keys never
/// have the same hash. It decides the order in which a map is walked and must not change.
constexpr unsigned MixKey(std::uint32_t key) noexcept
{
    std::uint32_t h = (key << 18) + ~key;
    h ^= h >> 31;
    h *= 21;
    h ^= h >> 11;
    h *= 65;
    h ^= h >> 22;
    return h;
}

/// Keys of 64 bits with a high half of 0 hash like the key of 32 bits. The factor keeps pairs of small numbers, packed
/// into the two halves, from meeting.
constexpr unsigned MixKey64(std::uint64_t key) noexcept
{
    return MixKey(static_cast<std::uint32_t>(key) + static_cast<std::uint32_t>(key >> 32) * 0x9E3779B1U);
}

/// Hashes a run of bytes. The bytes are taken in steps of 16, each of which becomes one 128-bit product whose halves are
/// folded together; what is left over is covered by two loads that may overlap, so that no text is read byte by byte. The
/// length goes in as well: a run of zeros differs from a longer one. No secret goes in, since the hash decides the order in
/// which a map is walked and the order must be the same in each run: texts can be crafted to collide.
inline std::uint64_t WideHashBytes(const void* data, std::size_t count, std::uint64_t seed, std::uint64_t salt) noexcept
{
    const auto* bytes = static_cast<const unsigned char*>(data);
    const auto load64 = [](const unsigned char* at) noexcept {
        std::uint64_t value;
        std::memcpy(&value, at, sizeof(value));
        return value;
    };
    const auto load32 = [](const unsigned char* at) noexcept {
        std::uint32_t value;
        std::memcpy(&value, at, sizeof(value));
        return static_cast<std::uint64_t>(value);
    };
    const auto fold = [](std::uint64_t a, std::uint64_t b) noexcept {
        const WideProduct product = Multiply(a, b);
        return product.m_high ^ product.m_low;
    };

    std::uint64_t hash = seed;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    if (count > 16)
    {
        std::size_t left = count;
        for (; left > 16; left -= 16, bytes += 16)
            hash = fold(load64(bytes) ^ salt, load64(bytes + 8) ^ hash);
        first = load64(bytes + left - 16);
        second = load64(bytes + left - 8);
    }
    else if (count >= 8)
    {
        first = load64(bytes);
        second = load64(bytes + count - 8);
    }
    else if (count >= 4)
    {
        first = load32(bytes);
        second = load32(bytes + count - 4);
    }
    else if (count > 0)
    {
        first = (std::uint64_t(bytes[0]) << 16) | (std::uint64_t(bytes[count / 2]) << 8) | bytes[count - 1];
    }
    return fold(fold(first ^ salt, second ^ hash), count ^ seed);
}

inline unsigned HashBytes(const void* data, std::size_t count) noexcept
{
    const std::uint64_t hash = WideHashBytes(data, count, 0xA0761D6478BD642F, 0xE7037ED1A0B428DB);
    return static_cast<unsigned>(hash ^ (hash >> 32));
}

/// Differs from process to process.
TEVTOOLS_API std::uint64_t HashSecret() noexcept;

/// What a map of strings is asked with: a string or a plain C string, without a copy of either. Null is the empty text.
template <class T>
class TextKey
{
public:
    TextKey(const CXTString<T>& text) noexcept
        : m_data(text.GetConstBuffer()), m_length(static_cast<std::size_t>(text.GetLength64()))
    {
    }
    TextKey(const T* text) noexcept : m_data(text), m_length(text == nullptr ? 0 : std::char_traits<T>::length(text)) {}

    unsigned Hash() const noexcept { return HashBytes(m_data, m_length * sizeof(T)); }
    std::uint64_t WideHash() const noexcept
    {
        const std::uint64_t secret = HashSecret();
        return WideHashBytes(m_data, m_length * sizeof(T), secret, secret * 0x9FB21C651E98DF25);
    }
    bool Is(const CXTString<T>& text) const noexcept
    {
        return text.GetLength64() == m_length &&
               (m_length == 0 || std::memcmp(text.GetConstBuffer(), m_data, m_length * sizeof(T)) == 0);
    }

private:
    const T* m_data;
    std::size_t m_length;
};
} // namespace tev

/// How CHashMap, CHashTable and CIntMap hash and compare their keys. This one serves integers, characters, enumerations and
/// pointers. For a key class of your own, specialise it, or write a class of any name with the same two static members and
/// name it as the map's last argument:
///
///     static unsigned int HashKey(const Key& key);                  // equal keys, equal hashes
///     static bool Compare(const Key& stored, const Key& key);       // whether they are equal
///
/// Neither may throw. Where keys that are chosen to have the same hash shall not make a map slow, there is also
///
///     static std::uint64_t WideHash(const Key& key);                // nobody can choose keys for which it is the same
///
/// Where keys are looked up by something else than a Key, both are overloaded for it and its type is
/// named LookupKey; it must be made from a Key implicitly.
template <class KEY>
struct CHashMethods
{
    static_assert(std::is_integral_v<KEY> || std::is_enum_v<KEY> || std::is_pointer_v<KEY>,
                  "specialise CHashMethods for this key class");

    static unsigned int HashKey(KEY key) noexcept
    {
        if constexpr (std::is_pointer_v<KEY>)
            return tev::MixKey64(reinterpret_cast<std::uintptr_t>(key));
        else if constexpr (sizeof(KEY) <= 4)
            return tev::MixKey(static_cast<std::uint32_t>(key));
        else
            return tev::MixKey64(static_cast<std::uint64_t>(key));
    }
    static std::uint64_t WideHash(KEY key) noexcept
    {
        if constexpr (std::is_pointer_v<KEY>)
            return reinterpret_cast<std::uintptr_t>(key);
        else
            return static_cast<std::uint64_t>(key);
    }
    static bool Compare(KEY stored, KEY key) noexcept { return stored == key; }
};

/// Strings are hashed and compared by their text, exactly, NULs included. Lookups take a plain C string as well.
template <class T>
struct CHashMethods<CXTString<T>>
{
    using LookupKey = tev::TextKey<T>;

    static unsigned int HashKey(LookupKey key) noexcept { return key.Hash(); }
    static std::uint64_t WideHash(LookupKey key) noexcept { return key.WideHash(); }
    static bool Compare(const CXTString<T>& stored, LookupKey key) noexcept { return key.Is(stored); }
};
