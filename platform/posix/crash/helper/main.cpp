// The helper that a process starts when it installs its crash handler. It waits until the process crashes; then it writes
// the dump from outside, and makes the report where the process cannot.

#include "platform/CrashDumps.h"
#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/CrashHelperProtocol.h"
#include "platform/posix/crash/RemoteMemory.h"
#include "platform/posix/crash/helper/StoppedProcess.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kLongestMaps = std::size_t{16} << 20;
constexpr std::size_t kLongestTraces = std::size_t{64} << 20;

/// The traces as the process has sent them.
class Traces
{
public:
    void Take(const TracesPiece& piece, std::size_t size)
    {
        if (piece.head.value > kLongestTraces || piece.offset > piece.head.value ||
            size > piece.head.value - piece.offset)
            return;
        m_incoming.resize(piece.head.value);
        std::memcpy(m_incoming.data() + piece.offset, piece.bytes, size);
        if (piece.offset + size == piece.head.value)
            TakeApart();
    }

    std::string m_dumpPath;
    std::string m_recordPath;
    std::string m_libraryPath;
    std::string m_record;

private:
    void TakeApart()
    {
        std::size_t at = 0;
        for (std::string* text : {&m_dumpPath, &m_recordPath, &m_libraryPath})
        {
            *text = m_incoming.c_str() + at;
            at = std::min(at + text->size() + 1, m_incoming.size());
        }
        m_record = m_incoming.substr(at);
    }

    std::string m_incoming;
};

bool WriteDump(pid_t process, const DumpOrder& order, const char* path)
{
    constexpr unsigned kMostSeconds = kDumpTimeoutMs / 1000;
    const int file = CreatePrivateFile(path);
    if (file < 0)
        return false;
    bool isWritten = false;
    alarm(kMostSeconds); // ends this helper, which resumes the threads
    {
        StoppedProcess stopped(process, order);
        if (stopped.IsStopped())
        {
            std::string maps(kLongestMaps, '\0');
            maps.resize(ReadWhole(("/proc/" + std::to_string(process) + "/maps").c_str(), maps.data(), maps.size()));
            RemoteMemory memory(process);
            const auto workspace = std::make_unique<char[]>(kDumpWorkspace);
            const DumpSubject subject = {static_cast<std::uint32_t>(process),
                                         order.signal,
                                         order.signalCode,
                                         order.faultAddress,
                                         maps,
                                         memory,
                                         stopped};
            isWritten = WriteMinidump(file, subject, workspace.get());
        }
    }
    alarm(0);
    close(file);
    if (!isWritten)
        unlink(path);
    return isWritten;
}

class Helper
{
public:
    explicit Helper(pid_t process) : m_process(process) {}

    void Serve()
    {
        Send(HelperMessage::Hello, static_cast<std::uint32_t>(getpid()));
        alignas(TracesPiece) static char
            packet[sizeof(TracesPiece) > sizeof(DumpOrder) ? sizeof(TracesPiece) : sizeof(DumpOrder)];
        for (;;)
        {
            const ssize_t size = recv(kHelperSocket, packet, sizeof packet, 0);
            if (size < 0 && errno == EINTR)
                continue;
            if (size < static_cast<ssize_t>(sizeof(HelperHead)))
                break;
            Obey(packet, static_cast<std::size_t>(size));
        }
        // The process has ended. A report that it could not finish is still to be made.
        if (m_recordFile >= 0 && access(m_traces.m_recordPath.c_str(), F_OK) == 0)
            Finish();
    }

private:
    static void Send(HelperMessage message, std::uint32_t value)
    {
        const HelperHead head = {kHelperVersion, message, value};
        send(kHelperSocket, &head, sizeof head, MSG_NOSIGNAL);
    }

    void Obey(const char* packet, std::size_t size)
    {
        const auto& head = *reinterpret_cast<const HelperHead*>(packet);
        constexpr std::size_t kPieceHead = offsetof(TracesPiece, bytes);
        if (head.message == HelperMessage::Traces && size >= kPieceHead)
            m_traces.Take(*reinterpret_cast<const TracesPiece*>(packet), size - kPieceHead);
        else if (head.message == HelperMessage::Dump && size == sizeof(DumpOrder))
            Send(HelperMessage::Answer, Dump(*reinterpret_cast<const DumpOrder*>(packet)) ? 1 : 0);
        else if (head.message == HelperMessage::Finish)
            Send(HelperMessage::Answer, Finish() ? 1 : 0);
    }

    bool Dump(const DumpOrder& order)
    {
        if (MonotonicMs() - order.time >= kDumpTimeoutMs)
            return false; // the process has written the dump itself meanwhile
        if (order.withRecord)
            m_recordFile = WriteLockedRecord(m_traces.m_recordPath.c_str(), m_traces.m_record, order.logPath);
        return !order.withDump ||
               WriteDump(m_process, order, order.dumpPath[0] != '\0' ? order.dumpPath : m_traces.m_dumpPath.c_str());
    }

    bool Finish()
    {
        void* const library = dlopen(m_traces.m_libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            return false;
        const auto finish = reinterpret_cast<bool (*)(const char*)>(dlsym(library, kFinishFunction));
        return finish != nullptr && finish(m_traces.m_recordPath.c_str());
    }

    const pid_t m_process;
    Traces m_traces;
    int m_recordFile = -1; ///< stays open and locked while this helper may still work on the report
};

/// Detaches from the process: no child of it, no descriptor of it open, and its terminal's signals ignored.
bool LeaveProcess()
{
    const pid_t child = fork();
    if (child != 0)
        _exit(child < 0 ? 1 : 0);
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        signal(signalNumber, SIG_IGN);
    if (syscall(SYS_close_range, kHelperSocket + 1, ~0u, 0) != 0)
    {
        for (long descriptor = sysconf(_SC_OPEN_MAX) - 1; descriptor > kHelperSocket; --descriptor)
            close(static_cast<int>(descriptor));
    }
    return chdir("/") == 0;
}
} // namespace
} // namespace tev::platform

int main(int argumentCount, char** arguments)
{
    constexpr int kExitUsage = 2;
    const long process = argumentCount == 2 ? std::strtol(arguments[1], nullptr, 10) : 0;
    if (process <= 0 || getppid() != process)
        return kExitUsage;
    if (!tev::platform::LeaveProcess())
        return 1;
    tev::platform::Helper(static_cast<pid_t>(process)).Serve();
    return 0;
}
