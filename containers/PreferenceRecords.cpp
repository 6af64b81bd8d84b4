// Where the records of a preference file begin and end. A sound file is one record behind the other. Where one cannot be
// read, its total still tells where the next one begins, if a signature stands there. Else the next place is looked for at
// which a sound record begins, byte by byte: signature first, and then the whole store.

#include "containers/PreferenceRecords.h"

#include "containers/CCustomData.h"
#include "core/LittleEndian.h"

#include <algorithm>

namespace tev
{
namespace
{
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kCountSize = 4;
constexpr std::size_t kKeysSize = 8;
constexpr std::size_t kStartSize = 8; // signature, and total, size or number of records
constexpr std::size_t kOldRecordHeader = 8;
constexpr unsigned kUnicodeSignature = 0x43555355;
constexpr unsigned kTextSignature = 0x43555354;
constexpr unsigned kSignatures[] = {0x43555335, 0x43555334, kUnicodeSignature, kTextSignature};
// How often over a damaged file may be read in search of sound records: enough for any damage, and an end for files that
// were made to take long.
constexpr std::size_t kSearchFactor = 16;

unsigned NumberAt(const Bytes& file, std::size_t at)
{
    return LoadLittleEndian<unsigned>(file.data() + at);
}

/// Whether keys and the signature of a store may stand here.
bool IsStart(const Bytes& file, std::size_t at)
{
    return at <= file.size() && file.size() - at >= kKeysSize + kStartSize &&
           std::find(std::begin(kSignatures), std::end(kSignatures), NumberAt(file, at + kKeysSize)) !=
               std::end(kSignatures);
}

std::size_t OldRecordsSize(const Bytes& file, std::size_t at, unsigned count)
{
    const std::size_t start = at;
    for (; count != 0; --count)
    {
        if (file.size() - at < kOldRecordHeader)
            return file.size();
        const std::size_t size = NumberAt(file, at + 4);
        if (size > file.size() - at - kOldRecordHeader)
            return file.size();
        at += kOldRecordHeader + size;
    }
    return at - start;
}

/// The size that the record at a start claims, keys included; it may reach past the end of the file.
std::size_t ClaimedSize(const Bytes& file, std::size_t at)
{
    const unsigned total = NumberAt(file, at + kKeysSize + 4);
    const std::size_t head = kKeysSize + kStartSize;
    const bool isCounted = NumberAt(file, at + kKeysSize) == kTextSignature;
    return head + (isCounted ? OldRecordsSize(file, at + head, total) : total);
}

class Splitter
{
public:
    explicit Splitter(const Bytes& file) : m_file(file), m_left(kSearchFactor * file.size()) {}

    /// Calls `visit` for each record, until that answers false. False when what was read is damaged.
    template <class Visit>
    bool Walk(Visit visit)
    {
        bool isSound = m_file.size() >= kCountSize;
        unsigned count = 0;
        CCustomData store;
        for (std::size_t at = kCountSize; at < m_file.size(); ++count)
        {
            XPreferenceRecord record;
            if (!ReadRecord(at, record, store))
            {
                isSound = false;
                record = Damaged(at, NextStart(at));
            }
            if (!visit(record, store))
                return isSound;
            at += static_cast<std::size_t>(record.m_size);
        }
        return isSound && NumberAt(m_file, 0) == count;
    }

private:
    bool ReadRecord(std::size_t at, XPreferenceRecord& record, CCustomData& store) const
    {
        if (!IsStart(m_file, at))
            return false;
        const std::size_t size = ClaimedSize(m_file, at);
        if (size > m_file.size() - at || !store.SerializeFromData(m_file.data() + at + kKeysSize, size - kKeysSize))
            return false;
        record.m_key1 = NumberAt(m_file, at);
        record.m_key2 = NumberAt(m_file, at + 4);
        record.m_offset = at;
        record.m_size = size;
        record.m_valueCount = store.GetIDCount();
        record.m_isSound = true;
        return true;
    }

    XPreferenceRecord Damaged(std::size_t at, std::size_t end) const
    {
        XPreferenceRecord record;
        record.m_offset = at;
        record.m_size = end - at;
        if (record.m_size >= kKeysSize)
        {
            record.m_key1 = NumberAt(m_file, at);
            record.m_key2 = NumberAt(m_file, at + 4);
        }
        return record;
    }

    /// The next start behind the damaged record at `at`, or the end of the file.
    std::size_t NextStart(std::size_t at)
    {
        if (IsStart(m_file, at))
        {
            const std::size_t size = ClaimedSize(m_file, at);
            if (size == m_file.size() - at || IsStart(m_file, at + size))
                return at + size;
        }
        XPreferenceRecord found;
        CCustomData store;
        for (std::size_t next = at + 1; next < m_file.size(); ++next)
        {
            if (!IsStart(m_file, next))
                continue;
            const std::size_t size = std::min(ClaimedSize(m_file, next), m_file.size() - next);
            if (size > m_left)
                break;
            m_left -= size;
            if (ReadRecord(next, found, store))
                return next;
        }
        return m_file.size();
    }

    const Bytes& m_file;
    std::size_t m_left;
};
} // namespace

// A file that is there and empty has no records, as if it was not there.

bool SplitPreferences(const std::vector<unsigned char>& file, std::vector<XPreferenceRecord>& records)
{
    records.clear();
    const auto add = [&records](const XPreferenceRecord& record, CCustomData&) {
        records.push_back(record);
        return true;
    };
    return file.empty() || Splitter(file).Walk(add);
}

bool FindPreference(const std::vector<unsigned char>& file, unsigned key1, unsigned key2, XPreferenceRecord& record,
                    CCustomData& store)
{
    record = {};
    if (file.empty())
        return true;
    return Splitter(file).Walk([&](const XPreferenceRecord& next, CCustomData& data) {
        if (!next.m_isSound || next.m_key1 != key1 || next.m_key2 != key2)
            return true;
        record = next;
        store = data;
        return false;
    });
}
} // namespace tev
