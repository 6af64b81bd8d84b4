// A program that installs the crash handler and ends in one of many ways.
// usage: tevtools_crash_ways WAY [PLACE] [CALLBACK]

#include "TevTools.h"
#include "tests/crash/program/Surroundings.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

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
using namespace ways;

// Volatile, so that the compiler cannot remove the crash.
int* volatile g_nowhere = nullptr;
volatile int g_zero = 0;
volatile std::size_t g_size = 0;
void (*volatile g_noCode)() = nullptr;

[[gnu::noinline]] void WriteNowhere()
{
    *g_nowhere = 1;
}
void WriteNowhereOn(int)
{
    WriteNowhere();
}
[[gnu::noinline]] int Recurse(volatile int* above, int depth)
{
    volatile int here[256] = {};
    here[0] = *above;
    if (depth == 0)
        WriteNowhere();
    return here[0] == 1 ? 0 : Recurse(here, depth - 1) + here[0];
}
[[gnu::noinline]] void ThrowText()
{
    throw std::runtime_error("the engine is on fire");
}
[[gnu::noinline]] void ThrowInNoexcept() noexcept
{
    ThrowText();
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
void FaultInAllocator()
{
    std::thread([] {}).join(); // from now on the allocator takes locks
    constexpr std::size_t kSize = 5000;
    void** volatile block = static_cast<void**>(std::malloc(kSize));
    void* volatile behind = std::malloc(kSize);
    static_cast<void>(behind);
    std::free(block);
    block[1] = reinterpret_cast<void*>(0x4141414141410000u);
    g_nowhere = static_cast<int*>(std::malloc(kSize + 1000));
}
/// Writes over all data of the library that can be written to.
void OverwriteLibrary()
{
    std::vector<std::pair<char*, char*>> data;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* found) {
            for (int i = 0; std::strstr(info->dlpi_name, "/libTevTools.so") != nullptr && i < info->dlpi_phnum; ++i)
            {
                const auto& part = info->dlpi_phdr[i];
                char* const begin = reinterpret_cast<char*>(info->dlpi_addr + part.p_vaddr);
                if (part.p_type == PT_LOAD && (part.p_flags & PF_W) != 0)
                    static_cast<decltype(data)*>(found)->emplace_back(begin, begin + part.p_memsz);
            }
            return 0;
        },
        &data);
    std::ifstream maps("/proc/self/maps");
    std::vector<std::pair<char*, char*>> writable;
    for (std::string line; std::getline(maps, line);)
    {
        char* end = nullptr;
        char* const from = reinterpret_cast<char*>(std::strtoul(line.c_str(), &end, 16));
        char* const to = reinterpret_cast<char*>(std::strtoul(end + 1, &end, 16));
        for (const auto& [begin, dataEnd] : data)
        {
            if (end[2] == 'w' && from < dataEnd && to > begin)
                writable.emplace_back(std::max(from, begin), std::min(to, dataEnd));
        }
    }
    for (const auto& [begin, end] : writable)
        std::memset(begin, 0x5A, static_cast<std::size_t>(end - begin));
}
void FreeTwice()
{
    void* volatile block = std::malloc(100);
    void* volatile same = block;
    std::free(block);
    std::free(same);
}
void ReadCutFile()
{
    const int file = open("cut.bin", O_RDWR | O_CREAT | O_TRUNC, 0600);
    const bool isCut = ftruncate(file, 8192) == 0;
    void* const memory = mmap(nullptr, 8192, PROT_READ, MAP_SHARED, file, 0);
    if (isCut && ftruncate(file, 0) == 0)
        g_zero = static_cast<volatile char*>(memory)[5000];
}
void SmashStack()
{
    volatile char block[16];
    for (int i = 0; i < 400 + g_zero; ++i)
        block[i] = 'A';
    g_zero = block[0] & 0;
}

// Mapped before the stacks of threads, and so above them: a walk leads downwards.
constexpr std::size_t kHandlerStack = std::size_t{1} << 16;
void* const g_handlerStack = mmap(nullptr, kHandlerStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

void InHandler(int number, int flags)
{
    struct sigaction action = {};
    action.sa_handler = WriteNowhereOn;
    action.sa_flags = flags;
    sigaction(number, &action, nullptr);
    std::raise(number);
}
void InHandlerOnOwnStack()
{
    const stack_t mine = {g_handlerStack, 0, kHandlerStack};
    sigaltstack(&mine, nullptr);
    InHandler(SIGUSR1, SA_ONSTACK);
}
void Install();

const std::map<std::string, void (*)()> kWays = {
    {"terminate", [] { throw 1; }},
    {"exception", ThrowText},
    {"noexcept", ThrowInNoexcept},
    {"own-exception", [] { CXFileException::ThrowOsError(fileGeneric, L"scene.obj", nullptr); }},
    {"joinable", [] { std::thread thread([] { pause(); }); }},
    {"unexpected", &ThrowUnexpectedly},
    {"pure-call", [] { Circle circle; }},
    {"pure-call-unhooked",
     [] {
         CrashUninstall();
         std::signal(SIGABRT, [](int) { _exit(77); });
         Circle circle;
     }},
    {"no-memory", [] { g_nowhere = static_cast<int*>(::operator new((~std::size_t{0} >> 2) + g_size)); }},
    {"small-memory",
     [] {
         Limit(RLIMIT_AS, rlim_t{400} << 20);
         for (;;)
             g_nowhere = new int[8];
     }},
    {"fault-without-memory",
     [] {
         Limit(RLIMIT_AS, rlim_t{400} << 20);
         for (std::size_t size = std::size_t{1} << 20; size > 8; size /= 16)
         {
             while (std::malloc(size) != nullptr)
             {
             }
         }
         WriteNowhere();
     }},
    {"invalid-parameter", [] { XStrCopy(static_cast<char*>(nullptr), 1, "text"); }},
    {"abort", [] { std::abort(); }},
    {"division", [] { g_zero = 100 / g_zero; }},
    {"illegal-instruction", [] { __builtin_trap(); }},
    {"interrupt", [] { std::raise(SIGINT); }},
    {"segment-violation", WriteNowhere},
    {"termination", [] { std::raise(SIGTERM); }},
    {"trap", [] { __asm__ volatile("int3"); }},
    {"processor-time", [] { std::raise(SIGXCPU); }},
    {"system-call", [] { std::raise(SIGSYS); }},
    {"cut-file", ReadCutFile},
    {"null-call", [] { g_noCode(); }},
    {"freed-page",
     [] {
         void* const page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
         munmap(page, 4096);
         g_zero = *static_cast<volatile int*>(page);
     }},
    {"overflow", [] { g_zero = Recurse(&g_zero, -1); }},
    {"deep", [] { g_zero = Recurse(&g_zero, 100); }},
    {"smashed-stack", SmashStack},
    {"double-free", FreeTwice},
    {"heap", DamageHeap},
    {"in-allocator", FaultInAllocator},
    {"wild-writes",
     [] {
         OverwriteLibrary();
         WriteNowhere();
     }},
    {"log",
     [] {
         LogLock(true);
         WriteNowhere();
     }},
    {"log-elsewhere",
     [] {
         RunBeside([] { LogLock(true); });
         WriteNowhere();
     }},
    {"bad-log-text", [] { WriteToLogFile(L"%s\n", reinterpret_cast<const wchar_t*>(0x10 + g_size)); }},
    {"handler", [] { InHandler(SIGUSR1, 0); }},
    {"handler-on-own-stack", InHandlerOnOwnStack},
    {"at-exit",
     [] {
         std::atexit(WriteNowhere);
         std::exit(0);
     }},
    {"descriptors",
     [] {
         while (std::fopen("/dev/null", "r") != nullptr)
         {
         }
         WriteNowhere();
     }},
    {"closed-descriptors",
     [] {
         for (int i = 3; i < 100; ++i)
             close(i);
         WriteNowhere();
     }},
    {"no-descriptors",
     [] {
         const rlimit none = {};
         setrlimit(RLIMIT_NOFILE, &none);
         WriteNowhere();
     }},
    {"file-size",
     [] {
         Limit(RLIMIT_FSIZE, 1000);
         WriteNowhere();
     }},
    {"other-user",
     [] {
         BecomeNobody();
         umask(0777);
         WriteNowhere();
     }},
    {"folder-lock",
     [] {
         g_zero = flock(open(std::getenv("TEVTOOLS_COMMON_DATA"), O_RDONLY | O_DIRECTORY), LOCK_EX);
         WriteNowhere();
     }},
    {"renamed",
     [] {
         XSetApplicationName(L"Renamed");
         for (const char* const name : {"TEVTOOLS_COMMON_DATA", "TEVTOOLS_USER_DATA"})
             setenv(name, (std::string(std::getenv(name)) + "/later").c_str(), 1);
         WriteNowhere();
     }},
    {"late-address",
     [] {
         XSetCrashDialog(true);
         XSetSupportAddress(L"late@example.org");
         WriteNowhere();
     }},
    {"renamed-start", [] { XSetApplicationName(L"Renamed"); }},
    {"no-folders",
     [] {
         CrashUninstall();
         setenv("TEVTOOLS_COMMON_DATA", "/proc/none", 1);
         setenv("TEVTOOLS_USER_DATA", "/proc/none", 1);
         Install();
         WriteNowhere();
     }},
    {"undumpable",
     [] {
         prctl(PR_SET_DUMPABLE, 0);
         WriteNowhere();
     }},
    {"other-folder", [] { chdir("/") == 0 ? WriteNowhere() : void(); }},
    {"others-blocked",
     [] {
         RunBeside(BlockSignals);
         WriteNowhere();
     }},
    {"adjacent-stacks",
     [] {
         WaitOnAdjacentStacks();
         WriteNowhere();
     }},
    {"dead-helper",
     [] {
         SignalHelper(SIGKILL);
         WriteNowhere();
     }},
    {"threadless-helper",
     [] {
         RunForHelper("prlimit --nproc=0:0 --pid");
         BecomeNobody(); // whose limits count
         WriteNowhere();
     }},
    {"stopped-helper",
     [] {
         SignalHelper(SIGSTOP);
         std::thread([] {
             sleep(6);
             SignalHelper(SIGCONT);
         }).detach();
         WriteNowhere();
     }},
    {"child", [] { InChild(WriteNowhere); }},
    {"child-with-handler",
     [] {
         InChild([] {
             Install();
             WriteNowhere();
         });
     }},
    {"uninstalled",
     [] {
         CrashUninstall();
         WriteNowhere();
     }},
    {"blocked",
     [] {
         BlockSignals();
         WriteNowhere();
     }},
    {"blocked-abort",
     [] {
         BlockSignals();
         std::abort();
     }},
    {"killed", [] { kill(getpid(), SIGKILL); }},
    {"demand", [] { CrashGenerateErrorReport(nullptr, false); }},
    {"demand-before-refused",
     [] {
         CrashGenerateErrorReport(nullptr, false);
         CrashInstall([](CCrashHandler*) { return 0; }, L"Ways", L"2.5", xCrashReport);
         WriteNowhere();
     }},
    {"demand-beside-unstoppable", DemandBesideUnstoppable},
    {"run",
     [] {
         for (unsigned i = 0;; ++i)
         {
             // No more than a report takes: other threads go on while it is packed.
             constexpr unsigned kMostLines = 20000;
             CXTString<wchar_t> line;
             line.Format(L"working on part %u\n", i);
             if (i < kMostLines)
                 WriteToLogFile(line.GetConstBuffer());
             const std::vector<int> part(i % 5000);
             if (i == 10)
                 std::cout << "running" << std::endl;
         }
     }},
};

const std::map<std::string, int (*)(CCrashHandler*)> kCallbacks = {
    {"report", [](CCrashHandler*) { return 1; }},
    {"no-report", [](CCrashHandler*) { return 0; }},
    {"crash",
     [](CCrashHandler*) {
         WriteNowhere();
         return 1;
     }},
    {"throw", [](CCrashHandler*) -> int { throw 1; }},
    {"exit-thread", [](CCrashHandler*) -> int { pthread_exit(nullptr); }},
    {"hang",
     [](CCrashHandler*) {
         for (;;)
             pause();
         return 1;
     }},
};
int (*g_callback)(CCrashHandler*) = nullptr;

/// A user interface in whose question the program ends; "note" writes the question down.
class AskedUser : public CUserInterface
{
public:
    XReportAnswer AskAboutReport(const CXTString<wchar_t>&, const std::vector<XReportFile>& files) override
    {
        const std::string way = std::getenv("TEVTOOLS_CRASH_ASKED");
        if (way == "kill")
            kill(getpid(), SIGKILL);
        if (way == "exit")
            _exit(5);
        if (way == "crash")
            WriteNowhere();
        for (const XReportFile& file : files)
            std::cout << CXTString<char>(CPathString(file.m_path).GetFileName()).GetConstBuffer() << '\n' << std::flush;
        return {};
    }
} g_askedUser;

void Install()
{
    CrashInstall(g_callback, L"Ways", L"2.5", xCrashReport);
}

// Some hooks throw after the report.
void Crash(void (*crash)())
{
    try
    {
        crash();
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

void CrashOnWorkers(void (*crash)(), unsigned count, bool withHooks)
{
    std::vector<std::thread> workers;
    std::atomic<unsigned> readyCount{0};
    for (unsigned i = 0; i < count; ++i)
    {
        workers.emplace_back([crash, &readyCount, count, withHooks]() noexcept {
            if (withHooks)
                CrashThreadInstall();
            for (++readyCount; readyCount != count;)
                std::this_thread::yield();
            Crash(crash);
            CrashThreadUninstall();
        });
    }
    for (std::thread& worker : workers)
        worker.join();
}

struct AtStart
{
    AtStart()
    {
        const char* const way = std::getenv("TEVTOOLS_CRASH_EARLY");
        if (way == nullptr)
            return;
        CrashInstall(nullptr, L"Ways", L"2.5", xCrashReport);
        WriteNowhere();
    }
} const g_atStart;
} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string way = argumentCount > 1 ? arguments[1] : "";
    const std::string place = argumentCount > 2 ? arguments[2] : "main";
    const std::string callback = argumentCount > 3 ? arguments[3] : "report";
    SetLogFile(L"crash.log", xLogCreate, 0xFF);
    WriteToLogFile(L"about to crash\n");
    g_callback = kCallbacks.at(callback);
    if (std::getenv("TEVTOOLS_CRASH_ASKED") != nullptr)
        XSetUserInterface(&g_askedUser);
    XSetCrashErrorOutput(std::getenv("TEVTOOLS_CRASH_OUTPUT") != nullptr);
    Install();
    if (place == "main")
        Crash(kWays.at(way));
    else
        CrashOnWorkers(kWays.at(way),
                       place == "two"       ? 2
                       : place == "sixteen" ? 16
                       : place == "many"    ? 200
                                            : 1,
                       place != "bare");
    return 0;
}
