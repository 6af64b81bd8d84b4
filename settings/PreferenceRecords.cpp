// Where the records of a preference file begin and end. A sound file is one record behind the other. Where one cannot
// be read, its total still tells where the next one begins, if a signature stands there. Else the next place is looked
// for at which a sound record begins, byte by byte: signature first, and then the whole store.

#include "settings/PreferenceRecords.h"

#include "base/LittleEndian.h"
#include "settings/CCustomData.h"

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
// How much of a file may be read in vain, in sizes of the file, before what is left of it is damaged as a whole: enough
// for any damage, and an end for files that were made to take long.
constexpr std::size_t kVainFactor = 16;

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

class Splitter
{
public:
    explicit Splitter(const Bytes& file) : m_file(file), m_left(kVainFactor * file.size()) {}

    /// Calls `visit` for each record, until that answers false; the store of a sound one is in `store` then. False when
    /// what was read is damaged.
    template <class Visit>
    bool Walk(CCustomData& store, Visit visit)
    {
        bool isSound = m_file.size() >= kCountSize;
        unsigned count = 0;
        for (std::size_t at = kCountSize; at < m_file.size(); ++count)
        {
            XPreferenceRecord record;
            const std::size_t size = ClaimedSize(at);
            if (!ReadRecord(at, size, record, store))
            {
                isSound = false;
                record = Damaged(at, NextStart(at, size));
            }
            if (!visit(record))
                return isSound;
            at += static_cast<std::size_t>(record.m_size);
        }
        return isSound && NumberAt(m_file, 0) == count;
    }

private:
    /// The size that the record at a start claims, keys included; it may reach past the end of the file. 0: no start.
    std::size_t ClaimedSize(std::size_t at)
    {
        if (!IsStart(m_file, at))
            return 0;
        const unsigned total = NumberAt(m_file, at + kKeysSize + 4);
        const std::size_t head = kKeysSize + kStartSize;
        const bool isCounted = NumberAt(m_file, at + kKeysSize) == kTextSignature;
        return head + (isCounted ? OldRecordsSize(at + head, total) : total);
    }

    std::size_t OldRecordsSize(std::size_t at, unsigned count)
    {
        const std::size_t start = at;
        for (; count != 0; --count)
        {
            const std::size_t room = m_file.size() - at;
            if (room < kOldRecordHeader || NumberAt(m_file, at + 4) > room - kOldRecordHeader)
            {
                Spend(at - start);
                return m_file.size();
            }
            at += kOldRecordHeader + NumberAt(m_file, at + 4);
        }
        return at - start;
    }

    void Spend(std::size_t bytes) { m_left -= std::min(bytes, m_left); }

    bool ReadRecord(std::size_t at, std::size_t size, XPreferenceRecord& record, CCustomData& store)
    {
        if (size == 0 || size > m_file.size() - at)
            return false;
        if (!store.SerializeFromData(m_file.data() + at + kKeysSize, size - kKeysSize))
        {
            Spend(size);
            return false;
        }
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

    /// The next start behind the damaged record at `at` that claims a size, or the end of the file.
    std::size_t NextStart(std::size_t at, std::size_t size)
    {
        if (size != 0 && size <= m_file.size() - at && (size == m_file.size() - at || IsStart(m_file, at + size)))
            return at + size;
        XPreferenceRecord found;
        CCustomData store;
        for (std::size_t next = at + 1; next < m_file.size() && m_left != 0; ++next)
        {
            if (ReadRecord(next, ClaimedSize(next), found, store))
                return next;
        }
        return m_file.size();
    }

    const Bytes& m_file;
    std::size_t m_left; ///< bytes that may still be read in vain
};
} // namespace

// A file that is there and empty has no records, as if it was not there.

bool SplitPreferences(const std::vector<unsigned char>& file, std::vector<XPreferenceRecord>& records)
{
    records.clear();
    CCustomData store;
    const auto add = [&records](const XPreferenceRecord& record) {
        records.push_back(record);
        return true;
    };
    return file.empty() || Splitter(file).Walk(store, add);
}

bool FindPreference(const std::vector<unsigned char>& file, unsigned key1, unsigned key2, XPreferenceRecord& record,
                    CCustomData& store)
{
    record = {};
    if (file.empty())
        return true;
    return Splitter(file).Walk(store, [&](const XPreferenceRecord& next) {
        if (!next.m_isSound || next.m_key1 != key1 || next.m_key2 != key2)
            return true;
        record = next;
        return false;
    });
}
} // namespace tev
