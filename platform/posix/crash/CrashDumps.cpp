#include "platform/CrashDumps.h"

#include "platform/SealedData.h"
#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/MachineState.h"
#include "platform/posix/crash/OwnDump.h"
#include "platform/posix/crash/ProcessFacts.h"
#include "platform/posix/crash/ProcessThreads.h"
#include "platform/posix/crash/ThreadFaults.h"
#include "platform/posix/files/OwnedDescriptor.h"
#include "platform/posix/process/SpawnedProgram.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef PR_SET_PTRACER
#define PR_SET_PTRACER 0x59616d61
#endif

namespace tev::platform
{
/// Fills in the registers of the calling function. The system's own declaration says that it may return twice, which is so
/// only where the record is used to go back.
int TakeRegisters(ucontext_t* registers) noexcept __asm__("getcontext");

namespace
{
constexpr unsigned kHelloTimeoutMs = 2000;

struct DumpState
{
    std::atomic<int> socket{-1};
    std::atomic<pid_t> socketProcess{0}; ///< a forked child inherits the socket, but has no helper
    /// The traces of the last SetCrashTraces, for a crash without helper: replaced atomically for signal handlers. The
    /// previous ones are kept, because a handler may be reading them. Both are never destroyed at exit.
    std::atomic<const CrashTraces*> traces{nullptr};
};
SealedData<DumpState> g_dumpState;
const CrashTraces* g_formerTraces = nullptr;
std::atomic<bool> g_isGreeted{false}; ///< the helper has said that it is ready
std::atomic<pid_t> g_channelUser{0};  ///< the thread that waits for an answer

// Not on the small stack of a signal handler.
DumpOrder g_crashOrder;
HelperAnswer g_answer;

/// The answer may lack its text.
bool Receive(int socket, HelperMessage awaited, HelperAnswer& answer, unsigned timeoutMs) noexcept
{
    const std::int64_t end = MonotonicMs() + timeoutMs;
    for (std::int64_t left = timeoutMs; left > 0; left = end - MonotonicMs())
    {
        pollfd waiting = {socket, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINVAL) // the process may have no descriptors
        {
            const timespec shortly = {0, 1000000};
            nanosleep(&shortly, nullptr);
        }
        else if (ready != 1)
            continue;
        const ssize_t size = recv(socket, &answer, sizeof answer, MSG_DONTWAIT);
        if (size == 0 || (size < 0 && errno != EINTR && errno != EAGAIN))
            return false;
        if (size >= static_cast<ssize_t>(sizeof answer.head) && answer.head.version != kHelperVersion)
            return false;
        if (size >= static_cast<ssize_t>(sizeof answer.head) && answer.head.message == awaited)
            return true;
    }
    return false;
}

bool Send(int socket, const void* message, std::size_t size) noexcept
{
    ssize_t sent = -1;
    do
        sent = send(socket, message, size, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(size);
}

int Socket() noexcept
{
    return g_dumpState->socketProcess.load() == getpid() ? g_dumpState->socket.load() : -1;
}

/// Exclusive use of the channel to the helper.
class Channel
{
public:
    Channel() noexcept
    {
        const pid_t self = OwnThreadId();
        const std::int64_t end = MonotonicMs() + kDumpTimeoutMs;
        pid_t user = 0;
        // A thread that crashed while it had the channel gets no second one.
        while (!(m_isMine = g_channelUser.compare_exchange_strong(user, self)) && user != self && MonotonicMs() < end)
        {
            // One that does not exist does not use it: the word is damaged, or the thread was killed.
            if (syscall(SYS_tgkill, getpid(), user, 0) == 0)
                user = 0;
            const timespec shortly = {0, 200000};
            nanosleep(&shortly, nullptr);
        }
    }
    ~Channel()
    {
        if (m_isMine)
            g_channelUser.store(0);
    }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// The value of the answer, which stays in g_answer; 0 without one.
    std::uint32_t Ask(const void* message, std::size_t size, unsigned timeoutMs) const noexcept
    {
        const int socket = m_isMine ? Socket() : -1;
        if (socket < 0 || !IsGreeted(socket))
            return 0;
        // A late answer to an earlier message is not the answer to this one.
        HelperHead stale;
        while (recv(socket, &stale, sizeof stale, MSG_DONTWAIT) > 0)
        {
        }
        const bool isAnswered =
            Send(socket, message, size) && Receive(socket, HelperMessage::Answer, g_answer, timeoutMs);
        return isAnswered ? g_answer.head.value : 0;
    }

private:
    /// Waits for the helper's start at its first use, because installing the handler does not.
    static bool IsGreeted(int socket) noexcept
    {
        if (g_isGreeted.load())
            return true;
        if (!Receive(socket, HelperMessage::Hello, g_answer, kHelloTimeoutMs))
            return false;
        prctl(PR_SET_PTRACER, g_answer.head.value, 0, 0, 0); // refused where the kernel lacks this restriction
        g_isGreeted.store(true);
        return true;
    }

    bool m_isMine = false;
};

void SetSocket(int socket, pid_t process) noexcept
{
    g_dumpState.Change([=](DumpState& state) {
        state.socket.store(socket);
        state.socketProcess.store(process);
    });
}

void DropSocket() noexcept
{
    const int socket = g_dumpState->socket.load();
    SetSocket(-1, 0);
    if (socket >= 0)
        close(socket);
}

/// Starts the helper with one end of the pair. It detaches from this process at once.
bool Spawn(const char* helperPath, int helperEnd) noexcept
{
    char process[16];
    std::snprintf(process, sizeof process, "%d", static_cast<int>(getpid()));
    char* const arguments[] = {const_cast<char*>(helperPath), process, nullptr};
    const pid_t child = SpawnProgram({helperPath, false, true, helperEnd}, arguments);
    int status = 0;
    while (child != 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
    {
    }
    return child != 0;
}

void StartHelper(const char* helperPath) noexcept
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return;
    OwnedDescriptor ownEnd(ends[0]);
    // Neither end may have the descriptor number that the helper's end gets.
    const int helperEnd = fcntl(ends[1], F_DUPFD_CLOEXEC, kHelperSocket + 1);
    close(ends[1]);
    if (helperEnd < 0)
        return;
    const int on = 1; // before the first message
    setsockopt(helperEnd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    const bool isStarted = Spawn(helperPath, helperEnd);
    close(helperEnd); // so that the end of the helper closes the channel
    if (!isStarted)
        return;
    // A stopped helper must not block this process.
    const timeval patience = {1, 0};
    setsockopt(ownEnd.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    g_isGreeted.store(false);
    static const int forkHandler = pthread_atfork(nullptr, nullptr, DropSocket);
    static_cast<void>(forkHandler);
    SetSocket(ownEnd.Release(), getpid());
}

/// All but the registers where there are none yet.
void FillOrder(const Fault& fault, DumpOrder& order) noexcept
{
    order.head = {kHelperVersion, HelperMessage::Dump, 0};
    order.thread = OwnThreadId();
    order.time = MonotonicMs();
    order.threadFaults = ThreadFaultsAddress();
    DescribeSignal(static_cast<const siginfo_t*>(fault.signalInfo), order);
    if (fault.context != nullptr)
        StateFromContext(*static_cast<const ucontext_t*>(fault.context), order.state);
}

bool IsThere(const std::string& path)
{
    return !path.empty() && access(path.c_str(), X_OK) == 0;
}
} // namespace

void PrepareDumps(const std::string& helperPath) noexcept
{
    PrepareOwnDump();
    if (Socket() >= 0 || helperPath.empty())
        return;
    DropSocket();
    StartHelper(helperPath.c_str());
}

void EndDumps() noexcept
{
    DropSocket();
    ReleaseReservedDescriptors();
}

bool HasDumpHelper() noexcept
{
    return Socket() >= 0;
}

void SetCrashTraces(const CrashTraces& traces)
{
    auto copy = std::make_unique<const CrashTraces>(traces);
    delete g_formerTraces;
    g_formerTraces = g_dumpState->traces.load();
    g_dumpState.Change([&copy](DumpState& state) { state.traces.store(copy.release()); });

    const int socket = Socket();
    if (socket < 0)
        return;
    std::string all;
    const auto add = [&all](const std::string& text) { all.append(text.c_str(), text.size() + 1); };
    add(traces.libraryPath);
    for (const CrashPlace& place : traces.places)
    {
        add(place.dumpPath);
        add(place.recordPath);
        add(std::to_string(place.record.size()));
        all += place.record;
    }
    const auto piece = std::make_unique<TracesPiece>();
    piece->head = {kHelperVersion, HelperMessage::Traces, static_cast<std::uint32_t>(all.size())};
    for (std::size_t at = 0; at < all.size();)
    {
        const std::size_t count = all.copy(piece->bytes, TracesPiece::kMostBytes, at);
        piece->offset = static_cast<std::uint32_t>(at);
        if (!Send(socket, piece.get(), offsetof(TracesPiece, bytes) + count))
            return DropSocket(); // its traces are outdated
        at += count;
    }
}

// The registers are taken here and not in a function of its own: the frame must still exist when the stack is read.
bool WriteDumpNow(const char* path, const Fault& fault) noexcept
{
    DumpOrder order;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof order.dumpPath)
        return false;
    std::memcpy(order.dumpPath, path, length + 1);
    FillOrder(fault, order);
    ucontext_t here = {};
    if (fault.context == nullptr && TakeRegisters(&here) == 0)
        StateFromContext(here, order.state);
    {
        const Channel channel;
        if (channel.Ask(&order, sizeof order, kDumpTimeoutMs) != 0)
            return true;
    }
    return WriteOwnDump(path, order);
}

bool WritePrivateFile(const char* path, std::string_view bytes) noexcept
{
    const OwnedDescriptor file(CreatePrivateFile(path));
    const bool isWritten = file.Get() >= 0 && WriteAllBytes(file.Get(), bytes.data(), bytes.size());
    if (file.Get() >= 0 && !isWritten)
        unlink(path);
    return isWritten;
}

int WriteCrashTraces(const Fault& fault, bool withDump, const CrashNotes& notes) noexcept
{
    const CrashTraces* const traces = g_dumpState->traces.load();
    if (traces == nullptr)
        return -1;
    DumpOrder& order = g_crashOrder;
    FillOrder(fault, order);
    ucontext_t here = {};
    if (fault.context == nullptr && TakeRegisters(&here) == 0)
        StateFromContext(here, order.state);
    ReleaseReservedDescriptors(); // for the report
    LiftLimits();
    order.isCrash = true;
    order.withDump = withDump;
    order.notes = notes;
    {
        const Channel channel;
        if (const std::uint32_t answer = channel.Ask(&order, sizeof order, kDumpTimeoutMs))
            return static_cast<int>(answer) - 1;
    }
    for (std::size_t i = 0; i < CrashTraces::kPlaces; ++i)
    {
        const CrashPlace& place = traces->places[i];
        const int record = WriteLockedRecord(place.recordPath.c_str(), place.record, notes.Bytes());
        if (record < 0)
            continue;
        if (!withDump || WriteOwnDump(place.dumpPath.c_str(), order))
            return static_cast<int>(i);
        unlink(place.recordPath.c_str());
        close(record);
    }
    return -1;
}

const char* LetHelperFinish(int place, unsigned timeoutMs) noexcept
{
    const HelperHead head = {kHelperVersion, HelperMessage::Finish, static_cast<std::uint32_t>(place)};
    const Channel channel;
    return channel.Ask(&head, sizeof head, timeoutMs) != 0 ? g_answer.text : nullptr;
}

LeftRecord::LeftRecord(const std::string& path) noexcept
    : m_file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK))
{
    // In a folder for temporary files anything may lie under the name.
    struct stat status;
    const bool isOurs = m_file >= 0 && fstat(m_file, &status) == 0 && S_ISREG(status.st_mode) &&
                        status.st_uid == geteuid() && status.st_nlink == 1 &&
                        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    if (m_file >= 0 && (!isOurs || flock(m_file, LOCK_EX | LOCK_NB) != 0))
        close(std::exchange(m_file, -1));
}

LeftRecord::~LeftRecord()
{
    if (m_file >= 0)
        close(m_file);
}

std::uint64_t ProcessUptime() noexcept
{
    return SecondsSinceStart(getpid());
}

std::string LibraryPath()
{
    Dl_info information = {};
    if (dladdr(reinterpret_cast<const void*>(&PrepareDumps), &information) == 0 || information.dli_fname == nullptr)
        return {};
    char* const absolute = realpath(information.dli_fname, nullptr);
    std::string path = absolute != nullptr ? absolute : "";
    std::free(absolute);
    return path;
}

std::string FindDumpHelper()
{
    return FindCrashProgram("tev-crash-helper", "TEVTOOLS_CRASH_HELPER");
}

std::string FindCrashProgram(const char* name, const char* variable)
{
    if (const char* const chosen = std::getenv(variable))
        return IsThere(chosen) ? chosen : "";
    const std::string library = LibraryPath();
    const std::string folder = library.substr(0, library.rfind('/') + 1);
    for (const char* const place : {"", TEVTOOLS_HELPER_FROM_LIBRARY "/"})
    {
        std::string path = folder + place + name;
        if (IsThere(path))
            return path;
    }
    return {};
}
} // namespace tev::platform
