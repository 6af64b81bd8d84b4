#pragma once

#include "base/TevTypes.h"

/// An object that several owners share, each of which calls Delete when done. The count is a plain integer: all owners
/// are on one thread at a time.
///
/// A copy takes over its source's count with everything else, and does not begin with 1: the
/// caller that copies such an object must know who owns the copy.
class TEVTOOLS_API CInstanciatedObject
{
protected:
    virtual ~CInstanciatedObject();

public:
    CInstanciatedObject() = default;
    CInstanciatedObject(const CInstanciatedObject&) = default;
    CInstanciatedObject& operator=(const CInstanciatedObject&) = default;

    unsigned int GetRefCount() const noexcept { return m_refCount; }
    /// Adds an owner and returns how many there are.
    unsigned int AddRef() noexcept { return ++m_refCount; }
    /// Removes an owner. The last one destroys the object: true.
    virtual bool Delete();

private:
    unsigned int m_refCount = 1;
};

/// As CInstanciatedObject::Delete; true for null.
TEVTOOLS_API bool DeleteMe(CInstanciatedObject* object);
