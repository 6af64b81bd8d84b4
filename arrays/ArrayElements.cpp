#include "arrays/ArrayElements.h"

#include "arrays/ArrayBlock.h"
#include "files/CXFile.h"

namespace tev
{
void RefuseElements(const CXArchive& archive)
{
    const CXFile* file = archive.GetFile();
    CXArchiveException::Throw(archiveGeneric, file == nullptr ? CXTString<wchar_t>() : file->GetFilePath());
}

int ArrayCount(unsigned __int64 count)
{
    if (count > static_cast<unsigned>(kMostElements))
        CXArchiveException::Throw(archiveEndOfFile);
    return static_cast<int>(count);
}

void StoreWideUnits(CXArchive& archive, const wchar_t* characters, int count)
{
    CXTString<char> units;
    if (count != 0 && !XEncodeText(characters, static_cast<std::size_t>(count), xEncodingUtf16, units))
        CXInvalidArgException::Throw();
    archive.WriteCount(units.GetLength64() / 2);
    archive.Write(units.GetConstBuffer(), units.GetLength64());
}

void LoadWideUnits(CXArchive& archive, CXTString<wchar_t>& characters)
{
    const std::size_t size = 2 * static_cast<std::size_t>(ArrayCount(archive.ReadCount()));
    const ArrayBlock<unsigned char> units = LoadArrayBlock(archive, size);
    characters.Empty();
    if (size != 0 && !XDecodeText(units.get(), size, xEncodingUtf16, characters))
        CXInvalidArgException::Throw();
}
} // namespace tev
