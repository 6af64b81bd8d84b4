#include "files/CXFile.h"

#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "platform/Cancellation.h"
#include "platform/FileSystem.h"
#include "platform/SystemErrors.h"
#include "text/MessageTexts.h"

#include <utility>

namespace
{
namespace platform = tev::platform;

constexpr size_t kPathLimit = 260; // a path of this many characters is too long
constexpr unsigned kAccessMask = 0x3;
constexpr unsigned kShareMask = 0x70;

platform::FileOpenMode ModeFromFlags(unsigned flags)
{
    platform::FileOpenMode mode;
    const unsigned access = flags & kAccessMask;
    mode.access = access == CXFile::modeWrite       ? platform::FileAccess::Write
                  : access == CXFile::modeReadWrite ? platform::FileAccess::ReadWrite
                                                    : platform::FileAccess::Read;
    const unsigned share = flags & kShareMask;
    mode.shareRead = share == CXFile::shareDenyWrite || share == CXFile::shareDenyNone;
    mode.shareWrite = share == CXFile::shareDenyRead || share == CXFile::shareDenyNone;
    mode.create = (flags & CXFile::modeCreate) != 0;
    mode.truncate = mode.create && (flags & CXFile::modeNoTruncate) == 0;
    mode.inherit = (flags & CXFile::modeNoInherit) == 0;
    return mode;
}

/// Throws what the system said last, the given cause when that says nothing; or notes it in a file that does not throw.
bool Fail(bool throws, const char* operation, FileExceptionType cause, const CXTString<wchar_t>& path)
{
    if (throws)
        CXFileException::ThrowOsError(cause, path, nullptr);
    return tev::NoteLastError(operation, path);
}

/// All bits set, for what has no number.
unsigned __int64 NoNumber(const char* operation, const CXTString<wchar_t>& path) noexcept
{
    tev::NoteLastError(operation, path);
    return tev::platform::kNoPosition;
}

using Reading = bool (platform::FileSystem::*)(platform::FileHandle, void*, std::size_t, std::size_t&);

unsigned int ReadFrom(void* handle, Reading reading, void* buffer, unsigned int count, bool throws,
                      const CXTString<wchar_t>& path)
{
    if (count == 0)
        return 0;
    if (handle == nullptr || buffer == nullptr)
    {
        tev::NoteBadArgument("CXFile::Read", path);
        return 0;
    }
    std::size_t delivered = 0;
    if (!(platform::CurrentFileSystem().*reading)(handle, buffer, count, delivered))
        Fail(throws, "CXFile::Read", fileGeneric, path);
    return static_cast<unsigned int>(delivered);
}
} // namespace

X_IMPLEMENT_LIBRARY_CLASS(CXFile, CXObject, xSchemaNotSerializable)

CXFile::CXFile(bool throwOnError) : m_handle(nullptr), m_closeOnDelete(true), m_throwOnError(throwOnError) {}

CXFile::CXFile(void* handle, bool throwOnError) : m_handle(handle), m_closeOnDelete(false), m_throwOnError(throwOnError)
{
}

CXFile::CXFile(const wchar_t* path, unsigned int flags) : CXFile(true)
{
    CXFileException error;
    if (!CXFile::Open(path, flags, &error))
        XThrow<CXFileException>(error);
}

CXFile::~CXFile()
{
    if (m_closeOnDelete)
        CXFile::Abort();
}

void* CXFile::HandleFromDescriptor(int descriptor) noexcept
{
    if (descriptor < 0)
        tev::NoteBadArgument("CXFile::HandleFromDescriptor");
    return platform::FileHandleFromDescriptor(descriptor);
}

bool CXFile::Open(const wchar_t* path, unsigned int flags, CXFileException* error)
{
    const tev::ExclusiveUse use(m_use);
    platform::PassCancellationPoint();
    if (m_closeOnDelete)
        CXFile::Abort();
    m_handle = nullptr;
    m_path = path;
    if (m_path.IsEmpty() || m_path.GetLength64() >= kPathLimit)
    {
        if (error != nullptr)
            CXFileException::ThrowErrno(fileBadPath, 0, m_path, error);
        return tev::NoteFailure(
            {"CXFile::Open", XFailureKind::kArgument, 0, fileBadPath, tev::kTextFileCause + fileBadPath}, m_path);
    }
    m_handle = platform::CurrentFileSystem().Open(m_path, ModeFromFlags(flags));
    m_closeOnDelete = true;
    if (m_handle != nullptr)
        return true;
    tev::NoteLastError("CXFile::Open", m_path);
    if (error != nullptr)
        CXFileException::ThrowOsError(fileGeneric, m_path, error);
    return false;
}

unsigned __int64 CXFile::Seek(__int64 offset, SeekPosition origin)
{
    const tev::ExclusiveUse use(m_use);
    std::uint64_t position = 0;
    const bool moved = origin <= end && platform::CurrentFileSystem().Seek(
                                            m_handle, offset, static_cast<platform::SeekOrigin>(origin), position);
    if (moved)
        return position;
    if (origin > end)
        tev::NoteBadArgument("CXFile::Seek", m_path);
    else
        tev::NoteLastError("CXFile::Seek", m_path);
    return tev::platform::kNoPosition;
}

bool CXFile::SetLength(unsigned __int64 length)
{
    const tev::ExclusiveUse use(m_use);
    platform::FileSystem& files = platform::CurrentFileSystem();
    std::uint64_t position = 0;
    // Seeks second, so that a length which the file cannot have leaves the position.
    if (files.SetLength(m_handle, length) &&
        files.Seek(m_handle, static_cast<__int64>(length), platform::SeekOrigin::Begin, position))
        return true;
    return Fail(m_throwOnError, "CXFile::SetLength", fileDiskFull, m_path);
}

unsigned __int64 CXFile::GetLength() const
{
    const tev::SharedUse use(m_use);
    std::uint64_t length = 0;
    return platform::CurrentFileSystem().GetLength(m_handle, length) ? length : NoNumber("CXFile::GetLength", m_path);
}

unsigned int CXFile::Read(void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    return ReadFrom(m_handle, &platform::FileSystem::Read, buffer, count, m_throwOnError, m_path);
}

unsigned int CXFile::ReadAvailable(void* buffer, unsigned int count)
{
    const tev::ExclusiveUse use(m_use);
    return ReadFrom(m_handle, &platform::FileSystem::ReadAvailable, buffer, count, m_throwOnError, m_path);
}

void CXFile::Write(const void* buffer, unsigned int count)
{
    std::size_t written = 0;
    WriteCounted(buffer, count, written);
}

void CXFile::WriteCounted(const void* buffer, unsigned int count, std::size_t& written)
{
    const tev::ExclusiveUse use(m_use);
    written = 0;
    if (count == 0)
        return;
    const bool done = platform::CurrentFileSystem().Write(m_handle, buffer, count, written);
    if (!done)
        Fail(m_throwOnError, "CXFile::Write", fileGeneric, m_path);
    else if (written < count && m_throwOnError)
        CXFileException::Throw(fileDiskFull, m_path);
    else if (written < count)
        tev::NoteSystemError("CXFile::Write", platform::kDiskFull, m_path);
}

void CXFile::Flush()
{
    const tev::ExclusiveUse use(m_use);
    if (m_handle != nullptr && !platform::CurrentFileSystem().Sync(m_handle))
        Fail(m_throwOnError, "CXFile::Flush", fileGeneric, m_path);
}

void CXFile::Close()
{
    const tev::ExclusiveUse use(m_use);
    if (m_handle != nullptr && !platform::CurrentFileSystem().Close(std::exchange(m_handle, nullptr)))
        Fail(m_throwOnError, "CXFile::Close", fileGeneric, m_path);
}

void CXFile::Abort()
{
    const tev::ExclusiveUse use(m_use);
    if (m_handle != nullptr)
        static_cast<void>(platform::CurrentFileSystem().Close(std::exchange(m_handle, nullptr)));
}

void CXFile::SetFilePath(const CXTString<wchar_t>& path)
{
    const tev::ExclusiveUse use(m_use);
    m_path = path;
}

CXTString<wchar_t> CXFile::GetFileName() const
{
    const tev::SharedUse use(m_use);
    unsigned __int64 start = m_path.GetLength64();
    while (start > 0 && m_path[start - 1] != L'/' && m_path[start - 1] != L'\\')
        --start;
    return CXTString<wchar_t>(m_path.GetConstBuffer() + start);
}

CXTString<wchar_t> CXFile::GetFilePath() const
{
    const tev::SharedUse use(m_use);
    return m_path;
}

unsigned __int64 CXFile::BufferCommand(unsigned int, unsigned __int64, unsigned char**, unsigned char**)
{
    return 0;
}

unsigned __int64 CXFile::GetPosition() const
{
    const tev::SharedUse use(m_use);
    std::uint64_t position = 0;
    const bool known = platform::CurrentFileSystem().Seek(m_handle, 0, platform::SeekOrigin::Current, position);
    return known ? position : NoNumber("CXFile::GetPosition", m_path);
}
