#include "text/TextDetection.h"

#include "base/LittleEndian.h"
#include "text/CodePageText.h"
#include "text/Utf.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

// Without a mark, every Unicode form is followed at once until it turns out to be invalid. UTF-8 hardly ever fits by chance,
// nor does UTF-32. UTF-16 nearly always does; what gives its byte order away is that the first bytes of neighbouring
// characters are often equal, since most texts stay within a script, and second bytes seldom; and its blanks, which are
// rare characters in the other order.

namespace
{
constexpr auto kUtf32 = static_cast<xStringEncoding>(tev::kCodePageUtf32);
constexpr auto kUtf32BE = static_cast<xStringEncoding>(tev::kCodePageUtf32BE);

constexpr std::size_t kQuad = 4;
constexpr std::size_t kTakenAtOnce = 16 * 1024; // several passes are made over what the processor's cache holds

constexpr unsigned kMostScored = 32 * 1024; // characters of UTF-16: enough to tell its byte order
constexpr std::uint64_t kHighBits = 0x8080808080808080;

constexpr unsigned __int64 kBlankWeight = 8; // a blank says as much as so many equal bytes
constexpr unsigned __int64 kStrongUtf8 = 3;  // characters
constexpr unsigned __int64 kStrongUtf32 = 2;
constexpr unsigned __int64 kStrongUtf16 = 16; // of the score
constexpr unsigned __int64 kStrongMargin = 4; // over the other byte order
constexpr unsigned __int64 kWeakMargin = 2;
constexpr unsigned __int64 kFewestUnitsWithoutBlanks = 2;

struct KnownMark
{
    const char* m_bytes;
    XTextMark m_mark;
};

// The longer ones first: that of UTF-32 begins like that of UTF-16.
constexpr KnownMark kMarks[] = {
    {"\xFF\xFE\0\0", {kUtf32, 4}},     {"\0\0\xFE\xFF", {kUtf32BE, 4}},     {"\xEF\xBB\xBF", {xEncodingUtf8, 3}},
    {"\xFF\xFE", {xEncodingUtf16, 2}}, {"\xFE\xFF", {xEncodingUtf16BE, 2}},
};

/// Characters that no text holds: controls other than blanks, backspace, escape and the end mark of old text files.
template <class Unit>
constexpr unsigned IsControl(Unit c) noexcept
{
    return unsigned{c < 0x20} & (unsigned{c < 0x08} | unsigned{c > 0x0D}) & unsigned{c != 0x1A} & unsigned{c != 0x1B};
}

/// The planes in between have none.
constexpr bool HasCharacters(char32_t plane) noexcept
{
    return plane <= 3 || plane >= 14;
}

constexpr unsigned IsBlankUnit(unsigned c) noexcept
{
    return unsigned{c == ' '} | unsigned{c == '\n'} | unsigned{c == '\r'} | unsigned{c == '\t'};
}

template <bool bigFirst>
struct HighLow
{
    static constexpr std::size_t kHigh = bigFirst ? 0 : 1;
    static constexpr std::size_t kLow = 1 - kHigh;
};

template <bool bigFirst>
char32_t QuadAt(const unsigned char* bytes) noexcept
{
    char32_t c = 0;
    for (std::size_t i = 0; i < kQuad; ++i)
        c |= char32_t{bytes[i]} << 8 * (bigFirst ? kQuad - 1 - i : i);
    return c;
}
} // namespace

XTextMark XFindTextMark(const void* bytes, std::size_t byteCount) noexcept
{
    for (const KnownMark& known : kMarks)
    {
        if (bytes != nullptr && byteCount >= known.m_mark.m_size &&
            std::memcmp(bytes, known.m_bytes, known.m_mark.m_size) == 0)
            return known.m_mark;
    }
    return {};
}

void CXTextExaminer::Add(const void* bytes, std::size_t byteCount) noexcept
{
    if (bytes == nullptr)
        return;
    const auto* next = static_cast<const unsigned char*>(bytes);
    m_byteCount += byteCount;
    while (byteCount != 0)
    {
        std::size_t taken = 1;
        if (m_quadSize != 0 || !m_isStarted || byteCount < kQuad)
        {
            m_quad[m_quadSize++] = *next;
            if (m_quadSize == kQuad)
                TakeQuad();
        }
        else
        {
            taken = std::min(byteCount, kTakenAtOnce) / kQuad * kQuad;
            Take(next, taken);
        }
        next += taken;
        byteCount -= taken;
    }
}

XTextInfo CXTextExaminer::GetInfo() const noexcept
{
    CXTextExaminer whole = *this;
    whole.Finish();

    XTextInfo info;
    info.m_byteCount = m_byteCount;
    info.m_markSize = whole.m_mark.m_size;
    const auto isValid = [&whole](bool state, xStringEncoding encoding) { return state && whole.Considers(encoding); };
    info.m_isUtf8 = isValid(whole.m_utf8.m_isValid, xEncodingUtf8);
    info.m_isUtf16 = isValid(whole.m_utf16.m_isValid, xEncodingUtf16);
    info.m_isUtf16BE = isValid(whole.m_utf16BE.m_isValid, xEncodingUtf16BE);
    info.m_isUtf32 = isValid(whole.m_utf32.m_isValid, kUtf32);
    info.m_isUtf32BE = isValid(whole.m_utf32BE.m_isValid, kUtf32BE);
    const bool hasBytes = whole.Considers(xEncodingUtf8);
    info.m_isAscii = hasBytes && whole.m_bytes.m_all < 0x80;
    info.m_holdsNul = hasBytes && whole.m_bytes.m_holdsNul;
    if (info.m_markSize != 0)
    {
        info.m_encoding = whole.m_mark.m_encoding;
        info.m_certainty = XTextCertainty::Certain;
        info.m_isValid = info.m_isUtf8 || info.m_isUtf16 || info.m_isUtf16BE || info.m_isUtf32 || info.m_isUtf32BE;
    }
    else
    {
        whole.Guess(info);
        info.m_isValid = info.m_certainty != XTextCertainty::None;
    }
    const Lines& lines = whole.LinesOf(info.m_encoding);
    info.m_lineEnds = lines.m_ends;
    info.m_lineCount = lines.m_ends.Total() + (lines.m_isInLine ? 1 : 0);
    return info;
}

bool CXTextExaminer::Considers(xStringEncoding encoding) const noexcept
{
    return m_mark.m_size == 0 || m_mark.m_encoding == encoding;
}

/// The first four bytes tell whether there is a mark. What follows a mark of UTF-16 stays in step with the fours.
void CXTextExaminer::TakeQuad() noexcept
{
    std::size_t markSize = 0;
    if (!m_isStarted)
    {
        m_isStarted = true;
        m_mark = XFindTextMark(m_quad, m_quadSize);
        markSize = m_mark.m_size;
    }
    Take(m_quad + markSize, m_quadSize - markSize);
    m_quadSize = 0;
}

/// The number of bytes is odd, or no multiple of four, only at the end or where a mark makes it harmless.
void CXTextExaminer::Take(const unsigned char* bytes, std::size_t size) noexcept
{
    const BlockFacts facts = TakeBytes(m_bytes, bytes, size);
    if (Considers(xEncodingUtf8) && (!facts.m_isAscii || m_utf8.m_missing != 0))
        TakeUtf8(m_utf8, bytes, size);
    const bool isMarked = m_mark.m_size != 0;
    if (Considers(xEncodingUtf16) && (isMarked || m_utf16.m_isValid))
        TakeUtf16<false>(m_utf16, bytes, size / 2, facts);
    if (Considers(xEncodingUtf16BE) && (isMarked || m_utf16BE.m_isValid))
        TakeUtf16<true>(m_utf16BE, bytes, size / 2, facts);
    if (size % 2 != 0)
        m_utf16.m_isValid = m_utf16BE.m_isValid = false;
    if (Considers(kUtf32) && (isMarked || m_utf32.m_isValid))
        TakeUtf32<false>(m_utf32, bytes, size / kQuad);
    if (Considers(kUtf32BE) && (isMarked || m_utf32BE.m_isValid))
        TakeUtf32<true>(m_utf32BE, bytes, size / kQuad);
    if (size % kQuad != 0)
        m_utf32.m_isValid = m_utf32BE.m_isValid = false;
}

void CXTextExaminer::Finish() noexcept
{
    if (m_quadSize != 0)
    {
        const std::size_t last = m_quadSize;
        TakeQuad();
        // The rest of a cut unit is still a line.
        if (last % 2 != 0)
            m_utf16.m_lines.m_isInLine = m_utf16BE.m_lines.m_isInLine = true;
        m_utf32.m_lines.m_isInLine = m_utf32BE.m_lines.m_isInLine = true;
    }
    m_utf8.m_isValid = m_utf8.m_isValid && m_utf8.m_missing == 0;
    m_utf16.m_isValid = m_utf16.m_isValid && !m_utf16.m_afterHighSurrogate;
    m_utf16BE.m_isValid = m_utf16BE.m_isValid && !m_utf16BE.m_afterHighSurrogate;
}

void CXTextExaminer::Guess(XTextInfo& info) const noexcept
{
    const bool isPlain = !m_bytes.m_holdsNul && !m_bytes.m_holdsControl;
    if (!(info.m_isUtf8 && isPlain) && (GuessUtf32(info) || GuessUtf16(info)))
        return;
    if (!info.m_isUtf8 || m_bytes.m_holdsNul)
        return;
    info.m_encoding = xEncodingUtf8;
    if (!isPlain)
        info.m_certainty = XTextCertainty::Weak;
    else if (info.m_isAscii)
        info.m_certainty = XTextCertainty::Certain;
    else
        info.m_certainty = m_utf8.m_characters >= kStrongUtf8 ? XTextCertainty::Strong : XTextCertainty::Weak;
}

bool CXTextExaminer::GuessUtf32(XTextInfo& info) const noexcept
{
    // Without one of the usual characters they are more likely numbers of 16 bits.
    const auto isText = [](const Units& units) { return units.m_isValid && units.m_isText && units.m_basic != 0; };
    const bool isLittle = isText(m_utf32);
    const bool isBig = isText(m_utf32BE);
    if (isLittle == isBig)
        return false;
    info.m_encoding = isLittle ? kUtf32 : kUtf32BE;
    const unsigned __int64 count = isLittle ? m_utf32.m_basic : m_utf32BE.m_basic;
    info.m_certainty = count >= kStrongUtf32 ? XTextCertainty::Strong : XTextCertainty::Weak;
    return true;
}

bool CXTextExaminer::GuessUtf16(XTextInfo& info) const noexcept
{
    const auto scoreOf = [](const Units& units) {
        return units.m_isValid && units.m_isText ? units.m_repeated + kBlankWeight * units.m_blanks : 0;
    };
    const unsigned __int64 little = scoreOf(m_utf16);
    const unsigned __int64 big = scoreOf(m_utf16BE);
    if (little == big)
        return false;
    const bool isLittle = little > big;
    const unsigned __int64 better = std::max(little, big);
    const unsigned __int64 other = std::min(little, big);
    const unsigned __int64 count = std::min<unsigned __int64>(m_byteCount / 2, kMostScored);
    const bool hasBlanks = (isLittle ? m_utf16 : m_utf16BE).m_blanks != 0;
    // Without a blank it may be text in a code page as well, or a record with a few NUL bytes.
    if (hasBlanks ? better < kWeakMargin * other
                  : count < kFewestUnitsWithoutBlanks || 2 * better < count || 4 * other >= count)
        return false;
    info.m_encoding = isLittle ? xEncodingUtf16 : xEncodingUtf16BE;
    const bool isStrong = hasBlanks && better >= kStrongUtf16 && better >= kStrongMargin * other;
    info.m_certainty = isStrong ? XTextCertainty::Strong : XTextCertainty::Weak;
    return true;
}

const CXTextExaminer::Lines& CXTextExaminer::LinesOf(xStringEncoding encoding) const noexcept
{
    switch (static_cast<unsigned>(encoding))
    {
    case xEncodingUtf16:
        return m_utf16.m_lines;
    case xEncodingUtf16BE:
        return m_utf16BE.m_lines;
    case kUtf32:
        return m_utf32.m_lines;
    case kUtf32BE:
        return m_utf32BE.m_lines;
    default:
        return m_bytes.m_lines;
    }
}

template <class UnitAt>
void CXTextExaminer::CountLines(Lines& lines, std::size_t count, UnitAt unitAt) noexcept
{
    if (count == 0)
        return;
    // Without branches, so that the compiler can vectorize it.
    std::uint64_t feeds = unitAt(0) == '\n' ? 1 : 0;
    std::uint64_t returns = unitAt(0) == '\r' ? 1 : 0;
    std::uint64_t pairs = lines.m_afterReturn ? feeds : 0;
    for (std::size_t i = 1; i < count; ++i)
    {
        const bool isFeed = unitAt(i) == '\n';
        feeds += isFeed ? 1 : 0;
        returns += unitAt(i) == '\r' ? 1 : 0;
        pairs += unitAt(i - 1) == '\r' && isFeed ? 1 : 0;
    }
    lines.m_ends.m_lf += feeds - pairs;
    lines.m_ends.m_crLf += pairs;
    lines.m_ends.m_cr += returns - pairs; // the first pair may take back a return that ended the last block
    lines.m_afterReturn = unitAt(count - 1) == '\r';
    lines.m_isInLine = !lines.m_afterReturn && unitAt(count - 1) != '\n';
}

CXTextExaminer::BlockFacts CXTextExaminer::TakeBytes(Bytes& state, const unsigned char* bytes,
                                                     std::size_t size) noexcept
{
    unsigned char all = 0;
    unsigned char nul = 0;
    unsigned char control = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        all = static_cast<unsigned char>(all | bytes[i]);
        nul = static_cast<unsigned char>(nul | (bytes[i] == 0));
        control = static_cast<unsigned char>(control | IsControl(bytes[i]));
    }
    state.m_all = static_cast<unsigned char>(state.m_all | all);
    state.m_holdsNul = state.m_holdsNul || nul != 0;
    state.m_holdsControl = state.m_holdsControl || control != 0;
    CountLines(state.m_lines, size, [bytes](std::size_t i) { return bytes[i]; });
    return {all < 0x80, nul != 0};
}

void CXTextExaminer::TakeUtf8(Utf8& state, const unsigned char* bytes, std::size_t size) noexcept
{
    const unsigned char* const end = bytes + size;
    while (bytes != end && state.m_isValid)
    {
        const unsigned char byte = *bytes;
        if (state.m_missing != 0)
        {
            state.m_isValid = byte >= state.m_lowest && byte <= state.m_highest;
            state.m_lowest = 0x80;
            state.m_highest = 0xBF;
            --state.m_missing;
        }
        else if (byte < 0x80)
        {
            while (end - bytes >= 8 && (tev::LoadLittleEndian<std::uint64_t>(bytes) & kHighBits) == 0)
                bytes += 8;
            bytes = std::find_if(bytes, end, [](unsigned char next) { return next >= 0x80; });
            continue;
        }
        else
        {
            // The byte after the lead has bounds of its own: no overlong forms, no surrogates, no more than U+10FFFF.
            state.m_isValid = byte >= 0xC2 && byte <= 0xF4;
            state.m_missing = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : 1;
            state.m_lowest = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
            state.m_highest = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
            ++state.m_characters;
        }
        ++bytes;
    }
}

template <bool bigFirst>
void CXTextExaminer::Score(Units& state, const unsigned char* bytes, std::size_t count) noexcept
{
    const unsigned char* const high = bytes + HighLow<bigFirst>::kHigh;
    const unsigned char* const low = bytes + HighLow<bigFirst>::kLow;
    count = std::min<std::size_t>(count, kMostScored - state.m_scored);
    for (std::size_t i = 0; i < count; ++i)
    {
        state.m_repeated += unsigned{high[2 * i] == state.m_lastHighByte};
        state.m_blanks += unsigned{high[2 * i] == 0} & IsBlankUnit(low[2 * i]);
        state.m_lastHighByte = high[2 * i];
    }
    state.m_scored += static_cast<unsigned>(count);
}

/// `high` are the first bytes of the characters, each two bytes after the other.
void CXTextExaminer::PairSurrogates(Units& state, const unsigned char* high, std::size_t count) noexcept
{
    for (std::size_t i = 0; i < count; ++i)
    {
        const bool isLow = (high[2 * i] & 0xFC) == 0xDC;
        state.m_isValid = state.m_isValid && isLow == state.m_afterHighSurrogate;
        state.m_afterHighSurrogate = (high[2 * i] & 0xFC) == 0xD8;
    }
}

template <bool bigFirst>
void CXTextExaminer::TakeUtf16(Units& state, const unsigned char* bytes, std::size_t count, BlockFacts facts) noexcept
{
    if (count == 0)
        return;
    Score<bigFirst>(state, bytes, count);
    const unsigned char* const high = bytes + HighLow<bigFirst>::kHigh;
    const unsigned char* const low = bytes + HighLow<bigFirst>::kLow;
    // A surrogate is not ASCII, nor is U+FFFE; a control and a line end hold a NUL byte.
    if (!facts.m_isAscii || facts.m_hasNul || state.m_afterHighSurrogate)
    {
        unsigned surrogates = 0;
        unsigned noText = 0;
        for (std::size_t i = 0; i < count; ++i)
        {
            const unsigned char first = high[2 * i];
            const unsigned char second = low[2 * i];
            surrogates |= unsigned{(first & 0xF8) == 0xD8};
            noText |= unsigned{first == 0} & IsControl(second);
            noText |= unsigned{first == 0xFF} & unsigned{second >= 0xFE};
        }
        state.m_isText = state.m_isText && noText == 0;
        if (surrogates != 0 || state.m_afterHighSurrogate)
            PairSurrogates(state, high, count);
    }
    if (facts.m_hasNul)
        CountLines(state.m_lines, count,
                   [high, low](std::size_t i) { return low[2 * i] | static_cast<unsigned>(high[2 * i]) << 8; });
    else
    {
        state.m_lines.m_afterReturn = false;
        state.m_lines.m_isInLine = true;
    }
}

template <bool bigFirst>
void CXTextExaminer::TakeUtf32(Units& state, const unsigned char* bytes, std::size_t count) noexcept
{
    const auto unitAt = [bytes](std::size_t i) { return QuadAt<bigFirst>(bytes + kQuad * i); };
    for (std::size_t i = 0; i < count; ++i)
    {
        const char32_t c = unitAt(i);
        state.m_isValid = state.m_isValid && c <= tev::kMaxCodePoint && !tev::IsSurrogate(c);
        state.m_isText = state.m_isText && IsControl(c) == 0 && (c & 0xFFFE) != 0xFFFE && HasCharacters(c >> 16);
        state.m_basic += c < 0x10000 ? 1 : 0;
    }
    CountLines(state.m_lines, count, unitAt);
}

XTextInfo XExamineText(const void* bytes, std::size_t byteCount) noexcept
{
    CXTextExaminer examiner;
    examiner.Add(bytes, byteCount);
    return examiner.GetInfo();
}
