#pragma once

#include "qt/log/ByteSearch.h"
#include "qt/log/RowFolds.h"

#include <functional>
#include <limits>

/// The start of a line, with the numbers of what stands before it.
struct LinePlace
{
    std::uint64_t m_position = 0;
    std::uint64_t m_line = 0; ///< lines
    std::uint64_t m_base = 0; ///< lines that match the first matcher
    std::uint64_t m_hit = 0;  ///< lines that match both
};

/// Goes through a file from its start and numbers its lines, those that match one matcher (the base), and of these those
/// that match a second one (the hits). It keeps a place every so many bytes, and keeps fewer as the file grows: its memory
/// is bounded whatever the size of the file. Any line is found again by reading from the nearest place; the line behind a
/// long one has a place, so that long lines are never read to find others.
///
/// One thread advances; all other members are safe from several threads at once.
class LineScan
{
public:
    static constexpr std::size_t kMaximumPlaces = 32768;

    LineScan(std::shared_ptr<const TextFile> file, LineMatcher base, LineMatcher find);

    /// Reads on. False when the end of the file is reached, as it is now, or it cannot be read.
    bool Advance();

    struct Totals
    {
        std::uint64_t m_lines = 0;
        std::uint64_t m_base = 0;
        std::uint64_t m_hits = 0;
        std::uint64_t m_scannedTo = 0;    ///< bytes of the file
        std::uint64_t m_statedLength = 0; ///< what the file said before the last part was read
        bool m_isAtEnd = false;
        bool m_hasFailed = false;
        std::size_t m_places = 0;
    };
    /// With the last line, also where it has no end yet.
    Totals GetTotals() const;

    static constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();

    /// Calls `each` with the places of hits from one on, as long as it returns true.
    void ForEachHit(std::uint64_t first, const std::function<bool(const LinePlace&)>& each) const;
    /// The number of hits before a line, or before the line of a number among the base.
    std::uint64_t CountBeforeLine(std::uint64_t line) const { return CountBefore(&LinePlace::m_line, line); }
    std::uint64_t CountBeforeBase(std::uint64_t base) const { return CountBefore(&LinePlace::m_base, base); }
    /// Whether each of so many equal parts of the base holds a hit, as far as scanned; parts of large files nearly. Folded away
    /// is what has no place of its own among the parts.
    std::vector<bool> FindParts(std::size_t parts, const RowFolds& folds = {}) const;

    const std::shared_ptr<const TextFile>& GetFile() const noexcept { return m_file; }
    const LineMatcher& GetFind() const noexcept { return m_find; }

private:
    struct Test
    {
        bool m_isBase;
        bool m_isHit;
    };
    struct Span
    {
        LinePlace m_from;
        LinePlace m_to;
        bool m_isTail = false; ///< the last line, which has no end
        bool m_isValid = false;
    };
    using Key = std::uint64_t LinePlace::*;

    /// Bytes of whole lines, and where they may match.
    struct Lines
    {
        Lines(const LineScan& scan, const char* bytes, std::size_t size);
        const char* m_bytes;
        std::size_t m_size;
        ByteSearch::Block m_base;
        ByteSearch::Block m_find;
    };
    Test TestLine(Lines& lines, std::size_t offset, std::size_t size) const;
    std::size_t SkipLines(Lines& lines, std::size_t offset);
    void TestStart(const char* bytes, std::size_t size);
    void TestInside(const char* bytes, std::size_t size);
    void CountLine(Test test, std::uint64_t next);
    std::size_t CountLines(const char* bytes, std::size_t size);
    void AdvanceInLongLine(std::size_t size, bool isAtEnd);
    void AdvanceByLines(std::size_t size, bool isAtEnd);
    /// Where the next piece of a long line starts, in this one.
    std::size_t NextPiece(std::size_t size) const noexcept;
    void Publish(const Totals& totals);
    void ThinOut() X_REQUIRES(m_lock);

    Span FindSpan(Key key, std::uint64_t value) const;
    void WalkSpan(const Span& span, const std::function<bool(const LinePlace&, Test)>& each) const;
    std::uint64_t CountBefore(Key key, std::uint64_t value) const;

    const std::shared_ptr<const TextFile> m_file;
    const LineMatcher m_base;
    const LineMatcher m_find;
    const bool m_matchesAll;
    const bool m_hasPlainEnds; // each LF ends a line, nothing else does
    const ByteSearch m_baseSearch;
    const ByteSearch m_findSearch;

    // Of the thread that advances.
    std::vector<char> m_buffer;
    LinePlace m_place;            // the first line that has not been counted
    std::uint64_t m_longAt = 0;   // where the next piece of a long line starts; 0 in none
    Test m_pending{false, false}; // of the line at m_place, as far as it was seen
    bool m_pendingFind = false;
    bool m_hasTail = false;
    std::uint64_t m_distance; // between two places, at least
    std::uint64_t m_nextPlace = 0;
    std::uint64_t m_hitCount = 0; // of the first hits
    std::vector<LinePlace> m_newPlaces;
    std::vector<std::uint64_t> m_newHits;

    mutable CXCriticalSection m_lock;
    std::vector<LinePlace> m_places X_GUARDED_BY(m_lock);
    std::vector<std::uint64_t> m_firstHits X_GUARDED_BY(m_lock); // the first hits' numbers among the base
    LinePlace m_end X_GUARDED_BY(m_lock);
    Test m_tail X_GUARDED_BY(m_lock){false, false};
    bool m_tailIsThere X_GUARDED_BY(m_lock) = false;
    Totals m_state X_GUARDED_BY(m_lock); // without the counts
};
