#pragma once

#include "text/CXTString.h"

namespace tev
{
/// Shows a text and waits until the user has read it, through the user interface, which is in a room above this one.
/// Called without a lock of the library. Safe from several threads at once.
void ShowUserMessage(const CXTString<wchar_t>& text);
} // namespace tev
