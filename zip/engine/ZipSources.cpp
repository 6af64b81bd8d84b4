#include "zip/engine/ZipSources.h"

#include "base/LittleEndian.h"
#include "platform/Cancellation.h"
#include "platform/ForcedUnwind.h"
#include "zip/engine/ZipRecords.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>

namespace tev::platform
{
namespace
{
constexpr std::size_t kSourceBlockSize = 128 * 1024;
constexpr unsigned char kEmptyArchive[22] = {'P', 'K', 5, 6};
constexpr std::uint64_t kSmallestCopy = 1024 * 1024;   // of less, copying is no matter
constexpr std::uint32_t kOffsetElsewhere = 0xFFFFFFFF; // in a field of 64 bits
} // namespace

bool ZipSaving::Advance(std::uint64_t count)
{
    m_processed = std::min(m_processed + count, m_total);
    return Report();
}

bool ZipSaving::Finish()
{
    m_processed = m_total;
    return Report();
}

bool ZipSaving::Report()
{
    if (m_isCancelled || !m_progress)
        return !m_isCancelled;
    const platform::WithoutCancellation whole; // which would leave the engine's memory behind
    try
    {
        m_isCancelled = !m_progress(m_processed);
    }
    catch (const ForcedUnwind&)
    {
        throw;
    }
    catch (...)
    {
        m_failure = std::current_exception();
        m_isCancelled = true;
    }
    return !m_isCancelled;
}

void ZipSaving::RethrowFailure() const
{
    if (m_failure)
        std::rethrow_exception(m_failure);
}

ZipSource::ZipSource() : m_error()
{
    zip_error_init(&m_error);
}

ZipSource::~ZipSource()
{
    zip_error_fini(&m_error);
}

OwnedZipSource ZipSource::Make()
{
    OwnedZipSource source(zip_source_function_create(Answer, this, nullptr));
    if (source == nullptr)
        throw std::bad_alloc();
    return source;
}

zip_int64_t ZipSource::Fail(int zipError, int errnoValue)
{
    if (errnoValue != 0 && m_systemFailure == 0)
        m_systemFailure = errnoValue;
    zip_error_set(&m_error, zipError, errnoValue);
    return -1;
}

zip_int64_t ZipSource::FailSystem(int zipError)
{
    return Fail(zipError, errno != 0 ? errno : EIO);
}

zip_int64_t ZipSource::Write(const void*, zip_uint64_t, zip_source_cmd_t)
{
    return Fail(ZIP_ER_OPNOTSUPP);
}

zip_int64_t ZipSource::Attributes(zip_file_attributes_t&)
{
    return Fail(ZIP_ER_OPNOTSUPP);
}

zip_int64_t ZipSource::Read(void* buffer, zip_uint64_t count)
{
    if (m_bytes == nullptr)
        return Fail(ZIP_ER_READ);
    const auto wanted = static_cast<std::size_t>(std::min<zip_uint64_t>(count, std::numeric_limits<int>::max()));
    const zip_int64_t delivered = ReadThroughBlock(static_cast<char*>(buffer), wanted);
    if (delivered < 0)
        return delivered;
    m_position += static_cast<std::uint64_t>(delivered);
    if (m_saving != nullptr && !m_saving->Advance(static_cast<std::uint64_t>(delivered)))
        return Fail(ZIP_ER_CANCELLED);
    return delivered;
}

zip_int64_t ZipSource::ReadThroughBlock(char* buffer, std::size_t count)
{
    const bool isInBlock = m_position >= m_blockStart && m_position - m_blockStart < m_block.size();
    std::size_t delivered = 0;
    if (!isInBlock && count >= kSourceBlockSize)
    {
        if (!m_bytes->ReadAt(m_position, buffer, count, delivered))
            return FailSystem(ZIP_ER_READ);
        return static_cast<zip_int64_t>(delivered);
    }
    if (!isInBlock)
    {
        const std::uint64_t left = m_bytes->Size() - std::min(m_position, m_bytes->Size());
        m_block.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kSourceBlockSize, left)));
        const bool isRead = m_bytes->ReadAt(m_position, m_block.data(), m_block.size(), delivered);
        m_block.resize(isRead ? delivered : 0);
        m_blockStart = m_position;
        if (!isRead)
            return FailSystem(ZIP_ER_READ);
    }
    const auto at = static_cast<std::size_t>(m_position - m_blockStart);
    const std::size_t given = std::min(count, m_block.size() - at);
    std::copy_n(m_block.data() + at, given, buffer); // at the end there are none
    return static_cast<zip_int64_t>(given);
}

zip_int64_t ZipSource::Answer(void* object, void* data, zip_uint64_t size, zip_source_cmd_t command)
{
    auto& self = *static_cast<ZipSource*>(object);
    try
    {
        switch (command)
        {
        case ZIP_SOURCE_OPEN:
            self.m_position = 0;
            self.m_block.clear();
            return self.Open();
        case ZIP_SOURCE_READ:
            return self.Read(data, size);
        case ZIP_SOURCE_CLOSE:
            self.m_block = {}; // an archive may have as many sources as entries
            self.Close();
            return 0;
        case ZIP_SOURCE_STAT:
            zip_stat_init(static_cast<zip_stat_t*>(data));
            return self.Stat(*static_cast<zip_stat_t*>(data)) < 0 ? -1 : sizeof(zip_stat_t);
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&self.m_error, data, size);
        case ZIP_SOURCE_FREE:
            self.Freed();
            return 0;
        case ZIP_SOURCE_GET_FILE_ATTRIBUTES:
            return self.Attributes(*static_cast<zip_file_attributes_t*>(data));
        case ZIP_SOURCE_SEEK: {
            const std::uint64_t length = self.m_bytes != nullptr ? self.m_bytes->Size() : 0;
            const zip_int64_t position =
                zip_source_seek_compute_offset(self.m_position, length, data, size, &self.m_error);
            if (position < 0)
                return -1;
            self.m_position = static_cast<std::uint64_t>(position);
            return 0;
        }
        case ZIP_SOURCE_TELL:
            return static_cast<zip_int64_t>(self.m_position);
        case ZIP_SOURCE_SUPPORTS:
            return self.Supported();
        default:
            return self.Write(data, size, command);
        }
    }
    catch (const ForcedUnwind&)
    {
        throw;
    }
    catch (...) // no memory, whatever the process makes of that
    {
        return self.Fail(ZIP_ER_MEMORY, ENOMEM);
    }
}

ZipArchiveSource::ZipArchiveSource(std::unique_ptr<ZipBytes> bytes) : m_archive(std::move(bytes))
{
    m_bytes = m_archive.get();
}

zip_int64_t ZipArchiveSource::Supported() const
{
    return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                          ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                                          ZIP_SOURCE_SUPPORTS, ZIP_SOURCE_BEGIN_WRITE, ZIP_SOURCE_BEGIN_WRITE_CLONING,
                                          ZIP_SOURCE_COMMIT_WRITE, ZIP_SOURCE_ROLLBACK_WRITE, ZIP_SOURCE_WRITE,
                                          ZIP_SOURCE_SEEK_WRITE, ZIP_SOURCE_TELL_WRITE, ZIP_SOURCE_REMOVE, -1);
}

zip_int64_t ZipArchiveSource::Open()
{
    return m_archive != nullptr ? 0 : Fail(ZIP_ER_OPEN);
}

zip_int64_t ZipArchiveSource::Stat(zip_stat_t& status)
{
    if (m_archive == nullptr)
    {
        zip_error_set(&m_error, ZIP_ER_READ, ENOENT); // the way to say that there is none yet
        return -1;
    }
    status.size = m_archive->Size();
    status.valid |= ZIP_STAT_SIZE;
    return 0;
}

zip_int64_t ZipArchiveSource::Write(const void* bytes, zip_uint64_t count, zip_source_cmd_t command)
{
    if (m_target == nullptr)
        return Fail(ZIP_ER_RDONLY);
    switch (command)
    {
    case ZIP_SOURCE_BEGIN_WRITE:
        m_writePosition = m_writtenSize = 0;
        m_isCompleted = false;
        m_aesEntries.clear();
        return m_target->Begin() ? 0 : FailSystem(ZIP_ER_TMPOPEN);
    case ZIP_SOURCE_BEGIN_WRITE_CLONING:
        return BeginWithStart(count);
    case ZIP_SOURCE_WRITE:
        return Append(bytes, count);
    case ZIP_SOURCE_SEEK_WRITE: {
        void* const where = const_cast<void*>(bytes); // libzip's arguments come as `void*`; they are only read
        const zip_int64_t position =
            zip_source_seek_compute_offset(m_writePosition, m_writtenSize, where, count, &m_error);
        if (position < 0)
            return -1;
        m_writePosition = static_cast<std::uint64_t>(position);
        m_isCompleted = m_writePosition < m_writtenSize;
        return 0;
    }
    case ZIP_SOURCE_TELL_WRITE:
        return static_cast<zip_int64_t>(m_writePosition);
    case ZIP_SOURCE_COMMIT_WRITE:
        return Commit();
    case ZIP_SOURCE_ROLLBACK_WRITE:
        return 0; // what is not committed, the target drops
    case ZIP_SOURCE_REMOVE:
        return WriteEmptyArchive();
    default:
        return Fail(ZIP_ER_OPNOTSUPP);
    }
}

/// Entries that stay as they are at the start of the archive. Where it fails, libzip copies them one by one.
zip_int64_t ZipArchiveSource::BeginWithStart(std::uint64_t size)
{
    m_isCompleted = false;
    m_aesEntries.clear();
    const auto advance = [this](std::uint64_t count) { return m_saving == nullptr || m_saving->Advance(count); };
    if (size < kSmallestCopy || !m_target->BeginWithStart(size, advance))
        return Fail(ZIP_ER_OPNOTSUPP);
    m_writePosition = m_writtenSize = size;
    return 0;
}

zip_int64_t ZipArchiveSource::Append(const void* bytes, zip_uint64_t count)
{
    unsigned char header[kZipHeaderSize];
    const auto size = static_cast<std::size_t>(count);
    const bool mayBeHeader = size == (m_isCompleted ? kZipLocalHeaderSize : kZipHeaderSize);
    if (mayBeHeader)
        bytes = DropAesChecksum(std::memcpy(header, bytes, size), size);
    m_isCompleted = false;
    if (!m_target->WriteAt(m_writePosition, bytes, size))
        return FailSystem(ZIP_ER_WRITE);
    m_writePosition += count;
    m_writtenSize = std::max(m_writtenSize, m_writePosition);
    return static_cast<zip_int64_t>(count);
}

/// WinZip's second form of AES has a code of authentication in place of the checksum, by which small contents could be
/// guessed. libzip writes that form's mark and the checksum all the same.
const void* ZipArchiveSource::DropAesChecksum(void* header, std::size_t size)
{
    const bool isLocal = size == kZipLocalHeaderSize;
    const auto* const fields = static_cast<const unsigned char*>(header);
    unsigned char* const checksum = static_cast<unsigned char*>(header) + (isLocal ? 14 : 16);
    const auto value = LoadLittleEndian<std::uint32_t>(checksum);
    if (LoadLittleEndian<std::uint32_t>(fields) != (isLocal ? kZipLocalMark : kZipHeaderMark) ||
        LoadLittleEndian<std::uint16_t>(fields + (isLocal ? 8 : 10)) != kZipAesMethod)
        return header;
    if (isLocal)
    {
        m_aesEntries[m_writePosition] = value;
    }
    else
    {
        const auto offset = LoadLittleEndian<std::uint32_t>(fields + 42);
        const auto isEntry = [&](const auto& entry) {
            return entry.second == value && (offset == kOffsetElsewhere || entry.first == offset);
        };
        if (std::none_of(m_aesEntries.begin(), m_aesEntries.end(), isEntry))
            return header; // kept as it was
    }
    std::memset(checksum, 0, sizeof value);
    return header;
}

// libzip removes an archive whose last entry goes; its owner expects one that is empty.
zip_int64_t ZipArchiveSource::WriteEmptyArchive()
{
    const bool isWritten = m_target->Begin() && m_target->WriteAt(0, kEmptyArchive, sizeof kEmptyArchive);
    return isWritten ? Commit() : FailSystem(ZIP_ER_WRITE);
}

zip_int64_t ZipArchiveSource::Commit()
{
    if (m_saving != nullptr && !m_saving->Finish())
        return Fail(ZIP_ER_CANCELLED);
    return m_target->Commit() ? 0 : FailSystem(ZIP_ER_CLOSE);
}

zip_int64_t ZipAdditionSource::Supported() const
{
    return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                          ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SUPPORTS, -1);
}

zip_int64_t ZipAdditionSource::Open()
{
    m_opened = m_open();
    m_bytes = m_opened.get();
    if (m_opened == nullptr)
        return FailSystem(ZIP_ER_OPEN);
    m_size = m_opened->Size();
    return 0;
}

void ZipAdditionSource::Close()
{
    m_bytes = nullptr;
    m_opened.reset();
}

zip_int64_t ZipAdditionSource::Stat(zip_stat_t& status)
{
    status.size = m_size;
    status.mtime = m_modified; // traditional encryption checks the password by it
    status.valid |= ZIP_STAT_SIZE | ZIP_STAT_MTIME;
    return 0;
}
} // namespace tev::platform
