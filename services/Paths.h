#pragma once

#include "services/CPathString.h"
#include "values/CXTime.h"

// Where an application keeps its data, and questions about what lies at a path. Links are followed.
// Safe from several threads at once, as long as nobody changes the environment meanwhile.

/// The folder for the application's data of this user, created where it is missing: TEVTOOLS_USER_DATA, else the
/// application's name beneath the system's place for them ($XDG_DATA_HOME or ~/.local/share). Throws CXFileException when
/// it cannot be created.
TEVTOOLS_API CPathString GetUserApplicationDataPath();

/// The folder for the application's data of all users, created where it is missing: TEVTOOLS_COMMON_DATA, else the
/// application's name beneath /var/lib; the folder of this user where that cannot be written to.
TEVTOOLS_API CPathString GetCommonApplicationDataPath();

/// Creates an empty folder among the temporary files, for this user alone, and returns its path. Its name begins with
/// `prefix`, which holds no separator. It is the caller's to remove. Throws CXFileException when it cannot be created.
TEVTOOLS_API CPathString fileCreateTemporaryFolder(const CXTString<wchar_t>& prefix);

/// The first of "name (1).ext", "name (2).ext", ... that does not exist. Another program may create it meanwhile.
TEVTOOLS_API CPathString fileNextNumberedName(const CPathString& path);

/// Whether anything lies there.
TEVTOOLS_API bool fileExists(const CXTString<wchar_t>& path);
TEVTOOLS_API bool fileIsFile(const CXTString<wchar_t>& path);
TEVTOOLS_API bool fileIsDirectory(const CXTString<wchar_t>& path);

/// Whether both paths lead to one existing file or folder, however they are spelled: by links, hard links too, or with
/// "." and "..". False when one of them leads nowhere.
TEVTOOLS_API bool fileIsSameFile(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b);
/// As fileIsSameFile, for folders only.
TEVTOOLS_API bool fileIsSameDirectory(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b);

// Dates of files and folders. False, with the date unchanged, when there is no file or the system refuses; a file system
// may keep no date of creation, and Linux lets nobody set it.

TEVTOOLS_API bool fileGetCreationDate(const CXTString<wchar_t>& path, CXTime& date);
TEVTOOLS_API bool fileGetLastWriteDate(const CXTString<wchar_t>& path, CXTime& date);
TEVTOOLS_API bool fileSetCreationDate(const CXTString<wchar_t>& path, const CXTime& date);
TEVTOOLS_API bool fileSetLastWriteDate(const CXTString<wchar_t>& path, const CXTime& date);
