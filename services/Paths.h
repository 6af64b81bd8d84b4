#pragma once

#include "services/CPathString.h"
#include "values/CXTime.h"

// The folders of an application's data, and queries about the file at a path. Links are followed.
// Safe from several threads at once, as long as no thread changes the environment meanwhile.

/// The folder for the application's data of this user, created where it is missing: TEVTOOLS_USER_DATA, else the
/// application's name beneath the system's place for them ($XDG_DATA_HOME or ~/.local/share). Throws CXFileException
/// when it cannot be created.
TEVTOOLS_API CPathString GetUserApplicationDataPath();

/// The folder for the application's data of all users, created where it is missing: TEVTOOLS_COMMON_DATA, else the
/// application's name beneath /var/lib; the folder of this user where that cannot be written to.
TEVTOOLS_API CPathString GetCommonApplicationDataPath();

/// Creates an empty folder among the temporary files, for this user alone, and returns its path. Its name begins with
/// `prefix`, which has no separator. The caller removes it. Throws CXFileException when it cannot be created.
[[nodiscard]] TEVTOOLS_API CPathString fileCreateTemporaryFolder(const CXTString<wchar_t>& prefix);

/// The first of "name (1).ext", "name (2).ext", ... that does not exist. Another program may create it meanwhile.
[[nodiscard]] TEVTOOLS_API CPathString fileNextNumberedName(const CPathString& path);

/// Whether anything exists at the path.
[[nodiscard]] TEVTOOLS_API bool fileExists(const CXTString<wchar_t>& path);
[[nodiscard]] TEVTOOLS_API bool fileIsFile(const CXTString<wchar_t>& path);
[[nodiscard]] TEVTOOLS_API bool fileIsDirectory(const CXTString<wchar_t>& path);

/// Whether both paths lead to the same existing file or folder, also through links, hard links, "." and "..". False
/// when one of them does not exist.
[[nodiscard]] TEVTOOLS_API bool fileIsSameFile(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b);
/// As fileIsSameFile, for folders only.
[[nodiscard]] TEVTOOLS_API bool fileIsSameDirectory(const CXTString<wchar_t>& a, const CXTString<wchar_t>& b);

// Dates of files and folders. False, with the date unchanged, when there is no file or the system refuses; a file
// system may keep no date of creation, and Linux has no call to set it. XLastFailure() says why.

TEVTOOLS_API bool fileGetCreationDate(const CXTString<wchar_t>& path, CXTime& date);
TEVTOOLS_API bool fileGetLastWriteDate(const CXTString<wchar_t>& path, CXTime& date);
TEVTOOLS_API bool fileSetCreationDate(const CXTString<wchar_t>& path, const CXTime& date);
TEVTOOLS_API bool fileSetLastWriteDate(const CXTString<wchar_t>& path, const CXTime& date);
