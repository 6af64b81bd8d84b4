// Loads archives made of anything. The first byte chooses how, the others are the archive. Whatever they say, loading ends
// with the bytes or with a documented exception, and every object that was created is still known.

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "tests/support/BufferedMemFile.h"

#include <cstddef>
#include <cstdint>

namespace
{
class FuzzNode : public CXObject
{
public:
    X_DECLARE_CLASS(FuzzNode)
    void Serialize(CXArchive& archive) override
    {
        archive >> m_value >> m_name >> m_left >> m_right;
        m_child = archive.ReadObject(GetThisRuntimeClassDescriptor());
    }

private:
    int m_value = 0;
    CXTString<wchar_t> m_name;
    CXObject* m_left = nullptr;
    CXObject* m_right = nullptr;
    CXObject* m_child = nullptr;
};

class FuzzBlock : public CXObject
{
public:
    X_DECLARE_CLASS(FuzzBlock)
    void Serialize(CXArchive& archive) override
    {
        archive >> m_text;
        const unsigned __int64 count = archive.ReadCount();
        char bytes[64];
        for (unsigned __int64 done = 0; done < count && archive.Read(bytes, sizeof bytes) != 0;)
            done += sizeof bytes;
        archive.SerializeClass(nullptr);
    }

private:
    CXTString<char> m_text;
};

X_IMPLEMENT_CLASS(FuzzNode, CXObject, 2 | xSchemaVersionable)
X_IMPLEMENT_CLASS(FuzzBlock, CXObject, 1)

void LoadAll(CXFile& file, unsigned mode, unsigned bufferSize)
{
    CXArchive archive(&file, mode, bufferSize);
    archive.SetNestingLimit(200);
    archive.SetBudget(1 << 20, 1000, 200);
    // Without strict checks a reference may name a class, and the pointer must not be touched unless its class was asked.
    const CXRuntimeClass* requested =
        (mode & xArchiveStrict) != 0 ? nullptr : FuzzNode::GetThisRuntimeClassDescriptor();
    try
    {
        for (;;)
            archive.ReadObject(requested);
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    for (CXObject* object : archive.GetCreatedObjects())
        delete object;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const unsigned mode = xArchiveLoad | ((data[0] & 1) != 0 ? xArchiveStrict : 0);
    const unsigned bufferSize = 128 + (data[0] >> 2);
    if ((data[0] & 2) != 0)
    {
        CXMemFile file(data + 1, size - 1, false);
        LoadAll(file, mode, bufferSize);
    }
    else
    {
        tev::test::BufferedMemFile file(data + 1, size - 1, false);
        LoadAll(file, mode, bufferSize);
    }
    return 0;
}
