#include "files/CXMemFile.h"

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "text/MessageTexts.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <typeinfo>

namespace
{
constexpr unsigned __int64 kDefaultGrowBytes = 2048;
constexpr unsigned __int64 kLongestLength = 0xFFFFFFFFu;  // SetLength refuses more
constexpr unsigned __int64 kEverythingLeft = 0xFFFFFFFFu; // as the count of bufferRead
constexpr unsigned __int64 kLargest = std::numeric_limits<unsigned __int64>::max();

tev::LibraryLock g_clearing;

bool AddOverflows(unsigned __int64 a, unsigned __int64 b)
{
    return b > kLargest - a;
}

bool PointsInto(const unsigned char* pointer, const unsigned char* block, unsigned __int64 size)
{
    return !std::less<>()(pointer, block) && std::less<>()(pointer, block + size);
}
} // namespace

X_IMPLEMENT_LIBRARY_CLASS(CXMemFile, CXFile, xSchemaNotSerializable)

CXMemFile::CXMemFile(unsigned int growBytes, bool throwOnError)
    : CXFile(true),
      m_growBytes(growBytes),
      m_capacity(0),
      m_length(0),
      m_position(0),
      m_buffer(nullptr),
      m_autoDelete(true),
      m_throwOnMemError(throwOnError),
      m_untouchedFrom(0),
      m_unclearFrom(kLargest)
{
    m_closeOnDelete = false;
}

CXMemFile::CXMemFile(const unsigned char* buffer, unsigned __int64 size, bool growable, bool throwOnError)
    : CXMemFile(0, throwOnError)
{
    Attach(buffer, size, growable);
}

CXMemFile::~CXMemFile()
{
    CXMemFile::Close();
}

void CXMemFile::Attach(const unsigned char* buffer, unsigned __int64 size, bool growable)
{
    const tev::ExclusiveUse use(m_use);
    if (buffer == nullptr && size != 0)
    {
        RefuseArgument();
        tev::NoteBadArgument("CXMemFile::Attach");
        return;
    }
    if (buffer == m_buffer)
        m_autoDelete = false; // its own block again, which must not be freed on the way
    CXMemFile::Close();
    m_growBytes = growable ? kDefaultGrowBytes : 0;
    m_capacity = size;
    m_length = size;
    m_buffer = const_cast<unsigned char*>(buffer);
    m_autoDelete = growable;
    m_untouchedFrom = size;
}

unsigned char* CXMemFile::Detach()
{
    const tev::ExclusiveUse use(m_use);
    ClearUpTo(m_capacity);
    unsigned char* const block = m_buffer;
    m_autoDelete = false;
    CXMemFile::Close();
    return block;
}

const unsigned char* CXMemFile::GetBuffer() const
{
    const tev::SharedUse use(m_use);
    if (m_unclearFrom.load(std::memory_order_acquire) < m_capacity)
    {
        // Several threads may look at a file that none of them changes.
        const tev::LockGuard guard(g_clearing);
        ClearUpTo(m_capacity);
    }
    return m_buffer;
}

unsigned char* CXMemFile::GetBuffer()
{
    const tev::SharedUse use(m_use);
    ClearUpTo(m_capacity);
    m_untouchedFrom = m_capacity; // the caller may write to all of it
    return m_buffer;
}

unsigned char* CXMemFile::Alloc(unsigned __int64 size)
{
    // Large zeroed blocks cost nothing until they are used.
    auto* const block = static_cast<unsigned char*>(std::calloc(size, 1));
    if (block == nullptr)
        tev::NoteNoMemory("CXMemFile::Alloc");
    return block;
}

void CXMemFile::Free(unsigned char* block)
{
    std::free(block);
}

bool CXMemFile::Open(const wchar_t* path, unsigned int, CXFileException* error)
{
    if (error != nullptr)
        CXFileException::ThrowErrno(fileInvalidFile, 0, path, error);
    return tev::NoteFailure(
        {"CXMemFile::Open", XFailureKind::kArgument, 0, fileInvalidFile, tev::kTextFileCause + fileInvalidFile}, path);
}

unsigned __int64 CXMemFile::Seek(__int64 offset, SeekPosition origin)
{
    const tev::ExclusiveUse use(m_use);
    if (origin > end)
    {
        tev::NoteBadArgument("CXMemFile::Seek");
        return m_position;
    }
    const bool isPastEnd = origin == end && offset > 0;
    const unsigned __int64 base = origin == begin ? 0 : origin == current ? m_position : m_length;
    const auto bits = static_cast<unsigned __int64>(offset);
    const unsigned __int64 distance = offset < 0 ? 0 - bits : bits;
    const bool isBeforeStart = offset < 0 && distance > base;
    if ((isPastEnd || isBeforeStart) && m_throwOnMemError)
        CXFileException::Throw(fileBadSeek, m_path);
    if (isPastEnd || isBeforeStart)
        tev::NoteFailure(
            {"CXMemFile::Seek", XFailureKind::kArgument, 0, fileBadSeek, tev::kTextFileCause + fileBadSeek}, m_path);
    if (isPastEnd)
        return m_position;
    const unsigned __int64 target = isBeforeStart ? 0 : offset < 0 ? base - distance : base + distance;
    if (!CanReach(target))
        return m_position;
    return m_position = target;
}

bool CXMemFile::SetLength(unsigned __int64 length)
{
    const tev::ExclusiveUse use(m_use);
    if (length > kLongestLength)
    {
        if (m_throwOnMemError)
            CXMemoryException::Throw();
        return tev::NoteNoMemory("CXMemFile::SetLength");
    }
    if (!CanReach(length))
        return false;
    ZeroUpTo(length);
    m_length = length;
    m_position = std::min(m_position, length);
    return true;
}

unsigned __int64 CXMemFile::GetLength() const
{
    const tev::SharedUse use(m_use);
    return m_length;
}

unsigned int CXMemFile::Read(void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (buffer == nullptr && count != 0)
        tev::NoteBadArgument("CXMemFile::Read");
    if (buffer == nullptr || m_position >= m_length)
        return 0;
    const unsigned __int64 delivered = std::min<unsigned __int64>(count, m_length - m_position);
    Memcpy(static_cast<unsigned char*>(buffer), m_buffer + m_position, delivered);
    m_position += delivered;
    return static_cast<unsigned int>(delivered);
}

void CXMemFile::Write(const void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    if (count == 0)
        return;
    if (buffer == nullptr)
    {
        RefuseArgument();
        tev::NoteBadArgument("CXMemFile::Write");
        return;
    }
    auto source = static_cast<const unsigned char*>(buffer);
    if (count > m_capacity - m_position && !GrowForWriting(count, source))
        return;
    Memcpy(m_buffer + m_position, source, count);
    AdvanceWritten(count);
}

void CXMemFile::Flush() {}

void CXMemFile::Close()
{
    const tev::ExclusiveUse use(m_use);
    if (m_autoDelete)
        Free(m_buffer);
    m_buffer = nullptr;
    m_capacity = 0;
    m_length = 0;
    m_position = 0;
    m_untouchedFrom = 0;
    m_unclearFrom = kLargest;
}

void CXMemFile::Abort()
{
    CXMemFile::Close();
}

unsigned __int64 CXMemFile::GetPosition() const
{
    const tev::SharedUse use(m_use);
    return m_position;
}

unsigned __int64 CXMemFile::BufferCommand(unsigned int command, unsigned __int64 count, unsigned char** start,
                                          unsigned char** stop)
{
    const tev::ExclusiveUse use(m_use);
    switch (command)
    {
    case bufferRead:
        return ExposeForReading(count, start, stop);
    case bufferWrite:
        return ExposeForWriting(count, start, stop);
    case bufferCommit:
        return Commit(count);
    case bufferCheck:
        return 1;
    default:
        return 0;
    }
}

bool CXMemFile::GrowBuffer(unsigned __int64 needed)
{
    if (needed <= m_capacity)
        return true;
    if (m_growBytes == 0)
        m_growBytes = kDefaultGrowBytes;
    const unsigned __int64 steps = (needed - m_capacity - 1) / m_growBytes + 1;
    const bool fits = steps <= (kLargest - m_capacity) / m_growBytes;
    const unsigned __int64 capacity = m_capacity + (fits ? steps * m_growBytes : 0);
    unsigned char* const block = fits ? Resize(capacity) : nullptr;
    if (block == nullptr)
    {
        if (m_throwOnMemError)
            CXMemoryException::Throw();
        return tev::NoteNoMemory("CXMemFile::GrowBuffer");
    }
    m_buffer = block;
    m_capacity = capacity;
    m_autoDelete = true;
    return true;
}

unsigned char* CXMemFile::Realloc(unsigned char* block, unsigned __int64 size)
{
    return static_cast<unsigned char*>(std::realloc(block, size));
}

unsigned char* CXMemFile::Memcpy(unsigned char* target, const unsigned char* source, unsigned __int64 count)
{
    return static_cast<unsigned char*>(std::memmove(target, source, count));
}

/// A block of the new capacity with the old contents. The old block is freed when it was the file's own; null leaves it as
/// it was.
unsigned char* CXMemFile::Resize(unsigned __int64 capacity)
{
    if (m_buffer != nullptr && m_autoDelete)
    {
        unsigned char* const block = Realloc(m_buffer, capacity);
        if (block != nullptr && IsDerived())
            std::memset(block + m_capacity, 0, capacity - m_capacity);
        else if (block != nullptr)
            m_unclearFrom = std::min(m_unclearFrom.load(), m_capacity);
        return block;
    }
    unsigned char* const block = Alloc(capacity);
    if (block != nullptr && m_buffer != nullptr)
        Memcpy(block, m_buffer, m_capacity);
    return block;
}

bool CXMemFile::CanReach(unsigned __int64 offset)
{
    if (offset > m_capacity && (!GrowBuffer(offset) || offset > m_capacity))
        return false;
    ClearUpTo(offset);
    return true;
}

/// Makes room for `count` bytes at the position. False when the bytes cannot be numbered or there is no memory.
bool CXMemFile::ReserveAtPosition(unsigned __int64 count)
{
    if (AddOverflows(m_position, count))
    {
        RefuseArgument();
        return false;
    }
    return m_position + count <= m_capacity || GrowBuffer(m_position + count);
}

/// Makes room for a write; a source within the file's own block moves with it. False when there is no memory.
bool CXMemFile::GrowForWriting(unsigned int count, const unsigned char*& source)
{
    const bool isOwn = PointsInto(source, m_buffer, m_capacity);
    const size_t ownOffset = isOwn ? static_cast<size_t>(source - m_buffer) : 0;
    if (!ReserveAtPosition(count))
        return false;
    if (m_position + count > m_capacity) // an overridden GrowBuffer claims more than it did
        CXInvalidArgException::Throw();
    if (isOwn)
        source = m_buffer + ownOffset;
    return true;
}

/// Makes bytes written at the position part of the file. A gap between the end and the position becomes zeros.
void CXMemFile::AdvanceWritten(unsigned __int64 count)
{
    if (m_position > m_length)
        ZeroUpTo(m_position);
    m_position += count;
    m_untouchedFrom = std::max(m_untouchedFrom, m_position);
    m_length = std::max(m_length, m_position);
}

/// Zeroes the bytes between the end of the file and a new end.
void CXMemFile::ZeroUpTo(unsigned __int64 newEnd)
{
    const unsigned __int64 dirtyEnd = std::min(newEnd, m_untouchedFrom);
    if (dirtyEnd > m_length)
        std::memset(m_buffer + m_length, 0, dirtyEnd - m_length);
}

/// Large pieces overwrite most of what a block grows by, and zeros in it would cost as much as the pieces themselves.
void CXMemFile::ClearUpTo(unsigned __int64 stop) const
{
    const unsigned __int64 start = std::max(m_unclearFrom.load(std::memory_order_relaxed), m_untouchedFrom);
    if (start >= stop)
        return;
    std::memset(m_buffer + start, 0, stop - start);
    m_unclearFrom.store(stop, std::memory_order_release);
}

/// A derived class sees the whole block at any time.
bool CXMemFile::IsDerived() const noexcept
{
    return typeid(*this) != typeid(CXMemFile) && typeid(*this) != typeid(CCustomMemFile);
}

unsigned __int64 CXMemFile::ExposeForReading(unsigned __int64 count, unsigned char** start, unsigned char** stop)
{
    if (start == nullptr || stop == nullptr)
        return 0;
    if (count == kEverythingLeft)
        count = m_capacity - m_position;
    if (AddOverflows(m_position, count))
        return RefuseArgument();
    const unsigned __int64 exposedEnd = std::max(m_position, std::min(m_length, m_position + count));
    const unsigned __int64 exposed = exposedEnd - m_position;
    *start = m_buffer + m_position;
    *stop = *start + exposed;
    m_position = exposedEnd;
    return exposed;
}

unsigned __int64 CXMemFile::ExposeForWriting(unsigned __int64 count, unsigned char** start, unsigned char** stop)
{
    if (start == nullptr || stop == nullptr || !ReserveAtPosition(count))
        return 0;
    const unsigned __int64 exposedEnd = std::min(m_capacity, m_position + count);
    ClearUpTo(exposedEnd);
    m_untouchedFrom = std::max(m_untouchedFrom, exposedEnd);
    *start = m_buffer + m_position;
    *stop = m_buffer + exposedEnd;
    return exposedEnd - m_position;
}

unsigned __int64 CXMemFile::Commit(unsigned __int64 count)
{
    if (AddOverflows(m_position, count) || m_position + count > m_capacity)
        return RefuseArgument();
    AdvanceWritten(count);
    return count;
}

/// Throws the invalid-argument exception, or returns 0 in a file that does not throw.
unsigned __int64 CXMemFile::RefuseArgument() const
{
    if (m_throwOnMemError)
        CXInvalidArgException::Throw();
    tev::NoteBadArgument("CXMemFile::BufferCommand");
    return 0;
}

CCustomMemFile::CCustomMemFile(unsigned int flags, unsigned int growBytes) : CXMemFile(growBytes), m_flags(flags) {}

CCustomMemFile::CCustomMemFile(const unsigned char* buffer, unsigned __int64 size, bool growable, unsigned int flags)
    : CXMemFile(buffer, size, growable), m_flags(flags)
{
}

CCustomMemFile::~CCustomMemFile() = default;

bool CCustomMemFile::GrowBuffer(unsigned __int64 needed)
{
    if ((m_flags & growProportionally) == 0 || needed <= m_capacity)
        return CXMemFile::GrowBuffer(needed);
    const unsigned __int64 product = m_capacity / 5 * 8 + m_capacity % 5 * 8 / 5; // 1.6 times, exactly
    const unsigned __int64 increment = std::max(product, needed) - m_capacity;
    const unsigned __int64 oldStep = m_growBytes;
    m_growBytes = std::max(oldStep == 0 ? kDefaultGrowBytes : oldStep, increment);
    // A size that cannot be had must not stay behind as the step of smaller growths.
    try
    {
        if (CXMemFile::GrowBuffer(needed))
            return true;
    }
    catch (CXMemoryException*)
    {
        m_growBytes = oldStep;
        throw;
    }
    m_growBytes = oldStep;
    return false;
}
