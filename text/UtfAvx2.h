#pragma once

#include "text/InstructionSets.h"
#include "text/Utf.h"

// UTF-8 to and from wide text of 32 bits, for processors that have AVX2. Elsewhere nothing here is available, and the
// plain loops of UtfConversion.cpp do all of the work.

#if defined(__x86_64__) && defined(__GNUC__) && __SIZEOF_WCHAR_T__ == 4
#define TEV_UTF_AVX2 1
#else
#define TEV_UTF_AVX2 0
#endif

namespace tev::avx2
{
/// Where it is false, the functions below are only declared.
constexpr bool kIsBuilt = TEV_UTF_AVX2 != 0;

inline bool IsAvailable() noexcept
{
    return kIsBuilt && HasAvx2();
}

// Of UTF-8 and of wide text; the length means something only when the text is valid.

[[nodiscard]] TextMeasure Measure(const char* text, size_t size) noexcept;
[[nodiscard]] TextMeasure Measure(const wchar_t* wide, size_t length) noexcept;

// These convert a valid text.

void DecodeUtf8(const char* text, size_t size, wchar_t* wide, const wchar_t* wideEnd) noexcept;
/// A text below kShort, which becomes `length` characters where `room` may be written to.
void DecodeShortUtf8(const char* text, size_t size, wchar_t* wide, size_t length, size_t room) noexcept;
constexpr size_t kShort = 32;
/// May write up to `textEnd`, which is not before the end of the result.
void EncodeUtf8(const wchar_t* wide, size_t length, char* text, const char* textEnd) noexcept;

/// What a text in a padded buffer became.
struct PaddedDecoding
{
    size_t m_length;
    bool m_valid; ///< else nothing is known of the characters
    bool m_hasNul;
};

// Short texts in one pass. `kPadding` bytes can be read past the text, and as many characters are written past its
// size.

constexpr size_t kPadding = 64;
constexpr size_t kShortLine = 128;

[[nodiscard]] PaddedDecoding DecodePaddedUtf8(const char* text, size_t size, wchar_t* wide) noexcept;
/// Looks for the end of a line too: LF within kShortLine bytes and so far before the end of what can be read that whole
/// blocks can be looked at. Returns the size with the LF and decodes what comes before it; 0 where there is no such
/// line, or no room for what is written, which is enough where it is kShortLine + kPadding. A wrong guess whether the line
/// is ASCII without NULs costs a little time.
[[nodiscard]] size_t DecodeShortLineUtf8(const char* text, size_t available, bool ascii, wchar_t* wide, size_t room,
                                         PaddedDecoding& result) noexcept;
/// Valid is what holds no surrogates. The size is even.
[[nodiscard]] PaddedDecoding DecodePaddedUtf16(const char* text, size_t size, ByteOrder order, wchar_t* wide) noexcept;
} // namespace tev::avx2
