#include "qt/log/ByteSearch.h"

#include <algorithm>
#include <string_view>

namespace
{
constexpr unsigned kUtf8Page = 65001;
// One byte a character, ASCII as itself, and nothing else that is a letter of ASCII in another case.
constexpr unsigned kPagesOfBytes[] = {1250, 1251, 1252, 1253, 1254, 1257, 28591, 28592, 28605};

// What is, beyond ASCII, a letter of ASCII in another case: U+017F an "s", U+212A a "k".
constexpr std::string_view kLongS = "\xC5\xBF";
constexpr std::string_view kKelvin = "\xE2\x84\xAA";

constexpr std::size_t kStep = 64;

bool IsAscii(QChar c)
{
    return c < QChar(0x80) && c != u'\r' && c != u'\n';
}

QString LongestAsciiPart(const QString& text)
{
    QString longest;
    for (qsizetype at = 0; at < text.size();)
    {
        const auto* const end = std::find_if_not(text.begin() + at, text.end(), IsAscii);
        const qsizetype size = end - text.begin() - at;
        if (size > longest.size())
            longest = text.mid(at, size);
        at += size + 1;
    }
    return longest;
}

// Bytes that are no text become U+FFFD, and so does a surrogate without its other half.
bool HasBytesInUtf8(const QString& text)
{
    return text.isValidUtf16() && !text.contains(QChar(QChar::ReplacementCharacter)) && !text.contains(u'\r') &&
           !text.contains(u'\n');
}
} // namespace

ByteSearch::ByteSearch(const LineMatcher& matcher, const TextForm& form) : m_matcher(matcher), m_form(form)
{
    const unsigned page =
        form.m_encoding == xEncodingAnsi ? XGetAnsiCodePage() : static_cast<unsigned>(form.m_encoding);
    m_isUtf8 = form.m_encoding == xEncodingUtf8 || page == kUtf8Page;
    const auto* const end = std::end(kPagesOfBytes);
    if (!m_isUtf8 && std::find(std::begin(kPagesOfBytes), end, page) == end)
        return;
    const QString& literal = matcher.GetLiteral();
    const bool isCaseSensitive = matcher.GetPattern().m_isCaseSensitive;
    const bool isAllBytes = m_isUtf8 && isCaseSensitive && HasBytesInUtf8(literal);
    const QString part = isAllBytes ? literal : LongestAsciiPart(literal);
    m_isWhole = matcher.IsLiteral() && part.size() == literal.size();
    m_literal = part.toStdString();
    m_cases.assign(m_literal.size(), '\0');
    for (std::size_t i = 0; i < m_literal.size() && !isCaseSensitive; ++i)
    {
        const char lower = static_cast<char>(m_literal[i] | 0x20);
        if (lower < 'a' || lower > 'z')
            continue;
        m_literal[i] = lower;
        m_cases[i] = 0x20;
        m_hasFoldedLetters = m_hasFoldedLetters || lower == 's' || lower == 'k';
    }
}

bool ByteSearch::IsLiteralAt(const char* bytes) const noexcept
{
    for (std::size_t i = 0; i < m_literal.size(); ++i)
    {
        if ((bytes[i] | m_cases[i]) != m_literal[i])
            return false;
    }
    return true;
}

// The first and the last byte of the literal are compared in loops that compilers turn into vectors.
std::size_t ByteSearch::FindLiteral(const char* bytes, std::size_t size, std::size_t from) const noexcept
{
    const std::size_t last = m_literal.size() - 1;
    const std::size_t end = size - std::min(last, size);
    const char firstByte = m_literal.front();
    const char firstCase = m_cases.front();
    const char lastByte = m_literal.back();
    const char lastCase = m_cases.back();
    for (; from < end; from += kStep)
    {
        const std::size_t count = std::min(kStep, end - from);
        unsigned char isNear = 1;
        if (count == kStep)
        {
            const char* const first = bytes + from;
            const char* const behind = first + last;
            isNear = 0;
            for (std::size_t i = 0; i < kStep; ++i)
                isNear |= static_cast<unsigned char>((first[i] | firstCase) == firstByte) &
                          static_cast<unsigned char>((behind[i] | lastCase) == lastByte);
        }
        for (std::size_t i = 0; i < count && isNear != 0; ++i)
        {
            if (IsLiteralAt(bytes + from + i))
                return from + i;
        }
    }
    return size;
}

bool ByteSearch::MayDiffer(const char* bytes, std::size_t size) const noexcept
{
    const std::string_view text(bytes, size);
    return m_hasFoldedLetters && m_isUtf8 && (text.find(kLongS) != text.npos || text.find(kKelvin) != text.npos);
}

ByteSearch::Block::Block(const ByteSearch& search, const char* bytes, std::size_t size)
    : m_search(search),
      m_bytes(bytes),
      m_size(size),
      m_isEverywhere(search.m_matcher.GetLiteral().isEmpty() || search.MayDiffer(bytes, size)),
      m_isSure(search.m_matcher.MatchesAll() || (search.m_isWhole && !m_isEverywhere))
{
    if (m_isEverywhere)
        return;
    if (!search.m_literal.empty())
    {
        m_next = search.FindLiteral(bytes, size, 0);
        return;
    }
    QString text;
    search.m_form.Decode(bytes, size, text);
    m_isEverywhere = search.m_matcher.MayMatchIn(text);
    m_next = size;
}

std::size_t ByteSearch::Block::Next(std::size_t offset)
{
    if (m_isEverywhere)
        return offset;
    if (offset < m_from || m_next < offset)
        m_next = m_search.FindLiteral(m_bytes, m_size, offset);
    m_from = offset;
    return m_next;
}
