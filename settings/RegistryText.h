#pragma once

#include "files/CXFile.h"
#include "text/CXTString.h"
#include "text/Language.h"
#include "text/TextEncoding.h"

// The registry as the text that the editor of Windows writes and reads (.reg), so that settings are carried over.
// What fails leaves the reason for XLastFailure(), too. Safe from several threads at once.

/// What kept a text from being imported.
enum class XRegistryFault
{
    None,
    Header,  ///< the first line names no version that is known
    Key,     ///< a line in brackets is not the path of a key
    NoKey,   ///< a value stands before the first key or below a deleted one
    Value,   ///< a line is not a name, "=" and data
    Registry ///< the registry refused the change, or could not be written
};

TEVTOOLS_API CXTString<wchar_t> XGetText(XRegistryFault fault, XLanguage language = XGetLanguage());

/// How an import of .reg text went.
struct XRegistryImport
{
    XRegistryFault m_fault = XRegistryFault::None;
    int m_line = 0;        ///< counted from 1, where the fault is; 0 for one of the registry as a whole
    int m_systemError = 0; ///< the registry's code, see CRegUtil::GetLastError; 13 for a fault of the text
};

/// Imports a text of version 5.00 or REGEDIT4, whose keys all begin with the full name of a root. It is imported as a
/// whole or, in a registry of one file, not at all. A text in hexadecimal, hex(2) or hex(7), that has no terminator
/// gets one. A key in brackets that begin with '-' is deleted with all below it, and a value of "-" is deleted; either
/// may be missing. Where a value occurs twice the last one counts. Lines that begin with ';' are comments. Takes about
/// four times the size of the text in memory.
TEVTOOLS_API bool XImportRegistry(const CXTString<wchar_t>& text, XRegistryImport& result);

/// Writes a key and all below it, as they were at one moment: UTF-16 little-endian behind a mark, or UTF-8 without one
/// for every other encoding. `path` begins with the name of a root, else it is below HKEY_CURRENT_USER. False, with the
/// code and nothing written, where the key cannot be read, or (code 13) the name of a key in it contains a line end.
/// Throws CXFileException when the file cannot be written. The whole tree is held in memory.
[[nodiscard]] TEVTOOLS_API bool XExportRegistry(const CXTString<wchar_t>& path, CXFile& file, xStringEncoding encoding,
                                                int& systemError);

/// Deletes a key and all below it, in one step, while they are what XExportRegistry wrote of this path: `expected`, with or
/// without the mark before it. Else false, and the code is 1237, so that what another program changed meanwhile is not lost.
/// A root cannot be deleted (code 5).
TEVTOOLS_API bool XRemoveRegistryKey(const CXTString<wchar_t>& path, const CXTString<wchar_t>& expected,
                                     int& systemError);
