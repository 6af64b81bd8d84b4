// Where the records of a preference file begin and end. A sound file is one record behind the other, and a record's total
// leads to the next. Nothing tells the bytes of a record from those of the next one, so a wrong total could swallow its
// neighbours, or a search could take what a value holds for a record. Hence the end of a record is where two of its total,
// its header (number of chunks, bytes in them) and its chunks agree. Only where no two do is the next record searched for,
// signature by signature. Records of the older layouts say their size once. In a damaged file it is believed unless the
// number of records speaks for another reading, in which such a record ends where the next sound one begins.

#include "settings/PreferenceRecords.h"

#include "base/LittleEndian.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tev
{
namespace
{
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kCountSize = 4;
constexpr std::size_t kKeysSize = 8;
constexpr std::size_t kStart = kKeysSize + 8; // signature, and total, size or number of records
constexpr std::size_t kHeaderSize = 20;       // behind them, in a store that is not empty
constexpr std::size_t kChunkHeader = 12;
constexpr std::size_t kOldRecordHeader = 8;
constexpr unsigned kRecordVersion = 1;
constexpr unsigned kSignature = 0x43555335;
constexpr unsigned kEarlierSignature = 0x43555334;
constexpr unsigned kUnicodeSignature = 0x43555355;
constexpr unsigned kTextSignature = 0x43555354;
constexpr unsigned char kSecondOfSignature = 'S'; // of the bytes of all four, and followed by "UC"
// How many bytes of headers may be looked at in vain, in sizes of the file, before what is left of it is damaged as a
// whole: enough for any damage, and an end for files that were made to take long.
constexpr std::uint64_t kVainFactor = 16;

/// What lies at a place where a record should begin.
struct Found
{
    std::size_t size = 0; ///< keys included; 0: unknown
    unsigned values = 0;
    bool isSound = false;
    bool isExact = false; ///< total, header and chunks all agree
    bool isOlder = false; ///< of an older layout
};

struct Walked
{
    std::uint64_t chunks = 0;
    std::uint64_t bytes = 0; ///< in them, without their headers
    bool isComplete = false;
};

class Splitter
{
public:
    /// A strict one does not believe the size of a record of an older layout that holds the start of a sound one, or behind
    /// which there are more values.
    Splitter(const Bytes& file, bool isStrict) : m_file(file), m_isStrict(isStrict), m_left(kVainFactor * file.size())
    {
    }

    /// False when the file is damaged.
    bool Split(std::vector<XPreferenceRecord>& records)
    {
        bool isSound = m_file.size() >= kCountSize;
        for (std::size_t at = kCountSize; at < m_file.size();)
        {
            Found found = FindAt(at);
            m_hasOlder = m_hasOlder || found.isOlder;
            if (found.size == 0 || (found.isOlder && m_isStrict))
                found = EndAtNext(at, found);
            isSound = isSound && found.isSound;
            XPreferenceRecord& record = records.emplace_back();
            record.m_offset = at;
            record.m_size = found.size;
            record.m_valueCount = found.isSound ? found.values : 0;
            record.m_isSound = found.isSound;
            if (found.size >= kKeysSize)
            {
                record.m_key1 = NumberAt(at);
                record.m_key2 = NumberAt(at + 4);
            }
            at += found.size;
        }
        return isSound && NumberAt(0) == records.size();
    }

    /// Whether one of an older layout was among them.
    bool HasOlder() const { return m_hasOlder; }

private:
    unsigned NumberAt(std::size_t at) const { return LoadLittleEndian<unsigned>(m_file.data() + at); }

    /// Whether keys and the signature of a store may stand here.
    bool IsStart(std::size_t at) const
    {
        if (at > m_file.size() || m_file.size() - at < kStart)
            return false;
        const unsigned signature = NumberAt(at + kKeysSize);
        return signature == kSignature || signature == kEarlierSignature || signature == kUnicodeSignature ||
               signature == kTextSignature;
    }

    Found FindAt(std::size_t at)
    {
        const std::size_t room = m_file.size() - at;
        if (m_left == 0 || room < kStart)
            return {};
        const unsigned signature = NumberAt(at + kKeysSize);
        const unsigned total = NumberAt(at + kKeysSize + 4);
        if (signature == kUnicodeSignature || signature == kTextSignature)
            return FindOlder(at, signature == kTextSignature, total);
        const bool isSigned = signature == kSignature || signature == kEarlierSignature;
        Found found;
        // Where a header has the sum of bytes, no signature can stand: files are smaller. The next record follows an empty one,
        // whatever its total is.
        if (IsStart(at + kStart))
            found = {kStart, 0, isSigned && total == 0, false, false};
        else if (room >= kStart + kHeaderSize)
            found = FindCurrent(at, isSigned, total);
        if (found.size == 0 && isSigned && total == 0)
            return {kStart, 0, true, false, false};
        if (!found.isSound)
            Spend(kStart);
        return found;
    }

    Found FindCurrent(std::size_t at, bool isSigned, unsigned total)
    {
        const std::size_t header = at + kStart;
        const std::size_t body = header + kHeaderSize;
        const bool isVersion = NumberAt(header) == kRecordVersion;
        const bool isReadable = isSigned && isVersion;
        const std::uint64_t chunks = NumberAt(header + 4);
        const std::uint64_t bytes = NumberAt(header + 8);
        const std::uint64_t byHeader = kChunkHeader * chunks + bytes;
        const std::uint64_t byTotal = total - std::uint64_t{kHeaderSize};
        const bool fits = total >= kHeaderSize && byTotal <= m_file.size() - body;
        const Walked walked = fits ? Walk(body, body + static_cast<std::size_t>(byTotal), ~0ULL) : Walked();
        const auto sized = [&](std::uint64_t size, bool isSound, bool isExact) {
            const auto end = body + static_cast<std::size_t>(size);
            const bool isUnique = isSound && HasNoRepeats(body, end);
            return Found{end - at, static_cast<unsigned>(walked.chunks), isUnique, isUnique && isExact, false};
        };
        if (fits && byTotal == byHeader && (isSigned || isVersion))
        {
            const bool isExact = isReadable && walked.isComplete && walked.chunks == chunks;
            return sized(byTotal, isExact, isExact);
        }
        // One field of the header is wrong, which loading does not need.
        if (isReadable && walked.isComplete && (walked.chunks == chunks || walked.bytes == bytes))
            return sized(byTotal, true, false);
        if (isVersion && chunks != 0)
        {
            const Walked counted = Walk(body, m_file.size(), chunks);
            if (counted.isComplete && counted.bytes == bytes) // the total is wrong
                return sized(byHeader, false, false);
        }
        if (isReadable && walked.isComplete && EndsRecord(body + static_cast<std::size_t>(byTotal)))
            return sized(byTotal, true, false);
        return {};
    }

    /// Walks that many chunks, or those up to `end`. Complete when none of them runs past it.
    Walked Walk(std::size_t at, std::size_t end, std::uint64_t most, std::size_t header = kChunkHeader)
    {
        Walked walked;
        for (; at < end && walked.chunks < most; ++walked.chunks)
        {
            if (end - at < header || NumberAt(at + 4) > end - at - header)
                break;
            const unsigned size = NumberAt(at + 4);
            walked.bytes += size;
            at += header + size;
        }
        walked.isComplete = most == ~0ULL ? at == end : walked.chunks == most;
        if (!walked.isComplete)
            Spend(walked.chunks * header);
        return walked;
    }

    bool HasNoRepeats(std::size_t at, std::size_t end) const
    {
        std::vector<unsigned> ids;
        for (; at < end; at += kChunkHeader + NumberAt(at + 4))
            ids.push_back(NumberAt(at));
        return IsWithoutRepeats(ids);
    }

    static bool IsWithoutRepeats(std::vector<unsigned>& ids)
    {
        std::sort(ids.begin(), ids.end());
        return std::adjacent_find(ids.begin(), ids.end()) == ids.end();
    }

    // The older layouts say their size in one place only. Records without bytes are no values.
    Found FindOlder(std::size_t at, bool isCounted, unsigned extent)
    {
        std::size_t position = at + kStart;
        if (!isCounted && extent > m_file.size() - position)
            return {};
        const std::size_t end = isCounted ? m_file.size() : position + extent;
        std::vector<unsigned> ids;
        for (unsigned left = extent; isCounted ? left != 0 : position != end; --left)
        {
            const std::size_t room = end - position;
            if (room < kOldRecordHeader || NumberAt(position + 4) > room - kOldRecordHeader)
            {
                Spend(position - at);
                return {};
            }
            if (NumberAt(position + 4) != 0)
                ids.push_back(NumberAt(position));
            position += kOldRecordHeader + NumberAt(position + 4);
        }
        const auto values = static_cast<unsigned>(ids.size());
        return {position - at, values, IsWithoutRepeats(ids), false, true};
    }

    bool EndsRecord(std::size_t at) const { return at == m_file.size() || IsStart(at); }

    /// What lies at a place, as far as it does not reach into the next sound record. Behind the last record may be what
    /// never was part of it.
    Found EndAtNext(std::size_t at, const Found& found)
    {
        const std::size_t end = at + found.size;
        const std::size_t next = NextRecord(at + 1);
        const bool isLast = next == m_file.size();
        const bool isBelieved = found.size != 0 && end <= next &&
                                (EndsRecord(end) || (isLast && !Walk(end, next, ~0ULL, kOldRecordHeader).isComplete));
        return isBelieved ? found : Found{next - at, 0, false, false, found.isOlder};
    }

    /// The next place at which a sound record begins, or the end of the file. What is not exact must be followed by
    /// another start: it may be part of a value.
    std::size_t NextRecord(std::size_t from)
    {
        const unsigned char* const data = m_file.data();
        const std::size_t signature = kKeysSize + 1;
        for (std::size_t at = from; m_left != 0 && at < m_file.size() && m_file.size() - at >= kStart; ++at)
        {
            const void* const next =
                std::memchr(data + at + signature, kSecondOfSignature, m_file.size() - at - signature);
            if (next == nullptr)
                break;
            at = static_cast<std::size_t>(static_cast<const unsigned char*>(next) - data) - signature;
            if (!IsStart(at))
                continue;
            const Found found = FindAt(at);
            if (found.isSound && (found.isExact || EndsRecord(at + found.size)))
                return at;
            Spend(found.size);
        }
        return m_file.size();
    }

    void Spend(std::uint64_t bytes) { m_left -= std::min(bytes, m_left); }

    const Bytes& m_file;
    const bool m_isStrict;
    bool m_hasOlder = false;
    std::uint64_t m_left; ///< bytes that may still be looked at in vain
};
} // namespace

// A file that is there and empty has no records, as if it was not there.
bool SplitPreferences(const std::vector<unsigned char>& file, std::vector<XPreferenceRecord>& records)
{
    records.clear();
    if (file.empty())
        return true;
    Splitter splitter(file, false);
    if (splitter.Split(records))
        return true;
    std::vector<XPreferenceRecord> others;
    if (!splitter.HasOlder() || Splitter(file, true).Split(others))
        return false;
    if (others.size() == LoadLittleEndian<unsigned>(file.data()))
        records.swap(others);
    return false;
}
} // namespace tev
