#pragma once

#include "text/CXTString.h"

/// How a file travels between the parts of an application: its path and the class of its type, which decides who loads and
/// saves it. A value: one thread at a time.
class TEVTOOLS_API CFileNameSpec
{
public:
    /// No name, class 0, and the default choice of a parser.
    CFileNameSpec() = default;
    /// Every '/' in the name becomes a '\'. Class 0 asks for the one of the name's extension.
    CFileNameSpec(const CXTString<wchar_t>& name, unsigned int fileClass);
    /// As above; null is the empty name.
    CFileNameSpec(const wchar_t* name, unsigned int fileClass);

    /// Takes the name as it stands, and the class of its extension.
    CFileNameSpec& operator=(const CXTString<wchar_t>& name);

    const CXTString<wchar_t>& GetFileName() const noexcept { return m_fileName; }
    operator const CXTString<wchar_t>&() const noexcept { return m_fileName; }
    operator const wchar_t*() const noexcept { return m_fileName; }
    unsigned int GetClass() const noexcept { return m_class; }
    /// Whether the class was found by the extension and not given.
    bool IsDefaultParserChoice() const noexcept { return m_defaultParserChoice; }
    /// Whether both have the same class and the same name, without regard to case. Looks at the names only: two spellings
    /// of one path are different files here.
    bool IsSameFile(const CFileNameSpec& other) const noexcept;

    /// Class 0 asks for the one of the name's extension.
    void SetClass(unsigned int fileClass);

private:
    CXTString<wchar_t> m_fileName;
    unsigned int m_class = 0;
    bool m_defaultParserChoice = true;
};
