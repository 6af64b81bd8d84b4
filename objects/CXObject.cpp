#include "objects/CXObject.h"

X_CONSTINIT const CXRuntimeClass CXObject::classCreatorCXObject = {"CXObject", sizeof(CXObject), 1, nullptr, nullptr};

namespace
{
const XClassDeclaration g_declaration(&CXObject::classCreatorCXObject);
} // namespace

CXObject::~CXObject() = default;

const CXRuntimeClass* CXObject::GetRuntimeClassDescriptor() const
{
    return &classCreatorCXObject;
}

void CXObject::Serialize(CXArchive&) {}

bool CXObject::IsKindOf(const CXObject* object, const CXRuntimeClass* type)
{
    return object != nullptr && type != nullptr && object->GetRuntimeClassDescriptor()->IsDerivedFrom(type);
}

bool CXRuntimeClass::IsDerivedFrom(const CXRuntimeClass* derived, const CXRuntimeClass* base) noexcept
{
    for (; derived != nullptr; derived = derived->m_base)
    {
        if (derived == base)
            return true;
    }
    return false;
}
