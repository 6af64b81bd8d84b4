#include "zip/engine/ZipDeflation.h"

#include "platform/Cancellation.h"
#include "threads/WorkPool.h"
#include "threads/WorkerCount.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <zlib.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kBlockSize = 256 * 1024;     // of smaller ones the joints would show in the archive's size
constexpr std::size_t kReadSize = 64 * 1024;       // between two reports of progress
constexpr std::size_t kDictionarySize = 32 * 1024; // how far deflate looks back
constexpr std::size_t kBlocksOfThread = 4;
constexpr unsigned kMostThreads = 16;
constexpr std::size_t kMostBlocks = 256; // of small files
constexpr int kMemoryLevel = 9;
constexpr zip_uint16_t kLevelFlags = 6; // bits of the general purpose flags
constexpr zip_uint8_t kVersionOfDeflate = 20;

/// What deflate can make of so many bytes at most, with the joint.
std::size_t PackedBound(std::size_t size)
{
    return size + size / 8 + size / 64 + 64;
}
} // namespace

struct ZipDeflation::Block
{
    std::size_t m_entry = 0;
    bool m_isFirst = false;
    bool m_isLast = false;
    std::size_t m_windowSize = 0; ///< of the plain bytes, which are only looked back at
    std::vector<unsigned char> m_plain;
    std::vector<unsigned char> m_packed;
    std::size_t m_packedSize = 0;
    std::uint32_t m_checksum = 0;
    bool m_isPacked = false;

    std::size_t PlainSize() const { return m_plain.size() - m_windowSize; }
};

/// One thread's compressor. What it writes to is there before, so that nothing is lost with a thread that is ended.
class ZipDeflation::Packer
{
public:
    Packer() = default;
    ~Packer()
    {
        if (m_level != kNone)
            deflateEnd(&m_stream);
    }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    /// False where memory ran out.
    bool Pack(Block& block, int level)
    {
        if (!Begin(level))
            return false;
        const unsigned char* const plain = block.m_plain.data() + block.m_windowSize;
        if (block.m_windowSize != 0 &&
            deflateSetDictionary(&m_stream, block.m_plain.data(), static_cast<uInt>(block.m_windowSize)) != Z_OK)
            return false;
        m_stream.next_in = const_cast<Bytef*>(plain); // zlib's argument; it is only read
        m_stream.avail_in = static_cast<uInt>(block.PlainSize());
        m_stream.next_out = block.m_packed.data();
        m_stream.avail_out = static_cast<uInt>(block.m_packed.size());
        const int result = deflate(&m_stream, block.m_isLast ? Z_FINISH : Z_FULL_FLUSH);
        if (result != (block.m_isLast ? Z_STREAM_END : Z_OK) || m_stream.avail_in != 0 || m_stream.avail_out == 0)
            return false;
        block.m_packedSize = block.m_packed.size() - m_stream.avail_out;
        block.m_checksum = static_cast<std::uint32_t>(crc32_z(0, plain, block.PlainSize()));
        block.m_isPacked = true;
        return true;
    }

private:
    static constexpr int kNone = -2;

    bool Begin(int level)
    {
        if (level == m_level)
            return deflateReset(&m_stream) == Z_OK;
        if (m_level != kNone)
            deflateEnd(&m_stream);
        m_stream = {};
        const bool isBegun =
            deflateInit2(&m_stream, level, Z_DEFLATED, -MAX_WBITS, kMemoryLevel, Z_DEFAULT_STRATEGY) == Z_OK;
        m_level = isBegun ? level : kNone;
        return isBegun;
    }

    z_stream m_stream = {};
    int m_level = kNone;
};

ZipDeflation::ZipDeflation() = default;

ZipDeflation::~ZipDeflation() = default;

void ZipDeflation::Begin(ZipSaving& saving, std::vector<Entry> entries)
{
    m_saving = &saving;
    m_entries = std::move(entries);
    Forget(0);
}

void ZipDeflation::End() noexcept
{
    m_saving = nullptr;
    m_entries = {};
    m_blocks = {};
    m_bytes.reset();
}

/// Reads on with the first byte of an entry.
void ZipDeflation::Forget(std::size_t entry)
{
    m_blocks.clear();
    m_next = m_delivered = 0;
    m_reading = entry;
    m_bytes.reset();
    m_stopped = Outcome::Done;
}

void ZipDeflation::Start(std::uint64_t slot)
{
    const auto found = std::lower_bound(m_entries.begin(), m_entries.end(), slot,
                                        [](const Entry& entry, std::uint64_t wanted) { return entry.m_slot < wanted; });
    const auto current = static_cast<std::size_t>(found - m_entries.begin());
    m_totals = {};
    m_isAtEnd = false;
    m_delivered = 0;
    const bool isNext = m_next < m_blocks.size()
                            ? m_blocks[m_next].m_entry == current && m_blocks[m_next].m_isFirst
                            : m_reading == current && (m_bytes == nullptr || m_stopped != Outcome::Done);
    if (!isNext)
        Forget(current);
}

ZipDeflation::Outcome ZipDeflation::Read(void* buffer, std::size_t count, std::size_t& delivered)
{
    delivered = 0;
    while (!m_isAtEnd && delivered == 0)
    {
        if (m_next == m_blocks.size() && m_stopped == Outcome::Done)
            ReadAhead();
        if (m_stopped == Outcome::Cancelled || m_next == m_blocks.size())
        {
            errno = m_error;
            return m_stopped;
        }
        Block& block = m_blocks[m_next];
        delivered = std::min(count, block.m_packedSize - m_delivered);
        std::memcpy(buffer, block.m_packed.data() + m_delivered, delivered);
        m_delivered += delivered;
        if (m_delivered < block.m_packedSize)
            continue;
        m_totals.m_checksum = static_cast<std::uint32_t>(
            crc32_combine(m_totals.m_checksum, block.m_checksum, static_cast<z_off_t>(block.PlainSize())));
        m_totals.m_size += block.PlainSize();
        m_isAtEnd = block.m_isLast;
        m_delivered = 0;
        ++m_next;
    }
    return Outcome::Done;
}

/// What all threads can do until the next time.
void ZipDeflation::ReadAhead()
{
    const std::size_t threads = std::clamp(OMPGetMaxThreadCount(), 1U, kMostThreads);
    const std::size_t most = threads * kBlocksOfThread * kBlockSize;
    m_blocks.clear();
    m_next = 0;
    for (std::size_t bytes = 0; bytes < most && m_blocks.size() < kMostBlocks && m_reading < m_entries.size();)
    {
        if (!ReadBlock())
            break;
        bytes += m_blocks.back().m_plain.size();
    }
    PackAll();
}

/// Notes why nothing more is read. Returns false.
bool ZipDeflation::Stop(Outcome reason)
{
    m_error = reason == Outcome::System ? errno : 0;
    m_stopped = reason;
    return false;
}

bool ZipDeflation::OpenNext()
{
    m_bytes = m_entries[m_reading].m_addition->open();
    m_position = 0;
    m_window.clear();
    return m_bytes != nullptr || Stop(Outcome::System);
}

bool ZipDeflation::ReadBlock()
{
    const bool isFirst = m_bytes == nullptr;
    if (isFirst && !OpenNext())
        return false;
    const std::uint64_t left = m_bytes->Size() - std::min(m_position, m_bytes->Size());
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kBlockSize));
    Block block;
    block.m_entry = m_reading;
    block.m_isFirst = isFirst;
    block.m_windowSize = m_window.size();
    block.m_plain.reserve(m_window.size() + wanted);
    block.m_plain = m_window;
    if (!ReadFile(block.m_plain, wanted))
        return false;
    block.m_isLast = block.PlainSize() < wanted || wanted == left;
    block.m_packed.resize(PackedBound(block.PlainSize()));
    const std::vector<unsigned char>& plain = block.m_plain;
    if (block.m_isLast)
    {
        m_bytes.reset();
        ++m_reading;
    }
    else
    {
        m_window.assign(plain.end() - kDictionarySize, plain.end());
    }
    m_blocks.push_back(std::move(block));
    return true;
}

/// Fewer bytes at the end of the file.
bool ZipDeflation::ReadFile(std::vector<unsigned char>& plain, std::size_t count)
{
    std::size_t delivered = 0;
    for (std::size_t wanted = 0; count != 0 && delivered == wanted; count -= delivered)
    {
        wanted = std::min(count, kReadSize);
        const std::size_t before = plain.size();
        plain.resize(before + wanted);
        if (!m_bytes->ReadAt(m_position, plain.data() + before, wanted, delivered))
            return Stop(Outcome::System);
        plain.resize(before + delivered);
        m_position += delivered;
        if (!m_saving->Advance(delivered))
            return Stop(Outcome::Cancelled);
    }
    return true;
}

void ZipDeflation::PackAll()
{
    struct Work
    {
        ZipDeflation& m_self;
        std::atomic<std::size_t> m_next;

        void Run()
        {
            Packer packer;
            for (std::size_t i = m_next++; i < m_self.m_blocks.size(); i = m_next++)
                m_self.PackOne(packer, i);
        }
    };
    if (m_blocks.empty())
        return;
    const WithoutCancellation whole;
    Work work = {*this, {0}};
    const auto workers = static_cast<unsigned>(std::min<std::size_t>(OMPGetMaxThreadCount(), m_blocks.size()));
    static_cast<void>(RunTogether(
        workers, [](void* context) { static_cast<Work*>(context)->Run(); }, &work));
    // What was lost with another thread, or had no memory there.
    Packer packer;
    for (std::size_t i = 0; i < m_blocks.size(); ++i)
    {
        if (!m_blocks[i].m_isPacked && !PackOne(packer, i))
            throw std::bad_alloc();
    }
}

bool ZipDeflation::PackOne(Packer& packer, std::size_t i)
{
    return packer.Pack(m_blocks[i], m_entries[m_blocks[i].m_entry].m_addition->level);
}

zip_int64_t ZipDeflatedSource::Supported() const
{
    return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                          ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_GET_FILE_ATTRIBUTES,
                                          ZIP_SOURCE_SUPPORTS, -1);
}

zip_int64_t ZipDeflatedSource::Open()
{
    m_checksum.reset();
    m_deflation.Start(m_slot);
    return 0;
}

zip_int64_t ZipDeflatedSource::Read(void* buffer, zip_uint64_t count)
{
    std::size_t delivered = 0;
    switch (m_deflation.Read(buffer, static_cast<std::size_t>(count), delivered))
    {
    case ZipDeflation::Outcome::System:
        return FailSystem(ZIP_ER_READ);
    case ZipDeflation::Outcome::Cancelled:
        return Fail(ZIP_ER_CANCELLED);
    default:
        break;
    }
    if (delivered == 0 && count != 0)
    {
        m_checksum = m_deflation.TotalsOfEntry().m_checksum;
        m_size = m_deflation.TotalsOfEntry().m_size;
    }
    return static_cast<zip_int64_t>(delivered);
}

zip_int64_t ZipDeflatedSource::Stat(zip_stat_t& status)
{
    status.size = m_size;
    status.mtime = m_modified;
    status.comp_method = ZIP_CM_DEFLATE;
    status.crc = m_checksum.value_or(0);
    status.valid |= ZIP_STAT_SIZE | ZIP_STAT_MTIME | ZIP_STAT_COMP_METHOD | (m_checksum ? ZIP_STAT_CRC : 0U);
    return 0;
}

/// As libzip has them for what it deflates by itself.
zip_int64_t ZipDeflatedSource::Attributes(zip_file_attributes_t& attributes)
{
    attributes.valid |= ZIP_FILE_ATTRIBUTES_VERSION_NEEDED | ZIP_FILE_ATTRIBUTES_GENERAL_PURPOSE_BIT_FLAGS;
    attributes.version_needed = kVersionOfDeflate;
    attributes.general_purpose_bit_mask = kLevelFlags;
    attributes.general_purpose_bit_flags = static_cast<zip_uint16_t>(m_level < 3 ? 4 : m_level > 7 ? 2 : 0);
    return sizeof attributes;
}
} // namespace tev::platform
