#pragma once

#include "objects/CXFileException.h"
#include "objects/ThreadException.h"
#include "tests/support/Testing.h"

namespace tev::test
{

constexpr int kNothingThrown = -1;
constexpr int kInvalidArgument = -2;
constexpr int kNoMemory = -3;
constexpr unsigned __int64 kFailed = ~0ull; ///< what sizes and positions are where a file fails without an exception

/// The exception that a call throws, which must be the thread's recorded one.
template <class Exception = CXFileException, class Call>
std::unique_ptr<Exception> Caught(Call&& call)
{
    try
    {
        call();
    }
    catch (Exception* exception)
    {
        EXPECT_EQ(XTakeThreadException(), exception);
        return std::unique_ptr<Exception>(exception);
    }
    throw std::runtime_error("nothing was thrown");
}

/// What a call throws: the cause of an exception of that class, or one of the values above. The exception, which must be the
/// thread's recorded one, is deleted.
template <class Failure = CXFileException, class Call>
int Thrown(Call&& call)
{
    try
    {
        call();
        return kNothingThrown;
    }
    catch (CXException* e)
    {
        EXPECT_EQ(XTakeThreadException(), e);
        const auto* failure = dynamic_cast<Failure*>(e);
        const int cause = failure != nullptr ? static_cast<int>(failure->GetCause())
                          : e->IsKindOf(&CXMemoryException::classCreatorCXMemoryException) ? kNoMemory
                                                                                           : kInvalidArgument;
        EXPECT_TRUE(cause != kInvalidArgument ||
                    e->IsKindOf(&CXInvalidArgException::classCreatorCXInvalidArgException));
        e->Delete();
        return cause;
    }
}

} // namespace tev::test
