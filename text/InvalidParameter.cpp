#include "text/InvalidParameter.h"

#include "text/TextSearch.h"

#include <atomic>
#include <cerrno>

namespace
{
std::atomic<XInvalidParameterHandler> g_handler{nullptr};

template <class T>
int CopyText(T* destination, size_t capacity, const T* source)
{
    if (destination == nullptr || source == nullptr)
        return tev::RefuseParameter("XStrCopy", EINVAL);
    const size_t length = tev::TextLength(source);
    if (length >= capacity)
        return tev::RefuseParameter("XStrCopy", ERANGE);
    tev::CopyCharacters(destination, source, length + 1);
    return 0;
}
} // namespace

XInvalidParameterHandler XSetInvalidParameterHandler(XInvalidParameterHandler handler) noexcept
{
    return g_handler.exchange(handler);
}

int XStrCopy(char* destination, size_t capacity, const char* source)
{
    return CopyText(destination, capacity, source);
}

int XStrCopy(wchar_t* destination, size_t capacity, const wchar_t* source)
{
    return CopyText(destination, capacity, source);
}

int tev::RefuseParameter(const char* function, int error)
{
    errno = error;
    if (const XInvalidParameterHandler handler = g_handler.load())
        handler(function, error);
    return error;
}
