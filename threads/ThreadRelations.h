#pragma once

#include "arrays/CXArray.h"
#include "base/TevTypes.h"

// The relations between threads: which one is the parent of which, which are cancelled, and which must not show anything
// to the user. A mark on a thread applies to all its descendants. Threads are known by their identifiers, so they need not
// have been started by this library; a CXThread removes its own entries when it is destroyed. Where 0 stands for the calling
// thread, a thread of the pool that runs the body of a loop stands for the thread that called the loop.
// What records something throws CXMemoryException, and changes nothing, where there is no memory for it.
// Safe from several threads at once.

extern "C"
{
    /// Makes `parent` the parent of `child`, replacing an earlier one. Does nothing when they are the same.
    TEVTOOLS_API void AttachThread(unsigned __int64 child, unsigned __int64 parent);
    TEVTOOLS_API void DetachThread(unsigned __int64 child);
    /// Fills the array with the threads whose recorded parent is this one, in no order, and returns their number.
    TEVTOOLS_API unsigned int GetChildThreads(unsigned __int64 parent, CXArray<unsigned __int64>& children);

    /// Marks the thread as cancelled, or removes the mark; 0 is the calling thread.
    TEVTOOLS_API void SetCancelThread(bool cancel, unsigned __int64 id);
    /// Whether the thread or an ancestor is marked; 0 is the calling thread. Cheap as long as nothing was ever marked.
    [[nodiscard]] TEVTOOLS_API bool ShouldCancelThread(unsigned __int64 id);

    /// Marks the thread as one that must not show anything to the user, or removes the mark; 0 is the calling thread.
    TEVTOOLS_API void SetSilentThread(bool silent, unsigned __int64 id);
    /// Whether the thread or an ancestor is marked; 0 is the calling thread. Cheap as long as nothing was ever marked.
    [[nodiscard]] TEVTOOLS_API bool IsSilentThread(unsigned __int64 id);
}

/// Marks the calling thread as silent while it exists, unless it or an ancestor is when it is made. Destroyed on its thread.
class CXSilentThread
{
public:
    CXSilentThread() : m_marks(!IsSilentThread(0))
    {
        if (m_marks)
            SetSilentThread(true, 0);
    }
    ~CXSilentThread()
    {
        if (m_marks)
            SetSilentThread(false, 0);
    }
    CXSilentThread(const CXSilentThread&) = delete;
    CXSilentThread& operator=(const CXSilentThread&) = delete;

private:
    const bool m_marks;
};
