#pragma once

namespace tev
{
/// The message text of that number in the current language, null for an unknown number. Lives as long as the program.
/// The texts stand in ui/, above this room.
const wchar_t* FindMessageText(unsigned id) noexcept;
} // namespace tev
