#pragma once

#include "arrays/CElementArray.h"
#include "arrays/ElementKinds.h"
#include "tests/support/FileFailure.h"
#include "tests/support/Tracked.h"

namespace tev::test
{
using Element = Tracked<true>;

/// Elements that own memory, count how many live, and throw on request.
class TrackedElements : public CElementMethods
{
public:
    X_DECLARE_CLASS(TrackedElements)

    bool IsObject() const override { return true; }
    unsigned __int64 GetSizeOfElement() const override { return sizeof(Element); }
    unsigned GetTypeOfElement() const override { return XElementType("TRAK"); }
    unsigned GetBaseTypeOfElement() const override { return XElementType(" INT"); }
    // From integers, too.
    bool IsKindOf(const CElementMethods* other) const override
    {
        return CElementMethods::IsKindOf(other) || other->GetTypeOfElement() == GetBaseTypeOfElement();
    }
    void ConstructElement(void* element) override { new (element) Element(); }
    void DestructElement(void* element) override { static_cast<Element*>(element)->~Element(); }
    void CopyElement(void* target, const void* source) override
    {
        *static_cast<Element*>(target) = source == nullptr ? Element(-5) : *static_cast<const Element*>(source);
    }
    void CopyElement(void* target, const CElementMethods* targetMethods, const void* source,
                     const CElementMethods* sourceMethods) override
    {
        EXPECT_EQ(targetMethods, this);
        if (sourceMethods->GetTypeOfElement() == GetBaseTypeOfElement())
            *static_cast<Element*>(target) = Element(1000 + *static_cast<const int*>(source));
    }
    void SerializeElement(CXArchive& archive, void* element) override
    {
        int value = static_cast<Element*>(element)->Value();
        if (archive.IsStoring())
            archive << value;
        else
            archive >> value;
        *static_cast<Element*>(element) = Element(value);
    }
};

inline int ValueAt(const CElementArray& array, int index)
{
    return array.GetTypeOfElement() == XElementType(" INT") ? *static_cast<const int*>(array[index])
                                                            : static_cast<const Element*>(array[index])->Value();
}

inline std::vector<int> ValuesOf(const CElementArray& array)
{
    std::vector<int> values;
    for (const void* at = array.GetFirst(); at != nullptr; at = array.GetNext(at))
        values.push_back(ValueAt(array, static_cast<int>(values.size())));
    EXPECT_EQ(static_cast<int>(values.size()), array.GetSize());
    return values;
}

// A value in the form of an array's elements.
class Source
{
public:
    Source(const CElementArray& array, int value)
        : m_isInt(array.GetTypeOfElement() == XElementType(" INT")), m_int(value), m_element(m_isInt ? 0 : value)
    {
    }
    operator const void*() const { return m_isInt ? static_cast<const void*>(&m_int) : &m_element; }

private:
    bool m_isInt;
    int m_int;
    Element m_element;
};

inline void Fill(CElementArray& array, const std::vector<int>& values)
{
    array.SetSize(0);
    for (const int value : values)
        array.Add(Source(array, value));
}

// As Thrown, for calls that pass on what elements and the allocator throw.
constexpr int kByElement = -4;
inline int FailureOf(const std::function<void()>& call)
{
    try
    {
        return Thrown<CXArchiveException>(call);
    }
    catch (const std::bad_alloc&)
    {
        return kNoMemory;
    }
    catch (const std::runtime_error&)
    {
        return kByElement;
    }
}
} // namespace tev::test
