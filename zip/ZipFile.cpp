#include "zip/ZipFile.h"

#include "objects/CXFileException.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tev
{
namespace
{
using platform::CurrentFileSystem;
using platform::FileInformation;
using platform::FileKind;

constexpr std::size_t kBufferSize = 256 * 1024;

constexpr std::size_t kTailSize = 64 * 1024;
constexpr std::size_t kRangeAtOnce = 64 * 1024 * 1024;

bool HashTail(ZipFileBytes& file, std::uint64_t& hash)
{
    std::vector<unsigned char> tail(static_cast<std::size_t>(std::min<std::uint64_t>(kTailSize, file.Size())));
    std::size_t delivered = 0;
    if (!file.ReadAt(file.Size() - tail.size(), tail.data(), tail.size(), delivered))
        return false;
    hash = 0xCBF29CE484222325; // FNV-1a
    for (std::size_t i = 0; i < delivered; ++i)
        hash = (hash ^ tail[i]) * 0x100000001B3;
    return true;
}

bool Fail(int error)
{
    errno = error;
    return false;
}
} // namespace

std::optional<FileStamp> FileStamp::Take(const wchar_t* path)
{
    FileStamp stamp;
    const std::unique_ptr<ZipFileBytes> file = ZipFileBytes::Open(path);
    if (file == nullptr || !platform::GetFileInformation(path, stamp.m_information))
        return std::nullopt;
    stamp.m_size = file->Size();
    if (!HashTail(*file, stamp.m_tailHash))
        return std::nullopt;
    return stamp;
}

bool FileStamp::IsSameFile(const FileInformation& other) const noexcept
{
    return m_information.device == other.device && m_information.number == other.number;
}

bool FileStamp::IsSameState(const FileStamp& other) const noexcept
{
    return IsSameFile(other.m_information) && m_information.lastWrite == other.m_information.lastWrite &&
           m_size == other.m_size && m_tailHash == other.m_tailHash;
}

std::unique_ptr<ZipFileBytes> ZipFileBytes::Open(const wchar_t* path)
{
    std::unique_ptr<ZipFileBytes> file(new ZipFileBytes);
    platform::FileOpenMode mode;
    mode.regularOnly = true;
    file->m_handle = CurrentFileSystem().Open(path, mode);
    if (file->m_handle == nullptr || !CurrentFileSystem().GetLength(file->m_handle, file->m_size))
        return nullptr;
    return file;
}

ZipFileBytes::~ZipFileBytes()
{
    const int error = errno;
    if (m_handle != nullptr)
        static_cast<void>(CurrentFileSystem().Close(m_handle));
    errno = error;
}

bool ZipFileBytes::ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered)
{
    delivered = 0;
    if (offset != m_position &&
        !CurrentFileSystem().Seek(m_handle, static_cast<std::int64_t>(offset), platform::SeekOrigin::Begin, m_position))
        return false;
    // What ends early is read again: only that tells a failure from the end of the file.
    for (std::size_t got = 1; got != 0 && delivered < count; delivered += got)
    {
        if (!CurrentFileSystem().Read(m_handle, static_cast<char*>(buffer) + delivered, count - delivered, got))
            return false;
        m_position += got;
    }
    return true;
}

/// Turns the library's exceptions into errno, which passes through the engine's C code.
template <class Work>
bool ZipFileTarget::Attempt(Work&& work)
{
    errno = 0;
    try
    {
        work();
        return true;
    }
    catch (CXFileException* failure)
    {
        const int error = errno;
        const bool isFull = failure->GetCause() == fileDiskFull;
        failure->Delete();
        return Fail(isFull ? ENOSPC : error != 0 ? error : EIO);
    }
}

bool ZipFileTarget::Begin()
{
    return Attempt([this] {
               m_buffer.clear();
               m_filePosition = 0;
               m_replacement.emplace(m_path.c_str());
               m_file = &m_replacement->Begin();
           }) &&
           IsUnchanged();
}

bool ZipFileTarget::BeginWithStart(std::uint64_t size, const std::function<bool(std::uint64_t)>& advance)
{
    const std::unique_ptr<ZipFileBytes> replaced = ZipFileBytes::Open(m_path.c_str());
    if (replaced == nullptr || !m_expected || !Begin())
        return false;
    std::size_t copied = 0;
    for (std::uint64_t at = 0; at < size; at += copied)
    {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(size - at, kRangeAtOnce));
        if (!m_replacement->CopyRange(replaced->Handle(), at, count, copied) || copied == 0 || !advance(copied))
            return false;
    }
    return true;
}

bool ZipFileTarget::WriteAt(std::uint64_t offset, const void* bytes, std::size_t count)
{
    const std::uint64_t bufferEnd = m_bufferStart + m_buffer.size();
    const bool fits = offset == bufferEnd && m_buffer.size() + count <= kBufferSize;
    return Attempt([&] {
        if (!fits)
        {
            WriteBuffered();
            m_bufferStart = offset;
        }
        const char* const first = static_cast<const char*>(bytes);
        m_buffer.insert(m_buffer.end(), first, first + count);
    });
}

void ZipFileTarget::WriteBuffered()
{
    if (m_buffer.empty())
        return;
    if (m_filePosition != m_bufferStart &&
        m_file->Seek(static_cast<__int64>(m_bufferStart), CXFile::begin) != m_bufferStart)
        CXFileException::ThrowOsError(fileBadSeek, m_file->GetFilePath(), nullptr);
    m_file->Write(m_buffer.data(), static_cast<unsigned int>(m_buffer.size()));
    m_filePosition = m_bufferStart + m_buffer.size();
    m_buffer.clear();
}

bool ZipFileTarget::Commit()
{
    return Attempt([this] { WriteBuffered(); }) && IsUnchanged() && Attempt([this] { m_replacement->Commit(); });
}

// Programs that replace files with this library are locked out meanwhile; this finds changes made by other programs.
bool ZipFileTarget::IsUnchanged()
{
    if (!m_expected && !m_expectsNone)
        return true;
    const std::optional<FileStamp> now = FileStamp::Take(m_path.c_str());
    if (!now && errno != ENOENT)
        return false;
    m_isReplacedByOthers = m_expectsNone ? now.has_value() : !now || !now->IsSameState(*m_expected);
    return !m_isReplacedByOthers || Fail(ESTALE);
}

bool ZipFileTarget::IsWritable(const wchar_t* path)
{
    return Attempt([path] {
        FileReplacement probe(path);
        probe.Begin();
    });
}
} // namespace tev
