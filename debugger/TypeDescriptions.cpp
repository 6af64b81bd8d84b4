// Makes the library describe its classes to debuggers. Compilers describe a class with virtual members only where these are
// defined, and a program is left with its name; so this source is compiled with debug information, whatever the others are.
// That adds nothing to what is loaded when a program runs.

#include <TevTools.h>

namespace tev
{
namespace
{
/// A class is described where a pointer to it is.
struct DescribedTypes
{
    CXTString<char>* m_narrow;
    CXTString<wchar_t>* m_wide;
    CPathString* m_pathString;
    CBitArray* m_bitArray;
    COffsetArray* m_offsetArray;
    CElementArray* m_elementArray;
    CIntMap* m_intMap;
    CCustomData* m_customData;
    CXTime* m_time;
    CXDuration* m_duration;
    CXException* m_exception;
    CXArchiveException* m_archiveException;
    CXFileException* m_fileException;
    CXInternetException* m_internetException;
    CXInvalidArgException* m_invalidArgException;
    CXMemoryException* m_memoryException;
    CXUserException* m_userException;
    CXFile* m_file;
    CStdioFileEx* m_stdioFileEx;
    CFileNameSpec* m_fileNameSpec;
};

[[gnu::used]] DescribedTypes* const g_describedTypes = nullptr;
} // namespace
} // namespace tev
