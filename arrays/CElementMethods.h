#pragma once

#include "arrays/CInstanciatedObject.h"
#include "objects/CXObject.h"

class CXArchive;

/// Describes the elements of a CElementArray: their size, and how they are constructed, destructed, copied and stored.
/// One object of it serves any number of arrays. Kinds for common elements, and templates to make others, are in
/// arrays/ElementKinds.h; a kind that is written by hand is a class that is created by name, so that archives find it.
/// One thread at a time.
///
/// Arrays move elements as bytes at any time, so an element must not hold a pointer into itself, nor be known to
/// others by its address. Elements are contiguous, without padding, and the first is aligned as by malloc.
class TEVTOOLS_API CElementMethods : public CXObject, public CInstanciatedObject
{
protected:
    ~CElementMethods() override;

public:
    X_DECLARE_LIBRARY_CLASS(CElementMethods)

    CElementMethods() = default;
    CElementMethods(const CElementMethods&) = default;
    CElementMethods& operator=(const CElementMethods&) = default;

    /// False, as here, when elements are plain bytes: they are copied as such, stored as such, and never destructed, and of
    /// several that begin together one is constructed and copied.
    virtual bool IsObject() const;
    /// Whether elements of the other kind can be copied into such of this kind. Here: kinds of the same type can.
    virtual bool IsKindOf(const CElementMethods* other) const;
    using CXObject::IsKindOf;

    /// Bytes of an element, at least 1; must always be the same.
    virtual unsigned __int64 GetSizeOfElement() const = 0;
    /// Four characters, first one highest. Kinds of the same type must have the same elements.
    virtual unsigned int GetTypeOfElement() const = 0;
    /// The type of the kind that this one is made from; its own when there is none.
    virtual unsigned int GetBaseTypeOfElement() const = 0;

    /// Makes an element in raw memory.
    virtual void ConstructElement(void* element) = 0;
    /// Must not throw. Does nothing here.
    virtual void DestructElement(void* element);
    /// Copies between constructed elements. Called on the methods of the target. Does nothing here.
    virtual void CopyElement(void* target, const CElementMethods* targetMethods, const void* source,
                             const CElementMethods* sourceMethods);
    /// As above, for two elements of this kind; the source may be null where a caller adds one without a value.
    virtual void CopyElement(void* target, const void* source);
    /// Reads or writes an element, as the archive's direction says. Called where IsObject is true. Does nothing here. It
    /// should take at least a byte for each element: a count in a hostile archive is only held back by the bytes behind it.
    virtual void SerializeElement(CXArchive& archive, void* element);
};
