#pragma once

#include <string>

namespace tev::platform
{
/// The text with each %NAME% replaced by that variable of the environment; what names none stays as it is. Names are
/// case-sensitive. No thread may change the environment meanwhile.
std::wstring ExpandEnvironmentText(const wchar_t* text);
} // namespace tev::platform
