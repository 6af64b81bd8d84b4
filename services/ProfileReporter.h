#pragma once

#include "text/CXTString.h"

namespace tev
{
/// Shows the text of a measurement. The user interface, which stands above this room, installs one.
using ProfileReporter = void (*)(const CXTString<wchar_t>& text);

/// Null for none: such texts go to the log. Safe from several threads at once.
void SetProfileReporter(ProfileReporter reporter) noexcept;
} // namespace tev
