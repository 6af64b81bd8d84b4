#include "arrays/CElementMethods.h"

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CElementMethods, CXObject, 1)

CElementMethods::~CElementMethods() = default;

bool CElementMethods::IsObject() const
{
    return false;
}

bool CElementMethods::IsKindOf(const CElementMethods* other) const
{
    return other != nullptr && other->GetTypeOfElement() == GetTypeOfElement();
}

void CElementMethods::DestructElement(void*) {}

void CElementMethods::CopyElement(void*, const CElementMethods*, const void*, const CElementMethods*) {}

void CElementMethods::CopyElement(void*, const void*) {}

void CElementMethods::SerializeElement(CXArchive&, void*) {}
