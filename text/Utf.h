#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The Unicode forms and the conversions between them, on raw buffers. Every conversion is one loop over a reader (which
// takes code points out of one form) and a form (which says how many units a code point takes and writes them), so what
// is measured and what is written cannot differ. Only UTF-8 and little-endian UTF-16 to and from wide text have kernels of
// their own.

namespace tev
{
constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kSubstitute = U'?';
constexpr char32_t kMaxCodePoint = 0x10FFFF;

enum class ByteOrder
{
    little,
    big
};

constexpr bool IsSurrogate(char32_t c) noexcept
{
    return c - 0xD800u < 0x800u;
}
constexpr bool IsHighSurrogate(char32_t c) noexcept
{
    return c - 0xD800u < 0x400u;
}
constexpr bool IsLowSurrogate(char32_t c) noexcept
{
    return c - 0xDC00u < 0x400u;
}
constexpr char32_t JoinSurrogates(char32_t high, char32_t low) noexcept
{
    return 0x10000u + ((high - 0xD800u) << 10) + (low - 0xDC00u);
}
constexpr char32_t HighSurrogate(char32_t c) noexcept
{
    return 0xD800u + ((c - 0x10000u) >> 10);
}
constexpr char32_t LowSurrogate(char32_t c) noexcept
{
    return 0xDC00u + ((c - 0x10000u) & 0x3FFu);
}

// Readers. Next() is called only while AtEnd() is false.

class ByteReader
{
public:
    ByteReader(const void* bytes, size_t size) noexcept
        : m_next(static_cast<const unsigned char*>(bytes)), m_end(m_next + size)
    {
    }
    bool AtEnd() const noexcept { return m_next == m_end; }

protected:
    const unsigned char* m_next;
    const unsigned char* m_end;
};

/// Bytes that are no UTF-8 read as U+FFFD, one for each maximal subpart: the longest start of a sequence that could still
/// have become a character, or else a single byte.
class Utf8Reader : public ByteReader
{
public:
    using ByteReader::ByteReader;
    char32_t Next() noexcept
    {
        if (*m_next < 0x80)
            return *m_next++;
        const Sequence sequence = ReadSequence(m_next, m_end);
        m_next += sequence.m_size;
        return sequence.m_codePoint;
    }

private:
    struct Sequence
    {
        char32_t m_codePoint;
        uint16_t m_size;
    };

    static constexpr bool IsContinuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

    static Sequence ReadSequence(const unsigned char* bytes, const unsigned char* end) noexcept
    {
        const size_t left = static_cast<size_t>(end - bytes);
        const char32_t lead = bytes[0];
        if (lead < 0xE0)
        {
            if (lead >= 0xC2 && left >= 2 && IsContinuation(bytes[1]))
                return {(lead & 0x1F) << 6 | (bytes[1] & 0x3Fu), 2};
        }
        else if (lead < 0xF0)
        {
            if (left >= 3 && IsContinuation(bytes[1]) && IsContinuation(bytes[2]))
            {
                const char32_t c = (lead & 0x0F) << 12 | (bytes[1] & 0x3Fu) << 6 | (bytes[2] & 0x3Fu);
                if (c >= 0x800 && !IsSurrogate(c))
                    return {c, 3};
            }
        }
        else if (left >= 4 && IsContinuation(bytes[1]) && IsContinuation(bytes[2]) && IsContinuation(bytes[3]))
        {
            const char32_t c =
                (lead & 0x0F) << 18 | (bytes[1] & 0x3Fu) << 12 | (bytes[2] & 0x3Fu) << 6 | (bytes[3] & 0x3Fu);
            if (c >= 0x10000 && c <= kMaxCodePoint)
                return {c, 4};
        }
        return {kReplacement, SubpartSize(bytes, left)};
    }

    static uint16_t SubpartSize(const unsigned char* bytes, size_t left) noexcept
    {
        const unsigned char lead = bytes[0];
        if (lead < 0xC2 || lead > 0xF4)
            return 1;
        // Only the byte after the lead has narrower bounds: no overlong forms, no surrogates, no more than U+10FFFF.
        unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        uint16_t size = 1;
        while (size < left && bytes[size] >= lowest && bytes[size] <= highest)
        {
            ++size;
            lowest = 0x80;
            highest = 0xBF;
        }
        return size;
    }
};

/// A lone surrogate reads as itself, an odd last byte as U+FFFD.
template <ByteOrder order>
class Utf16Reader : public ByteReader
{
public:
    using ByteReader::ByteReader;
    char32_t Next() noexcept
    {
        if (m_end - m_next < 2)
        {
            m_next = m_end;
            return kReplacement;
        }
        const char32_t unit = Peek();
        m_next += 2;
        if (!IsHighSurrogate(unit) || m_end - m_next < 2 || !IsLowSurrogate(Peek()))
            return unit;
        const char32_t low = Peek();
        m_next += 2;
        return JoinSurrogates(unit, low);
    }

private:
    char32_t Peek() const noexcept
    {
        return order == ByteOrder::little ? m_next[0] | char32_t{m_next[1]} << 8 : m_next[1] | char32_t{m_next[0]} << 8;
    }
};

/// What is no code point, and an incomplete last unit, read as U+FFFD.
template <ByteOrder order>
class Utf32Reader : public ByteReader
{
public:
    using ByteReader::ByteReader;
    char32_t Next() noexcept
    {
        if (m_end - m_next < 4)
        {
            m_next = m_end;
            return kReplacement;
        }
        char32_t c = 0;
        for (int i = 0; i < 4; ++i)
            c = c << 8 | m_next[order == ByteOrder::little ? 3 - i : i];
        m_next += 4;
        return c > kMaxCodePoint || IsSurrogate(c) ? kReplacement : c;
    }
};

/// Wide text of 16 or 32 bits. A surrogate pair reads as one code point in either width, a lone surrogate as itself, and
/// what lies above U+10FFFF as '?'.
template <class Wide = wchar_t>
class WideReader
{
public:
    WideReader(const Wide* text, size_t length) noexcept : m_next(text), m_end(text + length) {}
    bool AtEnd() const noexcept { return m_next == m_end; }
    char32_t Next() noexcept
    {
        const char32_t c = static_cast<char32_t>(*m_next++);
        if (IsHighSurrogate(c) && m_next != m_end && IsLowSurrogate(static_cast<char32_t>(*m_next)))
            return JoinSurrogates(c, static_cast<char32_t>(*m_next++));
        return c > kMaxCodePoint ? kSubstitute : c;
    }

private:
    const Wide* m_next;
    const Wide* m_end;
};

// Forms. They take what the readers give: code points, and lone surrogates, which become '?' where they cannot stand.

struct Utf8Form
{
    using Unit = char;
    static size_t Size(char32_t c) noexcept
    {
        return c < 0x80 ? 1 : c < 0x800 ? 2 : c >= 0x10000 ? 4 : IsSurrogate(c) ? 1 : 3;
    }
    static char* Write(char32_t c, char* out) noexcept
    {
        if (c >= 0x80 && IsSurrogate(c))
            c = kSubstitute;
        if (c < 0x80)
        {
            *out++ = static_cast<char>(c);
            return out;
        }
        if (c < 0x800)
            *out++ = static_cast<char>(0xC0 | c >> 6);
        else
        {
            if (c < 0x10000)
                *out++ = static_cast<char>(0xE0 | c >> 12);
            else
            {
                *out++ = static_cast<char>(0xF0 | c >> 18);
                *out++ = static_cast<char>(0x80 | (c >> 12 & 0x3F));
            }
            *out++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
        }
        *out++ = static_cast<char>(0x80 | (c & 0x3F));
        return out;
    }
};

template <ByteOrder order>
struct Utf16Form
{
    using Unit = char;
    static size_t Size(char32_t c) noexcept { return c < 0x10000 ? 2 : 4; }
    static char* Write(char32_t c, char* out) noexcept
    {
        if (c < 0x10000)
            return WriteUnit(c, out);
        return WriteUnit(LowSurrogate(c), WriteUnit(HighSurrogate(c), out));
    }

private:
    static char* WriteUnit(char32_t unit, char* out) noexcept
    {
        out[order == ByteOrder::little ? 0 : 1] = static_cast<char>(unit & 0xFF);
        out[order == ByteOrder::little ? 1 : 0] = static_cast<char>(unit >> 8);
        return out + 2;
    }
};

template <ByteOrder order>
struct Utf32Form
{
    using Unit = char;
    static size_t Size(char32_t) noexcept { return 4; }
    static char* Write(char32_t c, char* out) noexcept
    {
        if (IsSurrogate(c))
            c = kSubstitute;
        for (int i = 0; i < 4; ++i)
            out[order == ByteOrder::little ? i : 3 - i] = static_cast<char>(c >> 8 * i & 0xFF);
        return out + 4;
    }
};

template <class Wide = wchar_t>
struct WideForm
{
    using Unit = Wide;
    static size_t Size(char32_t c) noexcept { return sizeof(Wide) == 2 && c >= 0x10000 ? 2 : 1; }
    static Wide* Write(char32_t c, Wide* out) noexcept
    {
        if (sizeof(Wide) == 2 && c >= 0x10000)
        {
            *out++ = static_cast<Wide>(HighSurrogate(c));
            c = LowSurrogate(c);
        }
        *out++ = static_cast<Wide>(c);
        return out;
    }
};

/// The units that what is left in the reader takes in the form.
template <class Form, class Reader>
size_t Measure(Reader reader) noexcept
{
    size_t size = 0;
    while (!reader.AtEnd())
        size += Form::Size(reader.Next());
    return size;
}

/// Writes what is left in the reader and returns the end of what was written.
template <class Form, class Reader>
typename Form::Unit* Write(Reader reader, typename Form::Unit* out) noexcept
{
    while (!reader.AtEnd())
        out = Form::Write(reader.Next(), out);
    return out;
}

/// What a text becomes in another form.
struct TextMeasure
{
    size_t m_length; ///< units of the other form
    bool m_valid;    ///< it is known that nothing in the text has to be replaced
};

[[nodiscard]] TextMeasure MeasureUtf8(const char* text, size_t size) noexcept;
/// Writes the measured length, and may write something behind it where there is `room` for more: short texts are
/// converted faster then.
void Utf8ToWide(const char* text, size_t size, TextMeasure measure, wchar_t* wide, size_t room = 0) noexcept;

[[nodiscard]] TextMeasure MeasureWide(const wchar_t* wide, size_t length) noexcept;
/// As Utf8ToWide.
void WideToUtf8(const wchar_t* wide, size_t length, TextMeasure measure, char* text, size_t room = 0) noexcept;

/// The wide characters that little-endian UTF-16 of `size` bytes becomes.
[[nodiscard]] size_t MeasureUtf16(const char* text, size_t size) noexcept;
/// Writes exactly the measured length.
void Utf16ToWide(const char* text, size_t size, size_t length, wchar_t* wide) noexcept;

/// The bytes that wide text takes in UTF-16.
[[nodiscard]] size_t MeasureWideInUtf16(const wchar_t* wide, size_t length) noexcept;
/// Writes exactly the measured size, little-endian.
void WideToUtf16(const wchar_t* wide, size_t length, size_t size, char* text) noexcept;
} // namespace tev
