#pragma once

#include "objects/CXObject.h"

#include <vector>

/// The classes that are derived from the given one, directly or not, in the order of their names: the program's own and those
/// of the plug-ins that are open, each as CXRuntimeClass::FindRuntimeClass finds it. A record is valid until its plug-in is
/// closed; plug-ins may be opened and closed meanwhile. Safe from several threads at once.
[[nodiscard]] TEVTOOLS_API std::vector<const CXRuntimeClass*> XGetDerivedClasses(const CXRuntimeClass* base);
