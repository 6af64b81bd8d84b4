#include "files/TextFileInfo.h"

XTextInfo XExamineTextFile(const CXTString<wchar_t>& path)
{
    CXFile file(path.GetConstBuffer(),
                CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit | CXFile::typeBinary);
    const XTextInfo info = XExamineTextFile(file);
    file.Close();
    return info;
}

XTextInfo XExamineTextFile(CXFile& file)
{
    CXTextExaminer examiner;
    char block[16 * 1024];
    while (const unsigned int count = file.Read(block, sizeof block))
        examiner.Add(block, count);
    return examiner.GetInfo();
}
