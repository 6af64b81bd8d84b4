#include "services/CFileExt.h"

CFileExt::CFileExt(const CXTString<wchar_t>& description, const CXTString<wchar_t>& extensions, unsigned int fileClass,
                   unsigned int properties, unsigned int loader, unsigned int saver)
    : m_description(description),
      m_extensions(extensions),
      m_class(fileClass),
      m_properties(properties),
      m_loader(loader),
      m_saver(saver)
{
}
