#pragma once

#include "objects/CXObject.h"
#include "text/CXTString.h"

#include <vector>

// Classes that were declared under one name, in two plug-ins for instance: archives and the registry find the later one
// only. X_IMPLEMENT_NAMED_CLASS gives a class another name.
// Safe from several threads at once.

/// Two records of one name that were declared at the same time. A place is the line of the X_IMPLEMENT_ macro, where
/// that is known, and the program or plug-in.
struct XClassClash
{
    CXTString<char> m_name;
    CXTString<wchar_t> m_hiddenPlace; ///< of the class that was declared first
    CXTString<wchar_t> m_place;       ///< of the class that is found by the name
};

/// The clashes of this process so far, each pair of places once, in their order.
TEVTOOLS_API std::vector<XClassClash> XGetClassClashes();

/// Has `report` called whenever a clash is found: on the thread that declares the class, mostly while a plug-in is opened,
/// so it should not wait for another thread. What it throws is dropped. Null for no report. Returns the previous one.
/// InitFerngateApplication sets one that writes to the log, and writes the clashes so far.
using XClassClashReport = void (*)(const XClassClash& clash);
TEVTOOLS_API XClassClashReport XSetClassClashReport(XClassClashReport report) noexcept;
