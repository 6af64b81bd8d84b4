#include "platform/SystemErrors.h"

#include "platform/posix/text/SystemTextLock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <iterator>

#include <locale.h>

namespace
{

struct ErrnoRow
{
    int errnoValue;
    unsigned systemError;
};

// Where several errno values share a code, the one whose text fits the code best comes first.
// The errors of System V streams and of other machines' device drivers have no code: they are general failures.
constexpr ErrnoRow kErrnoTable[] = {
    // Files and paths
    {ENOENT, 2},
    {ENOTDIR, 3},
    {ENAMETOOLONG, 206},
    {EILSEQ, 123}, // a name that the file system cannot write
    {ELOOP, 1921},
    {EXDEV, 17},
    {EMFILE, 4},
    {ENFILE, 4},
    {EACCES, 5},
    {EPERM, 5},
    {EISDIR, 5},
    {EROFS, 19},
    {EBUSY, 170},
    {EEXIST, 183},
    {ENOTEMPTY, 145},
    {EMLINK, 1142},
    {EBADF, 6},
    {ESTALE, 1006},
    {ENOEXEC, 193},
    {ELIBBAD, 193},
    {ESPIPE, 132},
    {ETXTBSY, 32},
    {EAGAIN, 33},
    {ENOLCK, 33},
    {EDEADLK, 1131},
    {ENOSPC, 112},
    {EDQUOT, 112},
    {EFBIG, 223},
    {EPIPE, 109},
    // Keys of encrypted folders
    {ENOKEY, 5},
    {EKEYEXPIRED, 5},
    {EKEYREVOKED, 5},
    {EKEYREJECTED, 5},
    // Devices and media
    {EIO, 23},
    {EBADMSG, 23}, // a wrong checksum of the file system
    {EHWPOISON, 23},
    {ENODEV, 20},
    {ENXIO, 20},
    {ENOTBLK, 15},
    {ENOMEDIUM, 21},
    {EMEDIUMTYPE, 1785},
    {EUCLEAN, 1393},
    {EREMOTEIO, 59},
    {ECOMM, 59},
    {EPROTO, 59},
    {ENOLINK, 59},
    {ENONET, 1222},
    {ETIME, 121},
    // Calls and processes
    {EINTR, 995},
    {ECANCELED, 1223},
    {ENOMEM, 8},
    {EFAULT, 998},
    {EINVAL, 87},
    {EDOM, 87},
    {ERANGE, 122},
    {EOVERFLOW, 534},
    {ENOTTY, 1},
    {ENOSYS, 120},
    {EOPNOTSUPP, 50},
    {ENODATA, 1168},
    {ESRCH, 1168},
    {E2BIG, 10},
    {ECHILD, 128},
    {EOWNERDEAD, 735},
    // Network
    {EINPROGRESS, 10036},
    {EALREADY, 10037},
    {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},
    {ETOOMANYREFS, 10059},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
    {EUSERS, 10068},
    {EREMOTE, 10071},
};

// The C library's text comes in the character set of the current locale, which is the one that mbsrtowcs reads.
std::wstring WidenLocaleText(const char* text)
{
    std::wstring wide(std::strlen(text), L'\0');
    std::mbstate_t state{};
    const std::size_t length = std::mbsrtowcs(wide.data(), &text, wide.size(), &state);
    wide.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    return wide;
}

/// The environment's locale for the calling thread, whether the program has set it or not; the thread's own where the
/// system lacks that locale.
class SystemLocale
{
public:
    SystemLocale() noexcept
        : m_locale(newlocale(LC_CTYPE_MASK | LC_MESSAGES_MASK, "", nullptr)), m_former(uselocale(m_locale))
    {
    }
    SystemLocale(const SystemLocale&) = delete;
    SystemLocale& operator=(const SystemLocale&) = delete;
    ~SystemLocale()
    {
        uselocale(m_former);
        if (m_locale != nullptr)
            freelocale(m_locale);
    }

private:
    const locale_t m_locale;
    const locale_t m_former;
};
} // namespace

unsigned tev::platform::SystemErrorFromErrno(int errnoValue) noexcept
{
    if (errnoValue == 0)
        return 0;
    const auto* row = std::find_if(std::begin(kErrnoTable), std::end(kErrnoTable),
                                   [=](const ErrnoRow& r) { return r.errnoValue == errnoValue; });
    return row == std::end(kErrnoTable) ? kGeneralFailure : row->systemError;
}

unsigned tev::platform::LastSystemError() noexcept
{
    return SystemErrorFromErrno(errno);
}

std::wstring tev::platform::SystemErrorText(unsigned systemError)
{
    const auto* row = std::find_if(std::begin(kErrnoTable), std::end(kErrnoTable),
                                   [=](const ErrnoRow& r) { return r.systemError == systemError; });
    if (row == std::end(kErrnoTable))
        return {};
    const SystemTextGuard guard;
    const SystemLocale locale;
    char buffer[256];
    return WidenLocaleText(strerror_r(row->errnoValue, buffer, sizeof buffer));
}
