#pragma once

#include "text/TextEncoding.h"

#include <cstddef>

// What the bytes of a text say about its encoding, its line ends and its faults.

/// A byte-order mark: U+FEFF in one of the Unicode encodings. The size is 0 where there is none.
struct XTextMark
{
    xStringEncoding m_encoding = xEncodingUnknown; ///< UTF-32 by its code page, 12000 or 12001
    unsigned int m_size = 0;                       ///< bytes
};

/// The mark at the start of a text: of UTF-8, UTF-16 or UTF-32, in either byte order. Four bytes are enough to find any.
[[nodiscard]] TEVTOOLS_API XTextMark XFindTextMark(const void* bytes, std::size_t byteCount) noexcept;

/// How sure a detected encoding is, in ascending order.
enum class XTextCertainty : unsigned int
{
    None,   ///< nothing says which encoding it is
    Weak,   ///< it fits, but there is little to go by, or something unusual in the text
    Strong, ///< text in another encoding hardly ever looks like this
    Certain ///< there is a mark, or only ASCII, which is the same in UTF-8 and in every ANSI code page
};

/// Counts of each kind of line end. A CR before an LF belongs to it.
struct XLineEnds
{
    unsigned __int64 m_lf = 0;
    unsigned __int64 m_crLf = 0;
    unsigned __int64 m_cr = 0;

    unsigned __int64 Total() const noexcept { return m_lf + m_crLf + m_cr; }
};

/// What is known of a text. A value: one thread at a time.
struct XTextInfo
{
    /// The encoding to decode it with: that of the mark, else the detected one; xEncodingUtf8 for ASCII and for no bytes at
    /// all. Unknown for 8-bit text that is no UTF-8, since code pages do not differ in their bytes, and for what is no text.
    xStringEncoding m_encoding = xEncodingUnknown;
    XTextCertainty m_certainty = XTextCertainty::None;
    unsigned int m_markSize = 0; ///< bytes of the byte-order mark
    bool m_isValid = false;      ///< no byte is without meaning in `m_encoding`, and no surrogate without its pair

    // Whether what follows the mark is valid in each of these. Where there is a mark, only its encoding is looked at.

    bool m_isUtf8 = false;
    bool m_isUtf16 = false; ///< true of most texts of an even number of bytes
    bool m_isUtf16BE = false;
    bool m_isUtf32 = false;
    bool m_isUtf32BE = false;

    bool m_isAscii = false;  ///< no byte is above 0x7F; false with a mark of UTF-16 or UTF-32
    bool m_holdsNul = false; ///< a byte is 0; false with a mark of UTF-16 or UTF-32

    unsigned __int64 m_byteCount = 0; ///< with the mark
    XLineEnds m_lineEnds;             ///< in `m_encoding`, in single bytes where that is unknown
    unsigned __int64 m_lineCount = 0; ///< with a last line that has no end
};

/// Examines a text that comes in blocks of any size. Allocates nothing. One thread at a time.
class CXTextExaminer
{
public:
    /// Takes the next bytes. The first ones begin with the mark, if the text has one.
    TEVTOOLS_API void Add(const void* bytes, std::size_t byteCount) noexcept;
    /// What is known of the bytes so far, as if the text ended here. More may be added.
    [[nodiscard]] TEVTOOLS_API XTextInfo GetInfo() const noexcept;

private:
    struct Lines
    {
        XLineEnds m_ends;
        bool m_afterReturn = false;
        bool m_isInLine = false;
    };
    struct Bytes
    {
        unsigned char m_all = 0; // the bits of all bytes
        bool m_holdsNul = false;
        bool m_holdsControl = false;
        Lines m_lines;
    };
    struct BlockFacts
    {
        bool m_isAscii;
        bool m_hasNul;
    };
    struct Utf8
    {
        bool m_isValid = true;
        unsigned char m_missing = 0; // bytes of the character that has begun
        unsigned char m_lowest = 0;  // the bounds of the next one
        unsigned char m_highest = 0;
        unsigned __int64 m_characters = 0; // outside ASCII
    };
    struct Units // of 16 or 32 bits
    {
        bool m_isValid = true;
        bool m_isText = true; // nothing that no text holds
        bool m_afterHighSurrogate = false;
        unsigned int m_lastHighByte = 0x100;
        unsigned int m_scored = 0;       // characters that the next two count, from the start of the text; in UTF-16
        unsigned __int64 m_basic = 0;    // characters below U+10000; counted in UTF-32
        unsigned __int64 m_repeated = 0; // first bytes that equal that of the character before
        unsigned __int64 m_blanks = 0;
        Lines m_lines;
    };

    bool Considers(xStringEncoding encoding) const noexcept;
    void TakeQuad() noexcept;
    void Take(const unsigned char* bytes, std::size_t size) noexcept;
    void Finish() noexcept;
    void Guess(XTextInfo& info) const noexcept;
    bool GuessUtf32(XTextInfo& info) const noexcept;
    bool GuessUtf16(XTextInfo& info) const noexcept;
    const Lines& LinesOf(xStringEncoding encoding) const noexcept;

    template <class UnitAt>
    static void CountLines(Lines& lines, std::size_t count, UnitAt unitAt) noexcept;
    static BlockFacts TakeBytes(Bytes& state, const unsigned char* bytes, std::size_t size) noexcept;
    static void TakeUtf8(Utf8& state, const unsigned char* bytes, std::size_t size) noexcept;
    template <bool bigFirst>
    static void TakeUtf16(Units& state, const unsigned char* bytes, std::size_t count, BlockFacts facts) noexcept;
    template <bool bigFirst>
    static void Score(Units& state, const unsigned char* bytes, std::size_t count) noexcept;
    static void PairSurrogates(Units& state, const unsigned char* high, std::size_t count) noexcept;
    template <bool bigFirst>
    static void TakeUtf32(Units& state, const unsigned char* bytes, std::size_t count) noexcept;

    unsigned __int64 m_byteCount = 0;
    XTextMark m_mark;
    bool m_isStarted = false; // it is known whether there is a mark
    unsigned char m_quad[4] = {};
    unsigned int m_quadSize = 0; // bytes that wait for the rest of their four
    Bytes m_bytes;
    Utf8 m_utf8;
    Units m_utf16;
    Units m_utf16BE;
    Units m_utf32;
    Units m_utf32BE;
};

/// What a text in memory is. Null is no text.
[[nodiscard]] TEVTOOLS_API XTextInfo XExamineText(const void* bytes, std::size_t byteCount) noexcept;
