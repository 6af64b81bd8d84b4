// Random operations on CXArray compared with a vector and the rules of growth, and arrays loaded from archives made of
// anything. The first byte chooses, the others are operations, four bytes each, or the archive.

#include "arrays/CXArray.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "tests/support/ArrayModel.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace
{
void Check(bool holds)
{
    if (!holds)
        std::abort();
}

template <class TYPE>
void Operate(const std::uint8_t* data, std::size_t size, bool plainData)
{
    ArrayModel<TYPE> model(plainData);
    for (; size >= 4; data += 4, size -= 4)
    {
        Check(DoArrayOperation(model, data[0], data[1], data[2], data[3]));
        Check(model.IsWhole());
    }
}

// What was loaded is stored and loaded again, and is the same. A size from the input costs no more memory than the input.
template <class TYPE>
void Load(const std::uint8_t* data, std::size_t size)
{
    CXMemFile file(data, size, false);
    CXArray<TYPE> array;
    try
    {
        CXArchive archive(&file, xArchiveLoad);
        array.Serialize(archive);
    }
    catch (CXArchiveException* exception)
    {
        Check(exception->GetCause() == archiveEndOfFile);
        exception->Delete();
    }
    Check(static_cast<std::size_t>(array.GetCapacity()) * sizeof(TYPE) <= 0x20000 + 64 * size);

    CXMemFile stored;
    {
        CXArchive archive(&stored, xArchiveStore);
        array.Serialize(archive);
        archive.Close();
    }
    stored.Seek(0, CXFile::begin);
    CXArray<TYPE> again;
    CXArchive archive(&stored, xArchiveLoad);
    again.Serialize(archive);
    Check(again.GetSize() == array.GetSize());
    for (int i = 0; i < array.GetSize(); ++i)
        Check(again[i] == array[i]);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t kind = *data++;
    --size;
    switch (kind % 7)
    {
    case 0:
        Operate<int>(data, size, true);
        break;
    case 1:
        Operate<CXTString<wchar_t>>(data, size, false);
        break;
    case 2:
        Operate<CXTString<wchar_t>>(data, size, true);
        break;
    case 3:
        Load<int>(data, size);
        break;
    case 4:
        Load<wchar_t>(data, size);
        break;
    case 5:
        Load<CXTString<wchar_t>>(data, size);
        break;
    default:
        Load<CXTString<char>>(data, size);
    }
    return 0;
}
