#include "services/CFileNameSpec.h"

#include "services/FileTypeRegistry.h"

CFileNameSpec::CFileNameSpec(const CXTString<wchar_t>& name, unsigned int fileClass) : m_fileName(name)
{
    m_fileName.Replace(L'/', L'\\');
    SetClass(fileClass);
}

CFileNameSpec::CFileNameSpec(const wchar_t* name, unsigned int fileClass)
{
    if (name != nullptr)
        *this = CFileNameSpec(CXTString<wchar_t>(name), fileClass);
}

CFileNameSpec& CFileNameSpec::operator=(const CXTString<wchar_t>& name)
{
    m_fileName = name;
    SetClass(0);
    return *this;
}

bool CFileNameSpec::IsSameFile(const CFileNameSpec& other) const noexcept
{
    return m_class == other.m_class && m_fileName.CompareNoCase(other.m_fileName) == 0;
}

void CFileNameSpec::SetClass(unsigned int fileClass)
{
    m_defaultParserChoice = fileClass == 0;
    m_class = fileClass == 0 ? fileGetClass(m_fileName) : fileClass;
}
