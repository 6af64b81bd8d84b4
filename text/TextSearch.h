#pragma once

// Search and comparison of character ranges, used by the string class. Positions are in characters.

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <type_traits>

namespace tev
{
constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

/// Length of a C string; 0 for null.
inline std::size_t TextLength(const char* text) noexcept
{
    return text == nullptr ? 0 : std::strlen(text);
}

inline std::size_t TextLength(const wchar_t* text) noexcept
{
    return text == nullptr ? 0 : std::wcslen(text);
}

/// Copies between ranges that may overlap; the pointers may be null when there is nothing to copy.
template <class T>
void CopyCharacters(T* destination, const T* source, unsigned long long count) noexcept
{
    if (count != 0)
        std::memmove(destination, source, static_cast<std::size_t>(count) * sizeof(T));
}

/// Position of the first such character, kNotFound when there is none.
inline std::size_t FindCharacter(const char* text, std::size_t length, char character) noexcept
{
    const void* found = length == 0 ? nullptr : std::memchr(text, static_cast<unsigned char>(character), length);
    return found == nullptr ? kNotFound : static_cast<std::size_t>(static_cast<const char*>(found) - text);
}

inline std::size_t FindCharacter(const wchar_t* text, std::size_t length, wchar_t character) noexcept
{
    const wchar_t* found = length == 0 ? nullptr : std::wmemchr(text, character, length);
    return found == nullptr ? kNotFound : static_cast<std::size_t>(found - text);
}

/// Position of the first match at `start` or later. An empty pattern and a start at the end match nothing.
template <class T>
std::size_t FindText(const T* text, std::size_t length, std::size_t start, const T* pattern,
                     std::size_t count) noexcept;

/// As FindText, without regard to case as the C library's current locale maps it.
template <class T>
std::size_t FindTextNoCase(const T* text, std::size_t length, std::size_t start, const T* pattern, std::size_t count);

/// Position of the last match that begins at `start` or before it.
template <class T>
std::size_t FindTextBackwards(const T* text, std::size_t length, std::size_t start, const T* pattern,
                              std::size_t count) noexcept;

/// -1, 0 or 1 by the unsigned value of the first characters that differ; a prefix comes first.
template <class T>
int CompareText(const T* left, std::size_t leftLength, const T* right, std::size_t rightLength) noexcept;

/// -1, 0 or 1 of two C strings, without regard to case or by collation, in the C library's current locale.
template <class T>
int CompareTextNoCase(const T* left, const T* right) noexcept;
int CollateText(const char* left, const char* right) noexcept;
int CollateText(const wchar_t* left, const wchar_t* right) noexcept;

// The case mapping and the classes of the C library's current locale, for either character type.
char LowerCase(char character) noexcept;
wchar_t LowerCase(wchar_t character) noexcept;
char UpperCase(char character) noexcept;
wchar_t UpperCase(wchar_t character) noexcept;
bool IsSpace(char character) noexcept;
bool IsSpace(wchar_t character) noexcept;

/// Membership in a C string of characters: a table look-up for those below 256, a linear search for the others.
template <class T>
class CharacterSet
{
public:
    explicit CharacterSet(const T* characters) noexcept : m_characters(characters), m_count(TextLength(characters))
    {
        for (std::size_t i = 0; i < m_count; ++i)
        {
            const auto value = static_cast<Unsigned>(characters[i]);
            if (value < kTabled)
                m_low[value] = true;
        }
    }

    bool Has(T character) const noexcept
    {
        const auto value = static_cast<Unsigned>(character);
        return value < kTabled ? m_low[value] : FindCharacter(m_characters, m_count, character) != kNotFound;
    }

private:
    using Unsigned = std::make_unsigned_t<T>;
    static constexpr unsigned kTabled = 256;

    const T* m_characters;
    std::size_t m_count;
    bool m_low[kTabled] = {};
};
} // namespace tev
