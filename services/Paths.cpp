#include "services/Paths.h"

#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "platform/ContainedFolder.h"
#include "platform/FileInformation.h"
#include "platform/SystemErrors.h"
#include "services/ApplicationName.h"
#include "services/DataFolders.h"

#include <string>

namespace
{
using tev::platform::FileInformation;
using tev::platform::FileKind;

bool IsOfKind(const CXTString<wchar_t>& path, FileKind kind)
{
    FileInformation information;
    return tev::platform::GetFileInformation(path, information) && information.kind == kind;
}

CPathString FromEnvironment(const char* variable)
{
    return CPathString(tev::platform::PathFromEnvironment(variable).c_str());
}

CPathString FolderOrThrow(bool (*find)(CPathString& path))
{
    CPathString path;
    if (!find(path))
        CXFileException::ThrowOsError(fileGeneric, path, nullptr);
    return path;
}
} // namespace

bool tev::FindUserDataFolder(CPathString& path)
{
    path = FromEnvironment("TEVTOOLS_USER_DATA");
    if (path.IsEmpty())
    {
        path = FromEnvironment("XDG_DATA_HOME");
        if (path.IsEmpty() || path[0] != L'/') // a relative one does not count
            path = CPathString(tev::platform::HomeFolder().c_str()) / L".local/share";
        path /= XGetApplicationName();
    }
    return platform::CreateFolders(path);
}

bool tev::FindCommonDataFolder(CPathString& path)
{
    path = FromEnvironment("TEVTOOLS_COMMON_DATA");
    if (!path.IsEmpty())
        return platform::CreateFolders(path);
    path = CPathString(L"/var/lib") / XGetApplicationName();
    return (platform::CreateFolders(path) && platform::IsWritableFolder(path)) || FindUserDataFolder(path);
}

CPathString GetUserApplicationDataPath()
{
    return FolderOrThrow(tev::FindUserDataFolder);
}

CPathString GetCommonApplicationDataPath()
{
    return FolderOrThrow(tev::FindCommonDataFolder);
}

CPathString fileCreateTemporaryFolder(const CXTString<wchar_t>& prefix)
{
    std::wstring path;
    if (!tev::platform::CreateTemporaryFolder(prefix, path))
        CXFileException::ThrowOsError(fileGeneric, prefix, nullptr);
    try
    {
        return CPathString(path.c_str());
    }
    catch (...)
    {
        static_cast<void>(tev::platform::RemoveEmptyFolder(path.c_str()));
        throw;
    }
}

CPathString fileNextNumberedName(const CPathString& path)
{
    const CXTString<wchar_t> extension = path.GetExtension();
    const CXTString<wchar_t> start = path.Left(path.GetLength() - extension.GetLength());
    CPathString name;
    int number = 1;
    do
    {
        name.Format(L"%s (%d)%s", start.GetConstBuffer(), number++, extension.GetConstBuffer());
    } while (fileExists(name));
    return name;
}

bool fileExists(const CXTString<wchar_t>& path)
{
    FileInformation information;
    return tev::platform::GetFileInformation(path, information);
}

bool fileIsFile(const CXTString<wchar_t>& path)
{
    return IsOfKind(path, FileKind::File);
}

bool fileIsDirectory(const CXTString<wchar_t>& path)
{
    return IsOfKind(path, FileKind::Folder);
}

bool fileIsSameFile(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b)
{
    FileInformation ofA;
    FileInformation ofB;
    return tev::platform::GetFileInformation(a, ofA) && tev::platform::GetFileInformation(b, ofB) &&
           ofA.device == ofB.device && ofA.number == ofB.number;
}

bool fileIsSameDirectory(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b)
{
    return fileIsDirectory(a) && fileIsSameFile(a, b);
}

bool fileGetCreationDate(const CXTString<wchar_t>& path, CXTime& date)
{
    FileInformation information;
    if (!tev::platform::GetFileInformation(path, information))
        return tev::NoteLastError("fileGetCreationDate", path);
    if (!information.creation)
        return tev::NoteSystemError("fileGetCreationDate", tev::platform::kNotSupported, path);
    date = CXTime(*information.creation);
    return true;
}

bool fileGetLastWriteDate(const CXTString<wchar_t>& path, CXTime& date)
{
    FileInformation information;
    if (!tev::platform::GetFileInformation(path, information))
        return tev::NoteLastError("fileGetLastWriteDate", path);
    date = CXTime(information.lastWrite);
    return true;
}

bool fileSetCreationDate(const CXTString<wchar_t>& path, const CXTime& date)
{
    return tev::platform::SetCreationTime(path, date.GetTime()) || tev::NoteLastError("fileSetCreationDate", path);
}

bool fileSetLastWriteDate(const CXTString<wchar_t>& path, const CXTime& date)
{
    return tev::platform::SetLastWriteTime(path, date.GetTime()) || tev::NoteLastError("fileSetLastWriteDate", path);
}
