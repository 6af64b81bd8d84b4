#pragma once

#include "base/TevTypes.h"

#include <exception>
#include <memory>
#include <type_traits>
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

/// Takes an exception that was caught out of the records of all threads, and returns it: it lives until its one owner
/// deletes it, on whatever thread. For an exception that leaves its thread (std::async, a promise, a member) or the `catch`
/// block that has it; `throw;` passes it on with its class. Null gives null. std::unique_ptr<CXException> can own the result.
TEVTOOLS_API CXException* XKeepException(CXException* exception) noexcept;
template <class Exception>
std::enable_if_t<std::is_base_of_v<CXException, Exception>, Exception*> XKeepException(Exception* exception) noexcept
{
    XKeepException(static_cast<CXException*>(exception));
    return exception;
}

/// The exception of the library that a std::exception_ptr refers to, taken out of the records likewise; null where it
/// refers to something else or to nothing. To be called before the thread that threw it throws again or ends. All copies
/// of the exception_ptr refer to the one exception, so that one of their users deletes it.
[[nodiscard]] TEVTOOLS_API CXException* XKeepException(const std::exception_ptr& exception);

/// The one way to throw: makes the exception, records it as the thread's pending one, and throws the pointer.
template <class Exception, class... Arguments>
[[noreturn]] void XThrow(Arguments&&... arguments)
{
    static_assert(std::is_base_of_v<CXException, Exception>, "only classes derived from CXException are thrown");
    auto exception = std::make_unique<Exception>(std::forward<Arguments>(arguments)...);
    XSetThreadException(exception.get());
    throw exception.release();
}

namespace tev
{
/// Removes the exception from the records of all threads.
void ForgetException(const CXException* exception) noexcept;
} // namespace tev
