#pragma once

#include "arrays/CXArray.h"
#include "services/CFileExt.h"

// The process-wide registry of file types, by class and by extension. It holds the library's own types from the start.
// Where several types share an extension, the first one registered is its default, unless a later one is preferred.
// Names are paths or URLs; their extensions are compared case-insensitively, whatever the locale. Records are returned
// as copies. Functions that find nothing return 0, false or an empty text. Safe from several threads at once.

/// The extension with its dot, empty where there is none: of a path, what follows the last dot of the last component;
/// of a URL (a scheme of two letters or more and "://"), what follows the last dot before a '?'.
TEVTOOLS_API CXTString<wchar_t> fileGetExtension(const CXTString<wchar_t>& path);

/// Registers a type. A 3D scene that can be saved (0x2) gets the property 0x80, in `type` too. The record of a
/// registered class is replaced, but keeps its loader or saver where the new one has none, and then its properties as
/// well, and stays registered for its former extensions. Without memory nothing is registered: CXInvalidArgException where
/// a list has no room, else std::bad_alloc.
TEVTOOLS_API void fileRegisterFile(CFileExt& type);
/// Mode 3: removes the class. Mode 1: removes its loader; 2: removes its saver. Does nothing for class 0, and before
/// any other function of the registry was called.
TEVTOOLS_API void fileUnregisterFile(unsigned int fileClass, unsigned int mode);

/// The types sorted by description, case-insensitively, to be released with fileFreeRegisteredFiles. The filter selects
/// types of any kind in its upper half, if it has one, that can be loaded (0x1) and saved (0x2).
[[nodiscard]] TEVTOOLS_API CFileExt* fileGetRegisteredFiles(unsigned int& count, unsigned int filter);
TEVTOOLS_API void fileFreeRegisteredFiles(CFileExt* types, unsigned int count);

/// The types that fileGetRegisteredFiles returns, released at the end.
class CXRegisteredFiles
{
public:
    explicit CXRegisteredFiles(unsigned int filter) : m_types(fileGetRegisteredFiles(m_count, filter)) {}
    ~CXRegisteredFiles() { fileFreeRegisteredFiles(m_types, m_count); }
    CXRegisteredFiles(const CXRegisteredFiles&) = delete;
    CXRegisteredFiles& operator=(const CXRegisteredFiles&) = delete;

    unsigned int GetCount() const noexcept { return m_count; }
    const CFileExt* begin() const noexcept { return m_types; }
    const CFileExt* end() const noexcept { return m_types + m_count; }

private:
    unsigned int m_count = 0;
    CFileExt* const m_types;
};

TEVTOOLS_API bool fileGetExtensionInfo(unsigned int fileClass, CFileExt& type);
TEVTOOLS_API unsigned int fileGetProperties(unsigned int fileClass);
TEVTOOLS_API unsigned int fileGetKindOf(unsigned int fileClass);

// Of the default type for a name's extension:

TEVTOOLS_API bool fileGetFileExt(const CXTString<wchar_t>& name, CFileExt& type);
TEVTOOLS_API unsigned int fileGetClass(const CXTString<wchar_t>& name);
TEVTOOLS_API unsigned int fileGetLoader(const CXTString<wchar_t>& name);
TEVTOOLS_API unsigned int fileGetSaver(const CXTString<wchar_t>& name);
TEVTOOLS_API unsigned int fileGetProperties(const CXTString<wchar_t>& name);
TEVTOOLS_API unsigned int fileGetKindOf(const CXTString<wchar_t>& name);

/// The class of the first type for the name's extension that is of one of the kinds and has all of the properties.
TEVTOOLS_API unsigned int fileFindParser(const CXTString<wchar_t>& name, unsigned int kindMask,
                                         unsigned int propertyMask);

/// Replaces the array by the extensions of a class in their order; without dots, those within an extension are left
/// out, too. Returns their number.
TEVTOOLS_API unsigned int fileGetExtensionArray(unsigned int fileClass,
                                                CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& extensions,
                                                bool withDot);
/// Replaces the array by the extensions, each once, of every type that is of one of the kinds in `properties`, if any,
/// and has all of its other bits; only where it is the default type unless `allTypes`. They are in the order in which
/// the types were registered. Returns their number.
TEVTOOLS_API unsigned int fileGetExtensionArrayByProperty(
    unsigned int properties, CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>& extensions, bool withDot,
    bool allTypes);
/// The first extension of a class, with its dot.
TEVTOOLS_API CXTString<wchar_t> fileGetMainExtension(unsigned int fileClass);
/// The first extension of the class of a name's default type, with its dot.
TEVTOOLS_API CXTString<wchar_t> fileGetMainExtension(const CXTString<wchar_t>& name);
