#include "platform/SealedData.h"

#include <cerrno>

#include <sys/mman.h>
#include <unistd.h>

void tev::platform::LetWrite(void* pages, std::size_t size, bool isWritable) noexcept
{
    const int error = errno;
    if (sysconf(_SC_PAGESIZE) == static_cast<long>(kSealedPage))
        mprotect(pages, size, isWritable ? PROT_READ | PROT_WRITE : PROT_READ);
    errno = error;
}
