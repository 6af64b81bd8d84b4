// Installs the crash handler, and then crashes in the requested way; without one it makes reports without a crash.
// Crash reports are written to the folder of the application's common data, those without a crash to the current one.
// usage: crash [WAY] [PLACE] [CALLBACK]

#include "TevTools.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

// What the run-time calls when a function throws what its specification, of an earlier version of the language, forbids.
[[noreturn]] void ThrowUnexpectedly() __asm__("_ZSt10unexpectedv");

// Not in the unnamed namespace: a compiler that sees all derived classes would call the only possible function directly.
class Shape
{
public:
    Shape();
    virtual ~Shape() = default;
    virtual void Draw() = 0;
};

static void (*volatile g_draw)(Shape&) = [](Shape& shape) { shape.Draw(); };

Shape::Shape()
{
    g_draw(*this); // not a Circle yet
}

class Circle : public Shape
{
public:
    void Draw() override {}
};

namespace
{
// Volatile, so that the compiler cannot remove the crash.
int* volatile g_nowhere = nullptr;
volatile int g_zero = 0;
volatile std::size_t g_tooMuch = ~std::size_t{0} >> 2; // bytes

[[gnu::noinline]] void WriteNowhere()
{
    *g_nowhere = 1;
}

[[gnu::noinline]] int RecurseForEver(volatile int* above)
{
    volatile int here[256] = {};
    here[0] = *above;
    return here[0] == 1 ? 0 : RecurseForEver(here) + here[0];
}

// The allocator finds its own data damaged, and aborts with its lock held.
void DamageHeap()
{
    constexpr std::size_t kSize = 100000;
    char* block = nullptr;
    for (int i = 0; i < 100; ++i) // the last one is followed by the unused rest of the heap
        g_nowhere = reinterpret_cast<int*>(block = static_cast<char*>(std::malloc(kSize)));
    char* volatile behind = block + kSize;
    for (int i = 0; i < 64; ++i)
        behind[i] = static_cast<char>(0xFF);
    g_nowhere = static_cast<int*>(std::malloc(kSize));
}

void CrashInLog()
{
    LogLock(true);
    WriteNowhere();
}

void CrashWithoutDescriptors()
{
    while (std::fopen("/dev/null", "r") != nullptr)
    {
    }
    WriteNowhere();
}

void RunForEver()
{
    for (unsigned i = 0;; ++i)
    {
        CXTString<wchar_t> line;
        line.Format(L"working on part %u\n", i);
        WriteToLogFile(line.GetConstBuffer());
        const std::vector<int> part(i % 5000);
        if (i == 10)
            std::cout << "running" << std::endl;
    }
}

struct Way
{
    const char* name;
    void (*crash)();
};

void Kill(int signal)
{
    std::raise(signal);
}

const Way kWays[] = {
    {"terminate", [] { throw 1; }},
    {"unexpected", &ThrowUnexpectedly},
    {"pure-call", [] { Circle circle; }},
    {"no-memory", [] { g_nowhere = static_cast<int*>(::operator new(g_tooMuch)); }},
    {"invalid-parameter", [] { XStrCopy(static_cast<char*>(nullptr), 1, "text"); }},
    {"abort", [] { std::abort(); }},
    {"division", [] { g_zero = 100 / g_zero; }},
    {"illegal-instruction", [] { Kill(SIGILL); }},
    {"interrupt", [] { Kill(SIGINT); }},
    {"segment-violation", WriteNowhere},
    {"termination", [] { Kill(SIGTERM); }},
    {"trap", [] { Kill(SIGTRAP); }},
    {"overflow", [] { g_zero = RecurseForEver(&g_zero); }},
    {"demand", [] { CrashGenerateErrorReport(nullptr, false); }},
    {"heap", DamageHeap},
    {"log", CrashInLog},
    {"descriptors", CrashWithoutDescriptors},
    {"run", RunForEver},
};

int CrashInCallback(CCrashHandler*)
{
    WriteNowhere();
    return 1;
}

int NeverComeBack(CCrashHandler*)
{
    for (;;)
        CXThread::SleepCurrentThread(1000);
}

struct Callback
{
    const char* name;
    int (*function)(CCrashHandler*);
};

const Callback kCallbacks[] = {
    {"report", [](CCrashHandler*) { return 1; }},
    {"no-report", [](CCrashHandler*) { return 0; }},
    {"crash", CrashInCallback},
    {"hang", NeverComeBack},
};

// Some hooks throw after the report.
void Crash(const Way& way)
{
    try
    {
        way.crash();
    }
    catch (CXMemoryException* exception)
    {
        exception->Delete();
        std::_Exit(30);
    }
    catch (CXInvalidArgException* exception)
    {
        exception->Delete();
        std::_Exit(31);
    }
}

void CrashOnWorkers(const Way& way, unsigned count, bool withHooks)
{
    std::vector<std::thread> workers;
    std::atomic<unsigned> readyCount{0};
    for (unsigned i = 0; i < count; ++i)
    {
        workers.emplace_back([&way, &readyCount, count, withHooks]() noexcept {
            if (withHooks)
                CrashThreadInstall();
            for (++readyCount; readyCount != count;)
                CXThread::SleepCurrentThread(1);
            Crash(way);
            CrashThreadUninstall();
        });
    }
    for (std::thread& worker : workers)
        worker.join();
}

// A host shows the report to the user. This one saves each in the current folder.
class KeepReports : public CUserInterface
{
public:
    XReportAnswer AskAboutReport(const CXTString<wchar_t>&, const std::vector<XReportFile>& files) override
    {
        std::cout << "a report with up to " << files.size() << " files\n";
        XReportAnswer answer;
        answer.m_save = true;
        return answer;
    }
    bool AskForSavePath(const CXTString<wchar_t>&, CPathString& path) override
    {
        path = CrashGetHandler()->GetMode() == xCrashReport ? L"crash-report.zip" : L"files-report.zip";
        return true;
    }
};

bool MakeReports(const char* folder)
{
    KeepReports host;
    XSetUserInterface(&host);
    CrashGenerateErrorReport(nullptr, false);
    CXArray<CXTString<wchar_t>> files;
    files.Add(CPathString(folder) / L"pawn.obj");
    CrashGenerateFilesErrorReport(files, nullptr, true);
    XSetUserInterface(nullptr);
    return fileIsFile(L"crash-report.zip") && fileIsFile(L"files-report.zip");
}
} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string wayName = argumentCount > 1 ? arguments[1] : "";
    const std::string place = argumentCount > 2 ? arguments[2] : "main";
    const std::string callbackName = argumentCount > 3 ? arguments[3] : "report";

    SetLogFile(L"crash.log", xLogCreate, 0xFF);
    WriteToLogFile(L"about to crash\n");
    int (*callback)(CCrashHandler*) = nullptr;
    for (const Callback& known : kCallbacks)
    {
        if (callbackName == known.name)
            callback = known.function;
    }
    CrashInstall(callback, L"Crash", L"1.0", xCrashReport);

    for (const Way& way : kWays)
    {
        if (wayName != way.name)
            continue;
        if (place == "main")
            Crash(way);
        else
            CrashOnWorkers(way, place == "two" ? 2 : place == "many" ? 200 : 1, place != "bare");
        return 0;
    }
    const bool hasReports = MakeReports(wayName.c_str());
    CrashUninstall();
    CloseLogFile();
    return hasReports ? 0 : 1;
}
