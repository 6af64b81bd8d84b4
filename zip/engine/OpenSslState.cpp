#include "zip/engine/OpenSslState.h"

#if defined(TEVTOOLS_OPENSSL)
#include <openssl/crypto.h>
#endif

namespace tev::platform
{
bool IsOpenSslReady() noexcept
{
#if defined(TEVTOOLS_OPENSSL)
    return OSSL_LIB_CTX_get0_global_default() != nullptr;
#else
    return true;
#endif
}
} // namespace tev::platform
