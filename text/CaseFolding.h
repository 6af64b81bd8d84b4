#pragma once

namespace tev::platform
{
/// Simple case folding of Unicode 15, one character to one: characters that differ in case only fold to the same one.
/// Unicode never changes the folding of an assigned character. Safe from several threads at once.
char32_t CaseFolded(char32_t c) noexcept;
} // namespace tev::platform
