#include "qt/log/LineScan.h"

#include "objects/CXCriticalSection.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace
{
constexpr std::size_t kChunk = 256 * 1024;
constexpr std::size_t kWalkChunk = 64 * 1024;
constexpr std::uint64_t kFirstDistance = 4096;
constexpr std::uint64_t kFirstHits = 16384; // whose numbers are kept
constexpr std::size_t kWidestCharacter = 4;
} // namespace

LineScan::LineScan(std::shared_ptr<const TextFile> file, LineMatcher base, LineMatcher find)
    : m_file(std::move(file)),
      m_base(std::move(base)),
      m_find(std::move(find)),
      m_matchesAll(m_base.MatchesAll() && m_find.MatchesAll()),
      m_hasPlainEnds(m_file->GetForm().UnitSize() == 1 && !m_file->GetForm().m_returnsEndLines),
      m_baseSearch(m_base, m_file->GetForm()),
      m_findSearch(m_find, m_file->GetForm()),
      m_buffer(kChunk),
      m_distance(kFirstDistance)
{
    m_place.m_position = m_file->GetForm().m_markSize;
    m_end = m_place;
}

LineScan::Lines::Lines(const LineScan& scan, const char* bytes, std::size_t size)
    : m_bytes(bytes), m_size(size), m_base(scan.m_baseSearch, bytes, size), m_find(scan.m_findSearch, bytes, size)
{
}

LineScan::Test LineScan::TestLine(Lines& lines, std::size_t offset, std::size_t size) const
{
    QString text;
    const auto matches = [&](ByteSearch::Block& block, const LineMatcher& matcher) {
        const bool mayMatch = block.MayMatch(offset, size);
        if (!mayMatch || block.IsSure())
            return mayMatch;
        // A prefix has characters of one unit only.
        const auto seen = static_cast<std::size_t>(matcher.SeenCharacters()) * m_file->GetForm().UnitSize();
        text.clear();
        m_file->GetForm().Decode(lines.m_bytes + offset, std::min(size, seen), text);
        return matcher.Matches(text);
    };
    const bool isBase = matches(lines.m_base, m_base);
    return {isBase, isBase && matches(lines.m_find, m_find)};
}

// Most patterns occur in few lines, and places are far apart: what is between them is only counted.
std::size_t LineScan::SkipLines(Lines& lines, std::size_t offset)
{
    const std::uint64_t untilPlace = m_nextPlace - std::min(m_nextPlace, m_place.m_position);
    if (!m_hasPlainEnds || untilPlace == 0 || (m_matchesAll && m_hitCount < kFirstHits))
        return offset;
    const bool isBase = m_base.MatchesAll();
    std::size_t end = lines.m_size;
    if (!m_matchesAll)
        end = isBase ? lines.m_find.Next(offset) : lines.m_base.Next(offset);
    end = static_cast<std::size_t>(std::min<std::uint64_t>(end, offset + untilPlace));
    std::uint64_t count = 0;
    const std::size_t start = offset;
    while (const void* const feed = std::memchr(lines.m_bytes + offset, '\n', end - offset))
    {
        offset = static_cast<std::size_t>(static_cast<const char*>(feed) - lines.m_bytes) + 1;
        ++count;
    }
    m_place.m_position += offset - start;
    m_place.m_line += count;
    m_place.m_base += isBase ? count : 0;
    m_place.m_hit += m_matchesAll ? count : 0;
    return offset;
}

void LineScan::TestStart(const char* bytes, std::size_t size)
{
    QString text;
    if (!m_matchesAll)
        m_file->GetForm().Decode(bytes, size, text);
    m_pending.m_isBase = m_base.Matches(text);
    m_pendingFind = m_find.Matches(text);
    m_pending.m_isHit = m_pending.m_isBase && m_pendingFind;
}

void LineScan::TestInside(const char* bytes, std::size_t size)
{
    if (m_matchesAll || (m_pending.m_isBase && m_pending.m_isHit))
        return;
    QString text;
    m_file->GetForm().Decode(bytes, size, text);
    m_pending.m_isBase = m_pending.m_isBase || m_base.MatchesInside(text);
    m_pendingFind = m_pendingFind || m_find.MatchesInside(text);
    m_pending.m_isHit = m_pending.m_isBase && m_pendingFind;
}

void LineScan::CountLine(Test test, std::uint64_t next)
{
    if (m_place.m_position >= m_nextPlace)
    {
        m_newPlaces.push_back(m_place);
        m_nextPlace = m_place.m_position + m_distance;
    }
    if (test.m_isHit && m_hitCount < kFirstHits)
    {
        m_newHits.push_back(m_place.m_base);
        ++m_hitCount;
    }
    m_place.m_position = next;
    ++m_place.m_line;
    m_place.m_base += test.m_isBase ? 1 : 0;
    m_place.m_hit += test.m_isHit ? 1 : 0;
}

std::size_t LineScan::CountLines(const char* bytes, std::size_t size)
{
    const std::uint64_t start = m_place.m_position;
    Lines lines(*this, bytes, size);
    LineBytes line{};
    for (std::size_t offset = SkipLines(lines, 0); FindLine(bytes, size, offset, m_file->GetForm(), line);
         offset = SkipLines(lines, line.m_next))
        CountLine(TestLine(lines, offset, line.m_size), start + line.m_next);
    return static_cast<std::size_t>(m_place.m_position - start);
}

std::size_t LineScan::NextPiece(std::size_t size) const noexcept
{
    const std::size_t unit = m_file->GetForm().UnitSize();
    const qsizetype longest = std::max(m_base.GetPattern().m_text.size(), m_find.GetPattern().m_text.size());
    const std::size_t overlap = (static_cast<std::size_t>(longest) + 2) * kWidestCharacter;
    return size - size % unit - std::min(overlap, kChunk / 2);
}

void LineScan::AdvanceInLongLine(std::size_t size, bool isAtEnd)
{
    LineBytes line{};
    const bool hasEnd = FindLine(m_buffer.data(), size, 0, m_file->GetForm(), line);
    TestInside(m_buffer.data(), hasEnd ? line.m_size : size);
    m_hasTail = !hasEnd;
    if (hasEnd)
    {
        CountLine(m_pending, m_longAt + line.m_next);
        m_longAt = 0;
    }
    else if (!isAtEnd)
        m_longAt += NextPiece(size);
}

void LineScan::AdvanceByLines(std::size_t size, bool isAtEnd)
{
    const std::size_t counted = CountLines(m_buffer.data(), size);
    const bool isLong = counted == 0 && !isAtEnd;
    m_hasTail = isLong || (isAtEnd && counted < size);
    if (!m_hasTail)
        return;
    const TextForm& form = m_file->GetForm();
    const char* const bytes = m_buffer.data() + counted;
    size -= counted;
    const std::size_t unit = form.UnitSize();
    const bool endsWithReturn = size >= unit && size % unit == 0 && form.IsUnit(bytes + size - unit, '\r');
    TestStart(bytes, endsWithReturn ? size - unit : size);
    if (isLong)
        m_longAt = m_place.m_position + NextPiece(size);
}

bool LineScan::Advance()
{
    Totals totals;
    totals.m_statedLength = m_file->GetLength();
    const std::uint64_t start = m_longAt != 0 ? m_longAt : m_place.m_position;
    const std::size_t size = m_file->Read(start, m_buffer.data(), kChunk, totals.m_hasFailed);
    const bool isAtEnd = size < kChunk;
    if (m_longAt != 0)
        AdvanceInLongLine(size, isAtEnd);
    else
        AdvanceByLines(size, isAtEnd);
    const std::uint64_t counted = m_longAt != 0 ? m_longAt : m_place.m_position;
    totals.m_isAtEnd = isAtEnd && (m_hasTail || m_place.m_position >= start + size);
    totals.m_scannedTo = totals.m_isAtEnd ? start + size : counted;
    Publish(totals);
    return !totals.m_isAtEnd && !totals.m_hasFailed;
}

void LineScan::Publish(const Totals& totals)
{
    const tev::LockGuard guard(m_lock);
    m_places.insert(m_places.end(), m_newPlaces.begin(), m_newPlaces.end());
    m_firstHits.insert(m_firstHits.end(), m_newHits.begin(), m_newHits.end());
    m_newPlaces.clear();
    m_newHits.clear();
    while (m_places.size() > kMaximumPlaces)
        ThinOut();
    m_end = m_place;
    m_tail = m_pending;
    m_tailIsThere = m_hasTail;
    m_state = totals;
}

// The place behind a long line is far from the one before it, and stays.
void LineScan::ThinOut()
{
    m_distance *= 2;
    std::uint64_t next = 0;
    const auto isTooNear = [&](const LinePlace& place) {
        if (place.m_position < next)
            return true;
        next = place.m_position + m_distance;
        return false;
    };
    m_places.erase(std::remove_if(m_places.begin(), m_places.end(), isTooNear), m_places.end());
    m_nextPlace = next;
}

LineScan::Totals LineScan::GetTotals() const
{
    const tev::LockGuard guard(m_lock);
    Totals totals = m_state;
    totals.m_lines = m_end.m_line + (m_tailIsThere ? 1 : 0);
    totals.m_base = m_end.m_base + (m_tailIsThere && m_tail.m_isBase ? 1 : 0);
    totals.m_hits = m_end.m_hit + (m_tailIsThere && m_tail.m_isHit ? 1 : 0);
    totals.m_places = m_places.size();
    return totals;
}

LineScan::Span LineScan::FindSpan(Key key, std::uint64_t value) const
{
    const tev::LockGuard guard(m_lock);
    Span span;
    span.m_to = m_end;
    span.m_isValid = true;
    if (value >= m_end.*key)
    {
        span.m_from = m_end;
        span.m_isTail = m_tailIsThere && (key != &LinePlace::m_hit || m_tail.m_isHit) && value == m_end.*key;
        span.m_isValid = span.m_isTail;
        return span;
    }
    auto next = std::upper_bound(m_places.begin(), m_places.end(), value,
                                 [key](std::uint64_t number, const LinePlace& place) { return number < place.*key; });
    span.m_from = next[-1];
    if (next != m_places.end())
        span.m_to = *next;
    return span;
}

void LineScan::WalkSpan(const Span& span, const std::function<bool(const LinePlace&, Test)>& each) const
{
    const TextForm& form = m_file->GetForm();
    std::vector<char> bytes;
    std::optional<Lines> lines;
    std::size_t offset = 0;
    LinePlace place = span.m_from;
    // What the last line is follows from the numbers: it may be too long to be read.
    for (; place.m_line + 1 < span.m_to.m_line;)
    {
        LineBytes line{};
        if (!FindLine(bytes.data(), bytes.size(), offset, form, line))
        {
            const std::size_t size = std::max(kWalkChunk, (bytes.size() - offset) * 2);
            bool failed = false;
            bytes.resize(size);
            bytes.resize(m_file->Read(place.m_position, bytes.data(), size, failed));
            offset = 0;
            if (!FindLine(bytes.data(), bytes.size(), 0, form, line) && bytes.size() < size)
                return; // cut meanwhile
            lines.emplace(*this, bytes.data(), bytes.size());
            continue;
        }
        const Test test = TestLine(*lines, offset, line.m_size);
        if (!each(place, test))
            return;
        place.m_position += line.m_next - offset;
        ++place.m_line;
        place.m_base += test.m_isBase ? 1 : 0;
        place.m_hit += test.m_isHit ? 1 : 0;
        offset = line.m_next;
    }
    if (place.m_line < span.m_to.m_line)
        each(place, {span.m_to.m_base > place.m_base, span.m_to.m_hit > place.m_hit});
}

void LineScan::ForEachHit(std::uint64_t first, const std::function<bool(const LinePlace&)>& each) const
{
    bool goesOn = true;
    for (std::uint64_t next = first; goesOn;)
    {
        const Span span = FindSpan(&LinePlace::m_hit, next);
        if (!span.m_isValid)
            return;
        if (span.m_isTail)
        {
            each(span.m_from);
            return;
        }
        const std::uint64_t before = next;
        WalkSpan(span, [&](const LinePlace& place, Test test) {
            if (!test.m_isHit || place.m_hit < next)
                return true;
            next = place.m_hit + 1;
            goesOn = each(place);
            return goesOn;
        });
        goesOn = goesOn && next != before;
    }
}

std::uint64_t LineScan::CountBefore(Key key, std::uint64_t value) const
{
    const Span span = FindSpan(key, value);
    if (!span.m_isValid)
        return GetTotals().m_hits;
    std::uint64_t count = span.m_from.m_hit;
    if (span.m_isTail)
        return count;
    WalkSpan(span, [&](const LinePlace& place, Test test) {
        if (place.*key >= value)
            return false;
        count = place.m_hit + (test.m_isHit ? 1 : 0);
        return true;
    });
    return count;
}

std::vector<bool> LineScan::FindParts(std::size_t parts, const RowFolds& folds) const
{
    std::vector<bool> found(parts);
    const auto shown = static_cast<double>(folds.CountShown(GetTotals().m_base));
    const auto partOf = [&](std::uint64_t base) {
        const double part = static_cast<double>(folds.ToShown(base)) * static_cast<double>(parts) / shown;
        return std::min(static_cast<std::size_t>(part), parts - 1);
    };
    const tev::LockGuard guard(m_lock);
    for (const std::uint64_t base : m_firstHits)
        found[partOf(base)] = true;
    for (std::size_t i = 0; i < m_places.size(); ++i)
    {
        const LinePlace& place = m_places[i];
        const LinePlace& next = i + 1 < m_places.size() ? m_places[i + 1] : m_end;
        if (next.m_hit == place.m_hit || next.m_hit <= m_firstHits.size())
            continue;
        for (std::size_t part = partOf(place.m_base); part <= partOf(next.m_base - 1); ++part)
            found[part] = true;
    }
    if (m_tailIsThere && m_tail.m_isHit)
        found[partOf(m_end.m_base)] = true;
    return found;
}
