#include "files/FileReplacement.h"

#include "objects/CXFileException.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"

namespace tev
{
namespace
{
constexpr unsigned kPatienceMs = 10000;
constexpr const wchar_t* kTemporarySuffix = L".tmp";
} // namespace

bool IsPipeOrDevice(const wchar_t* path)
{
    platform::FileInformation information;
    return platform::GetFileInformation(path, information) && information.kind == platform::FileKind::Other;
}

FileReplacement::FileReplacement(const wchar_t* path) : m_path(path)
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    Require(files.ResolveLinks(path, m_path));
    m_temporary = m_path + kTemporarySuffix;
    m_lock = files.LockFolder(m_path.c_str(), kPatienceMs);
    Require(m_lock != nullptr);
}

FileReplacement::~FileReplacement()
{
    if (m_file)
        m_file->Abort();
    platform::FileSystem& files = platform::CurrentFileSystem();
    if (m_isWritten)
        static_cast<void>(files.Remove(m_temporary.c_str()));
    static_cast<void>(files.Close(m_lock));
}

CXFile& FileReplacement::Begin()
{
    void* handle = platform::CurrentFileSystem().CreateLike(m_temporary.c_str(), m_path.c_str());
    Require(handle != nullptr);
    m_isWritten = true;
    m_file.emplace(handle, true);
    m_file->SetFilePath(m_temporary.c_str());
    return *m_file;
}

void FileReplacement::Commit(const wchar_t* suffix)
{
    m_file->Flush();
    m_file->Close();
    Require(platform::CurrentFileSystem().Rename(m_temporary.c_str(), (m_path + suffix).c_str()));
    m_isWritten = false;
}

// The system's last error is that of the call whose outcome this is.
void FileReplacement::Require(bool done)
{
    if (!done)
        CXFileException::ThrowOsError(fileGeneric, m_path.c_str(), nullptr);
}
} // namespace tev
