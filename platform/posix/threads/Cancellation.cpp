#include "platform/Cancellation.h"

#include <pthread.h>

namespace tev::platform
{
WithoutCancellation::WithoutCancellation() noexcept : m_before(PTHREAD_CANCEL_ENABLE)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before);
}

WithoutCancellation::~WithoutCancellation()
{
    pthread_setcancelstate(m_before, nullptr);
}

void PassCancellationPoint()
{
    pthread_testcancel();
}
} // namespace tev::platform
