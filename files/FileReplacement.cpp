#include "files/FileReplacement.h"

#include "objects/CXFileException.h"
#include "objects/ThreadStatus.h"
#include "platform/Cancellation.h"
#include "platform/FileSystem.h"
#include "platform/SystemErrors.h"

#include <chrono>
#include <utility>

namespace tev
{
namespace
{
constexpr std::chrono::seconds kPatience(10);
constexpr std::chrono::seconds kPatienceAtEnd(1); // of a thread that is asked to end
constexpr unsigned kCheckEveryMs = 20;
constexpr unsigned kSharingViolation = 32;
constexpr const wchar_t* kTemporarySuffix = L".tmp";

/// The folder that holds the lock; null, with the system's error, after the time limit.
void* WaitForLock(const wchar_t* path)
{
    using Clock = std::chrono::steady_clock;
    const LongOperation operation("waiting for another save into a folder");
    const Clock::time_point start = Clock::now();
    for (;;)
    {
        const bool isLastAttempt = Clock::now() - start >= (IsThreadAskedToEnd() ? kPatienceAtEnd : kPatience);
        void* const folder = platform::CurrentFileSystem().LockFolder(path, kCheckEveryMs);
        if (folder != nullptr || isLastAttempt || platform::LastSystemError() != kSharingViolation)
            return folder;
    }
}
} // namespace

template <class CHANGE>
void FileReplacement::File::Attempt(CHANGE&& change)
{
    const FileExceptionType before = std::exchange(m_failure, fileGeneric); // of an exception without a cause
    try
    {
        change();
    }
    catch (CXFileException* exception)
    {
        m_failure = exception->GetCause();
        throw;
    }
    m_failure = before;
}

bool FileReplacement::File::SetLength(unsigned __int64 length)
{
    Attempt([&] { CXFile::SetLength(length); });
    return true;
}

void FileReplacement::File::Write(const void* buffer, unsigned int count)
{
    Attempt([&] { CXFile::Write(buffer, count); });
}

FileReplacement::FileReplacement(const wchar_t* path, TemporaryName naming, FolderLock lock)
    : m_naming(naming), m_path(path)
{
    platform::PassCancellationPoint();
    platform::FileSystem& files = platform::CurrentFileSystem();
    Require(files.ResolveLinks(path, m_path));
    m_folder = lock == FolderLock::Held ? WaitForLock(m_path.c_str()) : files.OpenFolder(m_path.c_str());
    Require(m_folder != nullptr);
}

FileReplacement::~FileReplacement()
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    if (m_file)
        m_file->CXFile::Abort();
    else if (m_handle != nullptr) // memory ran out before the file had it
        static_cast<void>(files.Close(m_handle));
    if (m_isNamed)
        static_cast<void>(files.Remove(m_temporary.c_str()));
    Unlock(m_locked);
    Unlock(m_folder);
}

CXFile& FileReplacement::Begin()
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    bool isNamed = true;
    if (m_naming == TemporaryName::Own)
    {
        m_handle = files.CreateTemporary(m_path.c_str(), m_temporary, isNamed);
    }
    else
    {
        m_temporary = m_path + kTemporarySuffix;
        m_handle = files.CreateLike(m_temporary.c_str(), m_path.c_str());
    }
    Require(m_handle != nullptr);
    m_isNamed = isNamed;
    m_file.emplace(m_handle);
    m_file->SetFilePath(m_path.c_str());
    return *m_file;
}

bool FileReplacement::CopyRange(void* source, std::uint64_t offset, std::size_t count, std::size_t& copied)
{
    return platform::CurrentFileSystem().CopyRange(source, m_handle, offset, count, copied);
}

void FileReplacement::Commit(const wchar_t* suffix)
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    const std::wstring target = m_path + suffix;
    if (m_file->m_failure != fileNone)
        CXFileException::Throw(m_file->m_failure, m_path.c_str());
    m_file->Flush();
    if (!m_isNamed)
    {
        Require(files.Name(m_handle, m_temporary.c_str()));
        m_isNamed = true;
    }
    if (m_naming == TemporaryName::Own)
    {
        m_locked = files.KeepLock(m_handle);
        Require(m_locked != nullptr);
    }
    m_file->CXFile::Close();
    Require(files.Rename(m_temporary.c_str(), target.c_str()));
    m_isNamed = false;
    Unlock(m_locked);
    Require(files.SyncFolder(m_folder));
    if (m_naming == TemporaryName::Own)
        files.RemoveLeftTemporaries(m_folder);
}

void FileReplacement::Unlock(void*& locked) noexcept
{
    if (locked != nullptr)
        platform::CurrentFileSystem().Unlock(std::exchange(locked, nullptr));
}

// The system's last error is that of the call whose outcome this is.
void FileReplacement::Require(bool done)
{
    if (!done)
        CXFileException::ThrowOsError(fileGeneric, m_path.c_str(), nullptr);
}
} // namespace tev
