#pragma once

#include "text/CXTString.h"

namespace tev
{
/// Shows a person a text and waits until it was read, through the user interface, which stands above this room. Called
/// without a lock of the library. Safe from several threads at once.
void ShowUserMessage(const CXTString<wchar_t>& text);
} // namespace tev
