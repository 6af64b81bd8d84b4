#pragma once

#include "files/CXFile.h"

#include <functional>

/// Saves a file so that it is never lost: the file at the path is replaced by what `write` writes, or stays as it is. The new
/// contents go into a temporary file in the same folder, are flushed to the disk, and then renamed over the file, whose
/// permissions and ownership they get. A reader, and a program that starts after a crash or a power failure, finds the old
/// file or the new one. A symbolic link stays one, and leads to the new file.
///
/// What `write` throws is passed on, and the file stays: CXUserException ends a save that a person has cancelled. What the
/// system refuses throws CXFileException. So does a write that failed and whose exception was caught, as the destructor of
/// an archive does: at the end, and the file stays. `write` may close the file or leave it open.
///
/// No lock is held meanwhile: of two programs that save the same file, the last one counts. For a preference file take
/// XUpdatePreferences. Safe from several threads at once.
TEVTOOLS_API void XReplaceFile(const CXTString<wchar_t>& path, const std::function<void(CXFile& file)>& write);
