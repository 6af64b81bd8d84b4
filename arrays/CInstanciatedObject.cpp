#include "arrays/CInstanciatedObject.h"

CInstanciatedObject::~CInstanciatedObject() = default;

bool CInstanciatedObject::Delete()
{
    if (m_refCount != 1)
    {
        --m_refCount;
        return false;
    }
    delete this;
    return true;
}

bool DeleteMe(CInstanciatedObject* object)
{
    return object == nullptr || object->Delete();
}
