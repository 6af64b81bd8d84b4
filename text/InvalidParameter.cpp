#include "text/InvalidParameter.h"

#include "text/FailureRecord.h"
#include "text/TextSearch.h"

#include <atomic>
#include <cerrno>
#include <cstring>

namespace
{
std::atomic<XInvalidParameterHandler> g_handler{nullptr};
thread_local tev::SourcePlace t_refused;

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

int tev::RefuseParameter(const char* function, int error, const char* file, unsigned line)
{
    NoteBadArgument(function);
    errno = error;
    const XInvalidParameterHandler handler = g_handler.load();
    if (handler == nullptr)
        return error;
    struct Refusing // also when the handler throws
    {
        explicit Refusing(const SourcePlace& place) : m_before(t_refused) { t_refused = place; }
        ~Refusing() { t_refused = m_before; }
        const SourcePlace m_before;
    };
    const char* const name = std::strrchr(file, '/');
    const Refusing refusing({name == nullptr ? file : name + 1, line});
    handler(function, error);
    return error;
}

tev::SourcePlace tev::RefusedPlace() noexcept
{
    return t_refused;
}
