#pragma once

#include "text/CXTString.h"

/// The application's name, as it stands in the log and in the folders of its data: that of the running program without
/// its extension, until a host chooses another. Safe from several threads at once.
TEVTOOLS_API CXTString<wchar_t> XGetApplicationName();

/// Chooses the name for the whole process; a plug-in names itself so, not its host. An empty name takes the choice back.
/// A name with a path separator, "." and ".." are invalid arguments.
TEVTOOLS_API void XSetApplicationName(const CXTString<wchar_t>& name);
