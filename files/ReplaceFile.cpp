#include "files/ReplaceFile.h"

#include "files/FileReplacement.h"
#include "objects/CXException.h"

void XReplaceFile(const CXTString<wchar_t>& path, const std::function<void(CXFile& file)>& write)
{
    if (!write)
        CXInvalidArgException::Throw();
    tev::FileReplacement replacement(path, tev::TemporaryName::Own, tev::FolderLock::None);
    write(replacement.Begin());
    replacement.Commit();
}
