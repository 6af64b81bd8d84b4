#pragma once

#include "qt/log/LineMatcher.h"
#include "qt/log/TextFile.h"

#include <string>

/// Finds where lines of a file may match, in their bytes, so that few lines need to be decoded. In UTF-8 and in the common
/// code pages of one byte a pattern, or the longest part of it that is ASCII, is looked for as bytes; where that is not
/// possible, blocks are decoded as a whole. Immutable.
class ByteSearch
{
public:
    ByteSearch(const LineMatcher& matcher, const TextForm& form);

    /// Bytes that consist of lines. They must outlive it.
    class Block
    {
    public:
        Block(const ByteSearch& search, const char* bytes, std::size_t size);
        /// The first place from one on in a line that may match; the size where there is none.
        std::size_t Next(std::size_t offset);
        /// Whether a line may match.
        bool MayMatch(std::size_t offset, std::size_t size) { return m_isEverywhere || Next(offset) < offset + size; }
        /// Whether every line that may match does.
        bool IsSure() const noexcept { return m_isSure; }

    private:
        const ByteSearch& m_search;
        const char* const m_bytes;
        const std::size_t m_size;
        bool m_isEverywhere;
        bool m_isSure;
        std::size_t m_from = 0; // from here on m_next is the first one
        std::size_t m_next = 0;
    };

private:
    std::size_t FindLiteral(const char* bytes, std::size_t size, std::size_t from) const noexcept;
    bool IsLiteralAt(const char* bytes) const noexcept;
    bool MayDiffer(const char* bytes, std::size_t size) const noexcept;

    const LineMatcher& m_matcher;
    const TextForm& m_form;
    std::string m_literal;  // what the bytes of a matching line hold; letters that have two cases in lower case
    std::string m_cases;    // for each byte of it the bit in which upper and lower case differ
    bool m_isWhole = false; // what holds the literal matches
    bool m_isUtf8 = false;
    bool m_hasFoldedLetters = false;
};
