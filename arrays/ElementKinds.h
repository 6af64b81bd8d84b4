#pragma once

#include "arrays/CElementMethods.h"
#include "files/CXArchive.h"
#include "text/CXTString.h"

#include <cstddef>
#include <new>
#include <type_traits>

// Element kinds for CElementArray, and templates to make others. A kind of one's own is a class over one of the templates
// that is created by name:
//
//     class CVertexElements : public CXPlainElements<Vertex, XElementType("VERT")>
//     {
//     public:
//         X_DECLARE_CLASS(CVertexElements)
//     };
//     X_IMPLEMENT_CLASS(CVertexElements, CElementMethods, 1)
//
// Archives record the name of the class, so it must stay. A `new` kind belongs to the array that it is given to.

/// The number of an element type that is spelled in four characters.
constexpr unsigned int XElementType(const char (&text)[5]) noexcept
{
    unsigned int type = 0;
    for (int i = 0; i < 4; ++i)
        type = type << 8 | static_cast<unsigned char>(text[i]);
    return type;
}

/// Elements that are plain bytes, which is how they are copied and stored: numbers and structures of them, without pointers.
/// An archive is read by programs whose structures look the same, padding and byte order too. New elements are zero, or
/// what the structure's initialisers say.
template <class T, unsigned int TYPE, unsigned int BASE_TYPE = TYPE>
class TEVTOOLS_API CXPlainElements : public CElementMethods
{
    static_assert(std::is_trivially_copyable_v<T>, "take CXObjectElements for elements that own something");
    static_assert(alignof(T) <= alignof(std::max_align_t), "the array aligns elements as malloc does");

public:
    unsigned __int64 GetSizeOfElement() const override { return sizeof(T); }
    unsigned int GetTypeOfElement() const override { return TYPE; }
    unsigned int GetBaseTypeOfElement() const override { return BASE_TYPE; }
    void ConstructElement(void* element) override { new (element) T(); }

protected:
    ~CXPlainElements() override = default;
};

/// Elements that own something: they are assigned, and go through the archive's operators for their type. A type that does
/// not survive being moved as bytes, because it points into itself, does not go: the std::string of many libraries is one.
template <class T, unsigned int TYPE, unsigned int BASE_TYPE = TYPE>
class TEVTOOLS_API CXObjectElements : public CElementMethods
{
    static_assert(alignof(T) <= alignof(std::max_align_t), "the array aligns elements as malloc does");

public:
    bool IsObject() const override { return true; }
    unsigned __int64 GetSizeOfElement() const override { return sizeof(T); }
    unsigned int GetTypeOfElement() const override { return TYPE; }
    unsigned int GetBaseTypeOfElement() const override { return BASE_TYPE; }
    void ConstructElement(void* element) override { new (element) T(); }
    void DestructElement(void* element) override { static_cast<T*>(element)->~T(); }
    using CElementMethods::CopyElement;
    /// Without a source the element becomes a new one.
    void CopyElement(void* target, const void* source) override
    {
        if (source == nullptr)
            *static_cast<T*>(target) = T();
        else
            *static_cast<T*>(target) = *static_cast<const T*>(source);
    }
    void SerializeElement(CXArchive& archive, void* element) override
    {
        if (archive.IsStoring())
            archive << *static_cast<const T*>(element);
        else
            archive >> *static_cast<T*>(element);
    }

protected:
    ~CXObjectElements() override = default;
};

/// Arrays of bytes.
class TEVTOOLS_API CXByteElements : public CXPlainElements<unsigned char, XElementType("UCHR")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXByteElements)

protected:
    ~CXByteElements() override = default;
};

/// Arrays of `int`.
class TEVTOOLS_API CXIntElements : public CXPlainElements<int, XElementType(" INT")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXIntElements)

protected:
    ~CXIntElements() override = default;
};

/// Arrays of `unsigned int`.
class TEVTOOLS_API CXUIntElements : public CXPlainElements<unsigned int, XElementType("UINT")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXUIntElements)

protected:
    ~CXUIntElements() override = default;
};

/// Arrays of `__int64`.
class TEVTOOLS_API CXInt64Elements : public CXPlainElements<__int64, XElementType("LLON")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXInt64Elements)

protected:
    ~CXInt64Elements() override = default;
};

/// Arrays of `unsigned __int64`.
class TEVTOOLS_API CXUInt64Elements : public CXPlainElements<unsigned __int64, XElementType("ULLO")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXUInt64Elements)

protected:
    ~CXUInt64Elements() override = default;
};

/// Arrays of `float`.
class TEVTOOLS_API CXFloatElements : public CXPlainElements<float, XElementType("FLOA")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXFloatElements)

protected:
    ~CXFloatElements() override = default;
};

/// Arrays of `double`.
class TEVTOOLS_API CXDoubleElements : public CXPlainElements<double, XElementType("DOUB")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXDoubleElements)

protected:
    ~CXDoubleElements() override = default;
};

/// Arrays of wide texts.
class TEVTOOLS_API CXStringElements : public CXObjectElements<CXTString<wchar_t>, XElementType("UNIC")>
{
public:
    X_DECLARE_LIBRARY_CLASS(CXStringElements)

protected:
    ~CXStringElements() override = default;
};
