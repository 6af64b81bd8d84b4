#pragma once

#include "text/CXTString.h"

/// A file as the parts of an application pass it on: its path and the class of its type, which selects loader and
/// saver. A value: one thread at a time.
class TEVTOOLS_API CFileNameSpec
{
public:
    /// No name, class 0, and the default choice of a parser.
    CFileNameSpec() = default;
    /// Every '/' in the name becomes a '\'. Class 0 selects the class of the name's extension.
    CFileNameSpec(const CXTString<wchar_t>& name, unsigned int fileClass);
    /// As above; null is the empty name.
    CFileNameSpec(const wchar_t* name, unsigned int fileClass);

    /// Takes the name unchanged, and the class of its extension.
    CFileNameSpec& operator=(const CXTString<wchar_t>& name);

    const CXTString<wchar_t>& GetFileName() const noexcept { return m_fileName; }
    operator const CXTString<wchar_t>&() const noexcept { return m_fileName; }
    operator const wchar_t*() const noexcept { return m_fileName; }
    unsigned int GetClass() const noexcept { return m_class; }
    /// Whether the class was looked up by the extension.
    bool IsDefaultParserChoice() const noexcept { return m_defaultParserChoice; }
    /// Whether both have the same class and the same name, case-insensitively. Compares names only: two spellings of
    /// one path are different files here.
    bool IsSameFile(const CFileNameSpec& other) const noexcept;

    /// Class 0 selects the class of the name's extension.
    void SetClass(unsigned int fileClass);

private:
    CXTString<wchar_t> m_fileName;
    unsigned int m_class = 0;
    bool m_defaultParserChoice = true;
};
