#include "files/RegularFile.h"

#include "objects/CXFileException.h"
#include "platform/FileSystem.h"

#include <cerrno>

namespace tev
{
RegularFile::RegularFile() : CXFile(true) {}

bool RegularFile::Open(const wchar_t* path, CXFileException& error)
{
    Abort();
    SetFilePath(path);
    platform::FileOpenMode mode;
    mode.regularOnly = true;
    m_handle = platform::CurrentFileSystem().Open(path, mode);
    m_closeOnDelete = true;
    if (m_handle != nullptr)
        return true;
    if (errno == EINVAL)
        CXFileException::ThrowErrno(fileInvalidFile, 0, path, &error);
    else
        CXFileException::ThrowOsError(fileGeneric, path, &error);
    return false;
}
} // namespace tev
