#pragma once

#include "base/TevTypes.h"

#include <memory>
#include <utility>

class CXException;

// Each thread has at most one pending exception: the one that it threw last and that is not deleted yet. It is deleted
// when the thread ends; a program's exit deletes what ended threads have left.
// An exception that several threads have recorded is deleted once: the thread that takes it, deletes it or records another
// one in its place removes it from the records of all, and a thread that ends leaves it to the others.
// Safe from several threads at once.

/// Records the exception as the calling thread's pending one; every throw site does so before it throws the pointer.
/// A pending exception recorded before is forgotten and not deleted, because its catcher owns it. Null does nothing.
TEVTOOLS_API void XSetThreadException(CXException* exception);

/// Deletes the calling thread's pending exception, if there is one. For code that swallows an exception.
TEVTOOLS_API void XDeleteThreadException();

/// Hands the calling thread's pending exception to the caller, null when there is none. For an exception that is to be
/// handled on another thread and must outlive this one.
[[nodiscard]] TEVTOOLS_API CXException* XTakeThreadException();

namespace tev
{
/// Removes the exception from the records of all threads.
void ForgetException(const CXException* exception) noexcept;

/// The one way in which the library throws: construct, record, throw the pointer.
template <class Exception, class... Arguments>
[[noreturn]] void RecordAndThrow(Arguments&&... arguments)
{
    auto exception = std::make_unique<Exception>(std::forward<Arguments>(arguments)...);
    XSetThreadException(exception.get());
    throw exception.release();
}
} // namespace tev
