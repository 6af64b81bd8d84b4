#pragma once

#include "arrays/CXArray.h"
#include "base/TevTypes.h"

// What threads are to each other: who was started on whose behalf, whose work is no longer wanted, and who must not ask
// the user. A mark reaches every descendant of the thread that bears it. Threads are named by their identifiers, so any
// thread may take part; a CXThread takes its own entries away when it is destroyed.
// Safe from several threads at once.

extern "C"
{
    /// Makes `parent` the parent of `child`, in the place of an earlier one. Nothing when they are the same.
    TEVTOOLS_API void AttachThread(unsigned __int64 child, unsigned __int64 parent);
    TEVTOOLS_API void DetachThread(unsigned __int64 child);
    /// Fills the array with the threads whose recorded parent is this one, in no order, and answers how many they are.
    TEVTOOLS_API unsigned int GetChildThreads(unsigned __int64 parent, CXArray<unsigned __int64>& children);

    /// Marks the thread as cancelled, or takes the mark back; 0 is the calling thread.
    TEVTOOLS_API void SetCancelThread(bool cancel, unsigned __int64 id);
    /// Whether the thread or an ancestor is marked; 0 is the calling thread. Cheap as long as nothing was ever marked.
    TEVTOOLS_API bool ShouldCancelThread(unsigned __int64 id);

    /// Marks the thread as one that must not show anything to the user, or takes the mark back; 0 is the calling thread.
    TEVTOOLS_API void SetSilentThread(bool silent, unsigned __int64 id);
    /// Whether the thread or an ancestor is marked; 0 is the calling thread. Cheap as long as nothing was ever marked.
    TEVTOOLS_API bool IsSilentThread(unsigned __int64 id);
}
