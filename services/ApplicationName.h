#pragma once

#include "text/CXTString.h"

/// The application's name, used in the log and in the folders of its data: the file name of the running program without
/// extension, until a host sets another. Safe from several threads at once.
TEVTOOLS_API CXTString<wchar_t> XGetApplicationName();

/// Sets the name for the whole process; for the host, not for its plug-ins. An empty name restores the default.
/// A name with a path separator, "." and ".." are invalid arguments.
TEVTOOLS_API void XSetApplicationName(const CXTString<wchar_t>& name);
