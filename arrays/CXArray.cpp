#include "arrays/CXArray.h"

namespace
{
X_CONSTINIT const CXRuntimeClass g_record = {"CXArray", sizeof(CXArray<int>), 1 | xSchemaNotSerializable,
                                             &CXObject::classCreatorCXObject, nullptr};
const XClassDeclaration g_declaration(&g_record);
} // namespace

const CXRuntimeClass* tev::GetArrayClass() noexcept
{
    return &g_record;
}
