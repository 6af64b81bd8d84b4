// How element arrays go through an archive.

#include "arrays/ArrayBlock.h"
#include "arrays/ArrayElements.h"
#include "arrays/CElementArray.h"
#include "files/CXArchive.h"
#include "files/CXFile.h"
#include "objects/CXArchiveException.h"

#include <algorithm>
#include <cstdint>

namespace
{
// Objects whose count comes from untrusted input are made in steps, the first one of so many bytes.
constexpr unsigned __int64 kFirstLoadStep = 0x10000;
} // namespace

void CElementArray::Serialize(CXArchive& archive)
{
    const tev::ExclusiveUse use(m_use);
    if (archive.IsStoring())
        Store(archive);
    else
        Load(archive);
}

void CElementArray::Store(CXArchive& archive)
{
    if (m_methods == nullptr)
        CXArchiveException::Throw(archiveBadClass);
    archive.WriteCount(static_cast<unsigned>(m_size));
    archive << m_growFactor;
    archive.WriteClass(m_methods->GetRuntimeClassDescriptor());
    if (!m_isObject)
    {
        archive.Write(m_data, Bytes(m_size));
        return;
    }
    for (int i = 0; i < m_size; ++i)
        m_methods->SerializeElement(archive, Address(i));
}

void CElementArray::Load(CXArchive& archive)
{
    const int count = tev::ArrayCount(archive.ReadCount());
    int growFactor = 0;
    archive >> growFactor; // new methods begin with automatic growth, whatever was stored
    const CXRuntimeClass* type = archive.ReadClass(CElementMethods::GetThisRuntimeClassDescriptor(), nullptr, nullptr);
    auto* methods = static_cast<CElementMethods*>(type->CreateObject());
    if (methods == nullptr || methods->GetSizeOfElement() == 0)
    {
        DeleteMe(methods);
        CXArchiveException::Throw(archiveBadClass, archive.GetFile()->GetFilePath());
    }
    SetMethods(methods);
    if (m_isObject)
        LoadObjects(archive, count);
    else
        LoadBytes(archive, count);
}

void CElementArray::LoadBytes(CXArchive& archive, int count)
{
    if (count != 0 && m_elementSize > static_cast<std::size_t>(PTRDIFF_MAX) / static_cast<unsigned>(count))
        CXArchiveException::Throw(archiveEndOfFile, archive.GetFile()->GetFilePath());
    m_data = tev::LoadArrayBlock(archive, Bytes(count)).release();
    m_size = m_slots = m_constructed = count;
    SetCapacity(count);
    SetSize(count, false, -1); // for a class that is derived from this one
}

void CElementArray::LoadObjects(CXArchive& archive, int count)
{
    const auto firstStep = static_cast<int>(std::max<unsigned __int64>(kFirstLoadStep / m_elementSize, 1));
    for (int done = 0; done < count;)
    {
        const int end = done + std::min(count - done, std::max(done, firstStep));
        Resize(end, false, -1);
        for (; done < end; ++done)
            m_methods->SerializeElement(archive, Address(done));
    }
    FreeExtra();
}
