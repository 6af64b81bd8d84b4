#pragma once

namespace tev
{
/// The message text of that number in the current language, null for an unknown number. Valid until the program ends.
const wchar_t* FindMessageText(unsigned id) noexcept;
} // namespace tev
