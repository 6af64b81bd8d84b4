#pragma once

#include "tests/support/Eventually.h"
#include "tests/threads/ThreadFlags.h"
#include "threads/CCustomThread.h"

namespace tev::test
{
class Worker : public CCustomThread
{
public:
    explicit Worker(std::function<void(Worker&)> body = {}) : m_body(std::move(body)) {}

    using CXThread::SetFlag;

    Worker& Begin(unsigned flags = kOwned)
    {
        EXPECT_EQ(BeginThread(this, xThreadPriorityNormal, flags, 0), this);
        return *this;
    }

    std::atomic<bool> m_isInside{false};

protected:
    bool Run() override
    {
        m_isInside = true;
        m_body(*this);
        return true;
    }

private:
    std::function<void(Worker&)> m_body;
};

inline void UntilAskedToEnd(Worker& self)
{
    while (!self.MustTerminate())
        CXThread::SleepCurrentThread(1);
}

inline void Forever(Worker&)
{
    for (;;)
        CXThread::SleepCurrentThread(1);
}

class HoldsItsLock : public CXThread
{
public:
    HoldsItsLock() : CXThread(true) {}

    std::atomic<bool> m_holdsIt{false};
    std::atomic<bool> m_mayEnd{false};

protected:
    bool Run() override
    {
        m_holdsIt = Lock(true);
        while (!m_mayEnd)
            SleepCurrentThread(1);
        return true;
    }
};

/// Each test begins and ends without workers and without the request to end.
class CCustomThreads : public testing::Test
{
protected:
    CCustomThreads() { EXPECT_TRUE(CCustomThread::EndThreads(0)); }
    ~CCustomThreads() override { EXPECT_TRUE(CCustomThread::EndThreads(0)); }
};
} // namespace tev::test
