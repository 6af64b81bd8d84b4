#include "platform/FileNameRules.h"

tev::platform::FileNameRules tev::platform::SystemFileNameRules() noexcept
{
    return {};
}
