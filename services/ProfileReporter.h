#pragma once

#include "text/CXTString.h"

namespace tev
{
/// Shows the text of a measurement. Installed by the user interface, which is in a room above this one.
using ProfileReporter = void (*)(const CXTString<wchar_t>& text);

/// Null for none: the texts are logged then. Safe from several threads at once.
void SetProfileReporter(ProfileReporter reporter) noexcept;
} // namespace tev
