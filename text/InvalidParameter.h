#pragma once

#include "base/TevTypes.h"

#include <cstddef>

/// Called when a copying routine was given an invalid pointer or size, after `errno` was set to `error`:
/// 22 for a null pointer, 34 for a destination or position that does not fit. `function` names the routine.
using XInvalidParameterHandler = void (*)(const char* function, int error);

/// Installs the process's handler, null for none, and returns the one before. Without a handler the routine just
/// returns. Safe from several threads at once.
TEVTOOLS_API XInvalidParameterHandler XSetInvalidParameterHandler(XInvalidParameterHandler handler) noexcept;

/// Copies a C string with its terminator into a buffer of `capacity` characters. Returns 0, or, with `errno` set, the
/// invalid-parameter handler called and the buffer untouched, 22 for a null pointer and 34 for a buffer too small.
/// The buffers may overlap.
TEVTOOLS_API int XStrCopy(char* destination, std::size_t capacity, const char* source);
TEVTOOLS_API int XStrCopy(wchar_t* destination, std::size_t capacity, const wchar_t* source);

namespace tev
{
/// A place in the library's sources; of line 0 when there is none.
struct SourcePlace
{
    const char* file = "";
    unsigned line = 0;
};

/// Sets `errno`, calls the handler, and returns the error. The caller has changed nothing yet and returns at once.
int RefuseParameter(const char* function, int error, const char* file = __builtin_FILE(),
                    unsigned line = __builtin_LINE());
/// While the handler runs on the calling thread: which check has refused the parameter.
SourcePlace RefusedPlace() noexcept;
} // namespace tev
