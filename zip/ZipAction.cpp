#include "zip/ZipAction.h"

namespace tev
{
ZipAction::ZipAction(CXZipCallback* callback, XZipAction action, std::uint64_t total)
    : m_callback(callback), m_action(action)
{
    if (m_callback != nullptr)
        m_callback->OnActionBegin(action, total);
}

ZipAction::~ZipAction()
{
    if (m_callback != nullptr)
        m_callback->OnActionEnd(m_action);
}

bool ZipAction::Advance(std::uint64_t count)
{
    return AdvanceTo(m_processed + count);
}

bool ZipAction::AdvanceTo(std::uint64_t processed)
{
    m_processed = processed;
    // The first bytes are reported, so that small actions can be cancelled too.
    const bool isDue = m_reported == 0 || m_processed - m_reported >= kStep;
    return !isDue || Finish();
}

bool ZipAction::Finish()
{
    const bool isNew = m_processed != m_reported;
    m_reported = m_processed;
    return !isNew || m_callback == nullptr || m_callback->OnProgress(m_processed);
}
} // namespace tev
