#pragma once

#include "objects/CXException.h"

#include <new>

namespace tev::test
{
/// Fails allocations of the calling thread: those of operator new and of the C heap, also within other libraries. Under a
/// sanitizer, only those that the library's own code asks for.
class FailingAllocations
{
public:
    /// The one that fails while Run is under way, counted from 1; `andLater` says that all after it fail too.
    explicit FailingAllocations(unsigned which, bool andLater = false) : m_which(which), m_andLater(andLater) {}

    /// Makes the call. False when it threw std::bad_alloc or an exception of the library, which is deleted.
    template <class CALL>
    bool Run(CALL call)
    {
        const Scope scope(*this);
        try
        {
            call();
            return true;
        }
        catch (const std::bad_alloc&)
        {
        }
        catch (CXException* exception)
        {
            exception->Delete();
        }
        return false;
    }
    /// Whether an allocation has failed in a Run, so that what it did is worth a look.
    bool HasFailed() const { return m_hasFailed; }

private:
    class Scope
    {
    public:
        explicit Scope(FailingAllocations& owner);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        FailingAllocations& m_owner;
    };

    unsigned m_which;
    bool m_andLater;
    bool m_hasFailed = false;
};

/// Calls `trial(FailingAllocations&)`, which prepares, makes its call through Run and checks what is left, so that each
/// allocation of the call fails once by itself and once together with all later ones. Returns how many there are, so that
/// a test can see that its call allocates.
template <class TRIAL>
unsigned FailEachAllocation(TRIAL trial)
{
    unsigned which = 0;
    for (const bool andLater : {false, true})
    {
        which = 1;
        for (bool failed = true; failed; ++which)
        {
            FailingAllocations failing(which, andLater);
            trial(failing);
            failed = failing.HasFailed();
        }
    }
    return which - 2;
}
} // namespace tev::test
