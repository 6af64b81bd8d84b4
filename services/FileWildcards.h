#pragma once

#include "maps/CHashTable.h"
#include "text/CXTString.h"

// Lists of extensions and name patterns, as users type them into a search box, and matching names with them.
// Letters are put in lower case by the library's own table, whatever the locale. Safe from several threads at once.

/// Turns a list into patterns in lower case, separated by one blank, each once. Words are separated by blanks, commas
/// and semicolons; a word without a '?' matches anywhere in a name (`tree` gives `*tree*`); a word in double quotes is
/// an extension (`"bmp"` gives `*.bmp`) or, where it has a '.' further in, a whole name. Only the first 259 characters
/// count. Unless `singleWords`, quotes may hold blanks. New patterns are added to `set` and to the result.
/// Throws where there is no memory, and the set may have some of them then.
TEVTOOLS_API CXTString<wchar_t> fileCleanExtensionList(const CXTString<wchar_t>& list, bool singleWords,
                                                       CHashTable<CXTString<wchar_t>>* set = nullptr);

/// Cleans the list in place and replaces what the set holds by its patterns. Returns their number.
TEVTOOLS_API unsigned int fileGetHashFromExtensionList(CXTString<wchar_t>& list, CHashTable<CXTString<wchar_t>>& set,
                                                       bool singleWords);

/// Whether the whole name matches: '*' stands for any characters, '?' for one. Without case, two characters are equal
/// whose low bytes are the same ASCII letter and whose other bytes are the same; but from the pattern's first '*' on
/// they are always compared exactly. This is deliberate. Takes time up to the product of both lengths.
[[nodiscard]] TEVTOOLS_API bool fileMatchWilcards(const CXTString<wchar_t>& name, const CXTString<wchar_t>& pattern,
                                                  bool caseSensitive) noexcept;

/// Whether the name, in lower case, matches one of the patterns, which fileCleanExtensionList has made.
[[nodiscard]] TEVTOOLS_API bool fileMatchWilcards(const CXTString<wchar_t>& name,
                                                  const CHashTable<CXTString<wchar_t>>& set);
