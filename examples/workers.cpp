// A worker that can be stopped at any time, a program that ends in good time, and a loop on all processors.

#include "TevTools.h"

#include <iostream>
#include <memory>
#include <vector>

class CSmoother : public CCustomThread
{
public:
    explicit CSmoother(unsigned passes) : m_passes(passes) {}

protected:
    bool Run() override
    {
        for (unsigned pass = 0; pass < m_passes; ++pass)
        {
            if (MustTerminate() || ShouldCancel())
                return false;
            SmoothOnce();
        }
        return true;
    }

private:
    void SmoothOnce() { SleepCurrentThread(1); }

    const unsigned m_passes;
};

namespace
{
bool RunToTheEnd()
{
    auto* const smoother = new CSmoother(5);
    if (!CXThread::BeginThread(smoother, xThreadPriorityBelowNormal, CXThread::kBeginWithoutAutoDelete, 0))
        return false; // the object is deleted
    const std::unique_ptr<CSmoother> owner(smoother);
    unsigned exitCode = 1;
    return smoother->WaitForEnd(60000) && smoother->GetExitCode(exitCode) && exitCode == 0;
}

void StartInTheBackground()
{
    constexpr unsigned kForHours = 100000000;
    for (int i = 0; i < 3; ++i)
        CXThread::BeginThread(new CSmoother(kForHours), xThreadPriorityLowest, 0, 0);
}

void ShowWorkers(const CXArray<CXWorkerState>& workers)
{
    for (const CXWorkerState& worker : workers)
    {
        const char* const running = worker.m_isRunning ? "running" : "not running";
        std::cout << "thread " << worker.m_threadId << " is "
                  << (worker.m_operation != nullptr ? worker.m_operation : running) << "\n";
    }
}

bool ShutDown()
{
    if (CCustomThread::EndThreads(5000))
        return true;
    std::cout << CCustomThread::GetRunningThreadCount() << " workers do not end\n";
    CCustomThread::HardThreadsTermination(true);
    return CCustomThread::EndThreads(0);
}

bool Brighten(std::vector<unsigned char>& pixels)
{
    return XParallelFor(static_cast<unsigned>(pixels.size()),
                        [&pixels](unsigned i) { pixels[i] = static_cast<unsigned char>(pixels[i] / 2 + 127); });
}
} // namespace

int main()
{
    InitFerngateApplication();

    std::vector<unsigned char> pixels(1000000, 100);
    if (!Brighten(pixels) || pixels.front() != 177 || pixels.back() != 177)
        return 1;
    std::cout << "brightened by at most " << OMPGetMaxThreadCount() << " threads\n";

    if (!RunToTheEnd())
        return 1;
    StartInTheBackground();
    CCustomThread::SetDelayReport(ShowWorkers);
    return ShutDown() ? 0 : 1;
}
