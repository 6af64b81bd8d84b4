#pragma once

#include "objects/CXException.h"
#include "tests/support/Testing.h"

namespace tev::test
{
/// An exception that counts its objects.
struct CountedException : CXException
{
    CountedException() { ++s_living; }
    CountedException(const CountedException& other) : CXException(other) { ++s_living; }
    ~CountedException() override { --s_living; }

    static inline std::atomic<int> s_living{0};
};
} // namespace tev::test
