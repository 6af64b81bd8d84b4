#pragma once

namespace tev::platform
{
/// Unicode 15's simple case folding, one character for one: what two characters have in common that differ in case only.
/// Unicode never changes it for a character that it has. Safe from several threads at once.
char32_t CaseFolded(char32_t c) noexcept;
} // namespace tev::platform
