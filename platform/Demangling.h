#pragma once

#include <string>

namespace tev::platform
{
/// A name of a function or type as source code writes it, of the compiler's name; that itself when it is no such name.
std::string Demangled(const char* name);
/// The compiler's name of the type of the exception that the thread handles; null when there is none or it is not of C++.
/// Safe in signal handlers.
const char* CurrentExceptionType() noexcept;
} // namespace tev::platform
