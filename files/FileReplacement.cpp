#include "files/FileReplacement.h"

#include "objects/CXFileException.h"
#include "platform/FileSystem.h"

namespace tev
{
namespace
{
constexpr unsigned kPatienceMs = 10000;
constexpr const wchar_t* kTemporarySuffix = L".tmp";
} // namespace

FileReplacement::FileReplacement(const wchar_t* path, TemporaryName naming) : m_naming(naming), m_path(path)
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    Require(files.ResolveLinks(path, m_path));
    m_folder = files.LockFolder(m_path.c_str(), kPatienceMs);
    Require(m_folder != nullptr);
}

FileReplacement::~FileReplacement()
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    if (m_file)
        m_file->Abort();
    else if (m_handle != nullptr) // memory ran out before the file had it
        static_cast<void>(files.Close(m_handle));
    if (m_isNamed)
        static_cast<void>(files.Remove(m_temporary.c_str()));
    files.UnlockFolder(m_folder);
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
    m_file.emplace(m_handle, true);
    m_file->SetFilePath(m_path.c_str());
    return *m_file;
}

void FileReplacement::Commit(const wchar_t* suffix)
{
    platform::FileSystem& files = platform::CurrentFileSystem();
    const std::wstring target = m_path + suffix;
    m_file->Flush();
    if (!m_isNamed)
    {
        Require(files.Name(m_handle, m_temporary.c_str()));
        m_isNamed = true;
    }
    m_file->Close();
    Require(files.Rename(m_temporary.c_str(), target.c_str()));
    m_isNamed = false;
    Require(files.SyncFolder(m_folder));
    if (m_naming == TemporaryName::Own)
        files.RemoveLeftTemporaries(m_folder);
}

// The system's last error is that of the call whose outcome this is.
void FileReplacement::Require(bool done)
{
    if (!done)
        CXFileException::ThrowOsError(fileGeneric, m_path.c_str(), nullptr);
}
} // namespace tev
