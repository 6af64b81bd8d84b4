// Elements that go from one array to another.

#include "arrays/ArrayGrowth.h"
#include "arrays/CElementArray.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"

#include <cstring>
#include <memory>

bool CElementArray::HasSameElements(const CElementArray& other) const
{
    return m_methods != nullptr && other.m_methods != nullptr && m_elementSize == other.m_elementSize &&
           m_isObject == other.m_isObject && GetTypeOfElement() == other.GetTypeOfElement();
}

bool CElementArray::IsEitherKindOf(const CElementArray& other) const
{
    if (m_methods == nullptr || other.m_methods == nullptr)
        return false;
    // Kinds that differ although they have the same type cannot copy each other's elements safely.
    return (HasSameElements(other) || GetTypeOfElement() != other.GetTypeOfElement()) &&
           (m_methods->IsKindOf(other.m_methods) || other.m_methods->IsKindOf(m_methods));
}

bool CElementArray::CanCopy(const CElementArray& other) const
{
    return HasSameElements(other) || IsEitherKindOf(other);
}

// Between elements that are there, of kinds of which one can copy the other.
void CElementArray::CopyRun(int targetIndex, const CElementArray& other, int sourceIndex, int count)
{
    if (count == 0)
        return;
    if (!HasSameElements(other))
    {
        for (int i = 0; i < count; ++i)
            m_methods->CopyElement(Address(targetIndex + i), m_methods, other.Address(sourceIndex + i),
                                   other.m_methods);
        return;
    }
    if (!m_isObject)
    {
        std::memmove(Address(targetIndex), other.Address(sourceIndex), Bytes(count));
        return;
    }
    const bool backwards = this == &other && targetIndex > sourceIndex;
    for (int i = 0; i < count; ++i)
    {
        const int at = backwards ? count - 1 - i : i;
        m_methods->CopyElement(Address(targetIndex + at), other.Address(sourceIndex + at));
    }
}

int CElementArray::Append(const CElementArray& other, bool keepMemory)
{
    const tev::ExclusiveUse use(m_use);
    if (!IsEitherKindOf(other))
    {
        tev::NoteBadArgument("CElementArray::Append");
        return -1;
    }
    const int sizeBefore = m_size;
    const int count = other.m_size;
    if (count > tev::kMostElements - sizeBefore)
        tev::ThrowInvalidArgument();
    if (count == 0)
        return sizeBefore;
    Resize(sizeBefore + count, keepMemory, -1);
    try
    {
        CopyRun(sizeBefore, other, 0, count);
    }
    catch (...)
    {
        m_size = sizeBefore;
        throw;
    }
    return sizeBefore;
}

bool CElementArray::Copy(const CElementArray& other, bool keepMemory)
{
    const tev::ExclusiveUse use(m_use);
    if (this == &other)
        return true;
    if (!CanCopy(other))
        return tev::NoteBadArgument("CElementArray::Copy");
    Resize(other.m_size, keepMemory, other.m_growFactor);
    CopyRun(0, other, 0, other.m_size);
    return true;
}

bool CElementArray::Copy(int targetIndex, int sourceIndex, const CElementArray& other)
{
    const tev::ExclusiveUse use(m_use);
    if (targetIndex < 0 || sourceIndex < 0 || sourceIndex > other.m_size)
        tev::ThrowInvalidArgument();
    if (!CanCopy(other))
        return tev::NoteBadArgument("CElementArray::Copy");
    const int count = other.m_size - sourceIndex;
    if (count > tev::kMostElements - targetIndex)
        tev::ThrowInvalidArgument();
    const int sizeBefore = m_size;
    if (count != 0 && targetIndex + count > m_size)
        Resize(targetIndex + count, true, -1);
    try
    {
        CopyRun(targetIndex, other, sourceIndex, count);
    }
    catch (...)
    {
        m_size = sizeBefore;
        throw;
    }
    return true;
}

CElementArray* CElementArray::Duplicate(bool keepMemory) const
{
    auto copy = std::make_unique<CElementArray>();
    if (m_methods != nullptr)
        m_methods->AddRef();
    copy->SetMethods(m_methods);
    if (m_methods != nullptr)
        copy->Copy(*this, keepMemory);
    return copy.release();
}
