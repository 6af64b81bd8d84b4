#include "arrays/ElementKinds.h"

X_IMPLEMENT_LIBRARY_CLASS(CXByteElements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXIntElements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXUIntElements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXInt64Elements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXUInt64Elements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXFloatElements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXDoubleElements, CElementMethods, 1)
X_IMPLEMENT_LIBRARY_CLASS(CXStringElements, CElementMethods, 1)
