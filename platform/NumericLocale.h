#pragma once

namespace tev::platform
{
/// The decimal point of the C library's current locale, in that locale's own bytes; it lives until the locale changes.
const char* DecimalPoint() noexcept;
} // namespace tev::platform
