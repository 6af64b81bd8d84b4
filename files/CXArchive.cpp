#include "files/CXArchive.h"

#include "files/CXFile.h"
#include "objects/CXException.h"
#include "platform/FileSystem.h"
#include "text/FailureRecord.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXArchive, CXObject, xSchemaNotSerializable)

namespace
{
constexpr unsigned kSmallestBuffer = 128;
constexpr unsigned kDefaultNestingLimit = 10000;
constexpr unsigned __int64 kUnlimited = std::numeric_limits<unsigned __int64>::max();
// The most that one call of the file is asked to move; its counts have 32 bits.
constexpr unsigned __int64 kLargestTransfer = 0x40000000;
constexpr unsigned kExposesMemory = 1;

// For what must not throw. A user-defined file may throw anything.
template <class WORK>
void DoQuietly(WORK work) noexcept
{
    try
    {
        work();
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...)
    {
        return; // and is not reported
    }
}
} // namespace

CXArchive::CXArchive(CXFile* file, unsigned int mode, unsigned int bufferSize, void* buffer)
    : m_file(file),
      m_mode(mode),
      m_userBuffer(buffer != nullptr && bufferSize >= kSmallestBuffer),
      m_directBuffer(false),
      m_bufferSize(std::max(bufferSize, kSmallestBuffer)),
      m_start(nullptr),
      m_objectSchema(tev::kNoSchema),
      m_mapCount(1),
      m_data(nullptr),
      m_nestingLimit(kDefaultNestingLimit),
      m_nesting(0),
      m_bytesLeft(kUnlimited),
      m_withheld(0),
      m_objectsLeft(kUnlimited)
{
    if (file == nullptr)
        CXInvalidArgException::Throw();
    m_fileName = file->GetFilePath();
    if (m_userBuffer)
        m_start = static_cast<unsigned char*>(buffer);
    else if ((file->BufferCommand(CXFile::bufferCheck, 0, nullptr, nullptr) & kExposesMemory) != 0)
        m_userBuffer = m_directBuffer = true;
    else
        m_start = new unsigned char[m_bufferSize];
    unsigned char* end = m_directBuffer ? nullptr : m_start + m_bufferSize;
    SetBuffer(m_start, IsLoading() ? end : m_start, end);
}

CXArchive::~CXArchive()
{
    if (m_file != nullptr && (m_mode & xArchiveNoFlushOnDelete) == 0)
        DoQuietly([this] { Flush(true); });
    Detach();
}

void CXArchive::SetBudget(unsigned __int64 bytes, unsigned __int64 objects, unsigned int depth) noexcept
{
    if (IsStoring())
        return;
    if (m_file != nullptr)
        DoQuietly([this] { ReturnUnread(); });
    // What a file that cannot seek has delivered already is taken from the budget.
    const unsigned __int64 delivered = static_cast<unsigned __int64>(m_end - m_current) + m_withheld;
    const unsigned __int64 granted = std::min(bytes, delivered);
    m_withheld = delivered - granted;
    m_bytesLeft = bytes - granted;
    SetBuffer(m_start, m_current, m_current + granted);
    m_objectsLeft = objects;
    m_nestingLimit = depth;
}

unsigned __int64 CXArchive::Read(void* target, unsigned __int64 count)
{
    const tev::ExclusiveUse use(m_use);
    RequireLoading();
    if (target == nullptr || count == 0)
        return 0;
    auto* bytes = static_cast<unsigned char*>(target);
    const auto buffered = std::min(count, static_cast<unsigned __int64>(m_end - m_current));
    if (buffered != 0)
        std::memcpy(bytes, m_current, buffered);
    m_current += buffered;
    return buffered == count ? count : buffered + ReadPast(bytes + buffered, count - buffered);
}

// Reads what the empty buffer cannot give: whole multiples of its size go straight into the target.
unsigned __int64 CXArchive::ReadPast(unsigned char* target, unsigned __int64 count)
{
    unsigned __int64 delivered = 0;
    for (const unsigned __int64 whole = count - count % m_bufferSize; delivered < whole && m_bytesLeft != 0;)
    {
        const auto step = static_cast<unsigned>(std::min({whole - delivered, kLargestTransfer, m_bytesLeft}));
        const unsigned got = m_file->Read(target + delivered, step);
        m_bytesLeft -= got;
        delivered += got;
        if (got == 0)
            return delivered;
    }
    const auto rest = static_cast<std::size_t>(count - delivered);
    if (rest == 0)
        return delivered;
    if (m_directBuffer)
        RequestBlock();
    else
    {
        MoveToFront();
        Fetch(rest);
    }
    const std::size_t tail = std::min(rest, static_cast<std::size_t>(m_end - m_current));
    if (tail != 0)
        std::memcpy(target + delivered, m_current, tail);
    m_current += tail;
    if (tail < rest && IsOverBudget())
        Fail(archiveGeneric);
    return delivered + tail;
}

// Whether reading ended because of the budget: the file has more. Of a file that may be unable to seek, what was read to know
// that is withheld; the archive's own buffer was not filled, and has room for it.
bool CXArchive::IsOverBudget()
{
    if (m_bytesLeft != 0 || m_withheld != 0)
        return m_withheld != 0;
    unsigned char next = 0;
    const bool hasMore = m_file->Read(m_directBuffer ? &next : m_end, 1) != 0;
    if (!m_directBuffer)
        m_withheld = hasMore ? 1 : 0;
    else if (hasMore)
        DoQuietly([this] { m_file->Seek(-1, CXFile::current); });
    return hasMore;
}

void CXArchive::EnsureRead(void* target, unsigned __int64 count)
{
    const tev::ExclusiveUse use(m_use);
    if (Read(target, count) != count)
        CXArchiveException::Throw(archiveEndOfFile);
}

void CXArchive::Write(const void* source, unsigned __int64 count)
{
    const tev::ExclusiveUse use(m_use);
    CXFile& file = RequireStoring();
    if (source == nullptr || count == 0)
        return;
    const auto* bytes = static_cast<const unsigned char*>(source);
    const auto fitting = std::min(count, static_cast<unsigned __int64>(m_end - m_current));
    if (fitting != 0)
        std::memcpy(m_current, bytes, fitting);
    m_current += fitting;
    bytes += fitting;
    count -= fitting;
    if (count == 0)
        return;

    const unsigned __int64 tail = count % m_bufferSize;
    // The block that a file exposes is invalid once the file itself writes, so a new one is only requested after that.
    Flush(count != tail);
    if (count != tail)
    {
        for (unsigned __int64 whole = count - tail; whole != 0;)
        {
            const auto step = static_cast<unsigned>(std::min(whole, kLargestTransfer));
            file.Write(bytes, step);
            bytes += step;
            whole -= step;
        }
        if (m_directBuffer)
            RequestBlock();
    }
    if (m_current != m_start || tail > static_cast<unsigned __int64>(m_end - m_start))
        CXInvalidArgException::Throw();
    if (tail != 0)
        std::memcpy(m_current, bytes, tail);
    m_current += tail;
}

void CXArchive::Flush(bool final)
{
    const tev::ExclusiveUse use(m_use);
    if (m_file == nullptr)
        Fail(archiveGeneric);
    if (IsLoading())
        return ReturnUnread();
    const auto pending = static_cast<unsigned>(m_current - m_start);
    if (!m_directBuffer)
    {
        if (pending != 0)
            m_file->Write(m_start, pending);
        m_current = m_start;
        return;
    }
    if (pending != 0)
        m_file->BufferCommand(CXFile::bufferCommit, pending, nullptr, nullptr);
    // The block is part of the contents now: if anything fails from here on, it must not be overwritten.
    SetBuffer(nullptr, nullptr, nullptr);
    if (!final)
        RequestBlock();
}

// Moves the file's position back to the archive's. What a file that cannot seek has delivered stays in the buffer.
void CXArchive::ReturnUnread()
{
    const tev::FailuresUnnoted unnoted;
    const __int64 unread = m_end - m_current;
    const __int64 ahead = unread + static_cast<__int64>(m_withheld);
    if (ahead == 0 || m_file->Seek(-ahead, CXFile::current) == tev::platform::kNoPosition)
        return;
    m_bytesLeft += static_cast<unsigned __int64>(unread);
    m_withheld = 0;
    m_current = m_end;
}

// Makes room behind what is unread and what is withheld.
void CXArchive::MoveToFront() noexcept
{
    const auto unread = static_cast<std::size_t>(m_end - m_current);
    const std::size_t kept = unread + static_cast<std::size_t>(m_withheld);
    if (m_current > m_start && kept != 0)
        std::memmove(m_start, m_current, kept);
    SetBuffer(m_start, m_start, m_start + unread);
}

void CXArchive::Close()
{
    const tev::ExclusiveUse use(m_use);
    if (m_file == nullptr)
        return;
    // The position of a file that was read matters only to a caller that reads on, and sees it there.
    if (IsLoading())
        DoQuietly([this] { ReturnUnread(); });
    else
        Flush(true);
    Detach();
}

void CXArchive::Abort()
{
    const tev::ExclusiveUse use(m_use);
    Detach();
}

// The documented end of an archive's use of its file; what is buffered is forgotten.
void CXArchive::Detach() noexcept
{
    if (!m_userBuffer)
        delete[] m_start;
    m_userBuffer = true;
    m_file = nullptr;
    m_withheld = 0;
    SetBuffer(nullptr, nullptr, nullptr);
}

CXFile& CXArchive::RequireStoring() const
{
    if (m_file == nullptr)
        Fail(archiveGeneric);
    if (IsLoading())
        Fail(archiveReadOnly);
    return *m_file;
}

CXFile& CXArchive::RequireLoading() const
{
    if (m_file == nullptr)
        Fail(archiveGeneric);
    if (IsStoring())
        Fail(archiveWriteOnly);
    return *m_file;
}

void CXArchive::Fail(ArchiveExceptionType cause) const
{
    CXArchiveException::Throw(cause, m_fileName);
}

// The slow path of storing a scalar: the buffer is full or the direction is wrong. Returns where the scalar is written.
unsigned char* CXArchive::MakeRoom(std::size_t count)
{
    RequireStoring();
    Flush(false);
    // A file that exposes its memory may have no more of it.
    if (static_cast<std::size_t>(m_end - m_current) < count)
        CXMemoryException::Throw();
    return m_current;
}

unsigned char* CXArchive::Provide(std::size_t count)
{
    RequireLoading();
    FillBuffer(count - static_cast<std::size_t>(m_end - m_current));
    return m_current;
}

// Called when the buffer holds only a part of a scalar: `needed` bytes are missing.
void CXArchive::FillBuffer(std::size_t needed)
{
    const auto unread = static_cast<std::size_t>(m_end - m_current);
    const std::size_t wanted = unread + needed;
    if (m_directBuffer)
    {
        ReturnUnread();
        if (m_current != m_end)
            Fail(archiveGeneric);
        RequestBlock();
    }
    else
    {
        MoveToFront();
        Fetch(needed);
    }
    if (wanted > m_bufferSize)
        CXArchiveException::Throw(archiveBufferFull);
    if (static_cast<std::size_t>(m_end - m_current) < wanted)
        CXArchiveException::Throw(IsOverBudget() ? archiveGeneric : archiveEndOfFile);
}

// Appends to the archive's own buffer until `wanted` more bytes were read, the buffer is full or the file ends.
void CXArchive::Fetch(std::size_t wanted)
{
    for (std::size_t fetched = 0; fetched < wanted;)
    {
        const auto room = static_cast<unsigned __int64>(m_start + m_bufferSize - m_end);
        const unsigned got = m_file->Read(m_end, static_cast<unsigned>(std::min(room, m_bytesLeft)));
        if (got == 0)
            return;
        m_bytesLeft -= got;
        fetched += got;
        SetBuffer(m_start, m_current, m_end + got);
    }
}

// Has the file expose its memory at its position: the bytes there, or room to write.
void CXArchive::RequestBlock()
{
    if (m_withheld != 0)
        return; // and nothing is left of the budget
    unsigned char* start = nullptr;
    unsigned char* end = nullptr;
    if (IsStoring())
        m_file->BufferCommand(CXFile::bufferWrite, m_bufferSize, &start, &end);
    else
        m_bytesLeft -= m_file->BufferCommand(CXFile::bufferRead, std::min(m_bufferSize, m_bytesLeft), &start, &end);
    SetBuffer(start, start, end);
}

void CXArchive::SetBuffer(unsigned char* start, unsigned char* current, unsigned char* end) noexcept
{
    m_start = start;
    m_current = current;
    m_end = end;
    const auto limit = reinterpret_cast<std::uintptr_t>(m_file == nullptr ? nullptr : end);
    m_storeLimit = IsStoring() ? limit : 0;
    m_loadLimit = IsLoading() ? limit : 0;
}

CXArchive& CXArchive::operator<<(wchar_t value)
{
    RequireStoring();
    if constexpr (sizeof(wchar_t) > 2)
    {
        if (static_cast<std::make_unsigned_t<wchar_t>>(value) > 0xFFFF)
            CXInvalidArgException::Throw();
    }
    return Store(static_cast<unsigned short>(value));
}

CXArchive& CXArchive::operator>>(wchar_t& value)
{
    value = static_cast<wchar_t>(LoadValue<unsigned short>());
    return *this;
}

CXArchive& CXArchive::operator>>(bool&)
{
    // The variable is deliberately unchanged: readers of stored files set it themselves.
    LoadValue<unsigned char>();
    return *this;
}
