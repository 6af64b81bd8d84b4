#include "arrays/ElementKinds.h"

X_IMPLEMENT_CLASS(CXByteElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXIntElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXUIntElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXInt64Elements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXUInt64Elements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXFloatElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXDoubleElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(CXStringElements, CElementMethods, 1)
