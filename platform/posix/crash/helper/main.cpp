// The helper that a process starts when it installs its crash handler. It waits until the process crashes; then it writes
// the dump from outside, and makes the report where the process cannot.

#include "platform/CrashDumps.h"
#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/CrashHelperProtocol.h"
#include "platform/posix/crash/ProcessFacts.h"
#include "platform/posix/crash/helper/StoppedProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
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
    const CrashTraces& Get() const noexcept { return m_traces; }

private:
    std::string TakeText(std::size_t& at) const
    {
        std::string text = at < m_incoming.size() ? m_incoming.c_str() + at : "";
        at += text.size() + 1;
        return text;
    }
    void TakeApart()
    {
        std::size_t at = 0;
        m_traces.libraryPath = TakeText(at);
        for (CrashPlace& place : m_traces.places)
        {
            place.dumpPath = TakeText(at);
            place.recordPath = TakeText(at);
            const std::size_t size = std::strtoul(TakeText(at).c_str(), nullptr, 10);
            at = std::min(at, m_incoming.size());
            place.record = m_incoming.substr(at, size);
            at += place.record.size();
        }
    }

    std::string m_incoming;
    CrashTraces m_traces;
};

bool WriteDump(pid_t process, const DumpOrder& order, const char* path)
{
    constexpr unsigned kMostSeconds = kDumpTimeoutMs / 1000;
    PrivateDumpFile file(path);
    if (!file.IsOpen())
        return false;
    bool isWritten = false;
    alarm(kMostSeconds); // ends this helper, which resumes the threads
    // A thread that traces lets go of everything when it ends, also of what stops too late to be detached from.
    const auto write = [&] {
        StoppedProcess stopped(process, order);
        if (stopped.IsStopped())
        {
            DumpFacts facts;
            TakeFacts(process, facts);
            const auto workspace = std::make_unique<char[]>(kDumpWorkspace);
            const DumpSubject subject = {static_cast<std::uint32_t>(process),
                                         order.signal,
                                         order.signalCode,
                                         order.faultAddress,
                                         stopped.Maps(),
                                         facts,
                                         stopped};
            isWritten = WriteMinidump(file, subject, workspace.get());
        }
    };
    std::thread tracer;
    try
    {
        tracer = std::thread(write);
    }
    catch (const std::system_error&) // the user may have no more threads
    {
        write();
    }
    if (tracer.joinable())
        tracer.join();
    alarm(0);
    if (isWritten)
        file.Keep();
    return isWritten;
}

/// One message, with the user that has sent it; a size as recv gives it.
ssize_t ReceivePacket(void* packet, std::size_t capacity, ucred& sender)
{
    iovec part = {packet, capacity};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof sender)];
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(kHelperSocket, &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* const head = size < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (head != nullptr && head->cmsg_level == SOL_SOCKET && head->cmsg_type == SCM_CREDENTIALS)
        std::memcpy(&sender, CMSG_DATA(head), sizeof sender);
    return size;
}

/// A process may give up its rights after it has started the helper, which must not do for it what it may not do any more,
/// and whose files must be that user's. False where the rights cannot be given up.
bool TakeRightsOf(const ucred& sender)
{
    if (geteuid() != 0 || (sender.uid == geteuid() && sender.gid == getegid()))
        return true;
    return setgroups(0, nullptr) == 0 && setresgid(sender.gid, sender.gid, sender.gid) == 0 &&
           setresuid(sender.uid, sender.uid, sender.uid) == 0;
}

class Helper
{
public:
    explicit Helper(pid_t process) : m_process(process) {}

    void Serve()
    {
        Send(HelperMessage::Hello, static_cast<std::uint32_t>(getpid()));
        alignas(TracesPiece) alignas(DumpOrder) static char
            packet[sizeof(TracesPiece) > sizeof(DumpOrder) ? sizeof(TracesPiece) : sizeof(DumpOrder)];
        for (;;)
        {
            ucred sender = {};
            const ssize_t size = ReceivePacket(packet, sizeof packet, sender);
            if (size < 0 && errno == EINTR)
                continue;
            if (size < static_cast<ssize_t>(sizeof(HelperHead)))
                break;
            if (!TakeRightsOf(sender))
                return;
            Obey(packet, static_cast<std::size_t>(size));
        }
        // The process has ended. A report that it could not finish is still to be made.
        if (m_recordFile >= 0 && access(m_traces.Get().places[m_place].recordPath.c_str(), F_OK) == 0)
            static_cast<void>(Finish(m_place));
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
            Send(HelperMessage::Answer, Dump(*reinterpret_cast<const DumpOrder*>(packet)));
        else if (head.message == HelperMessage::Finish)
        {
            const bool isFinished = Finish(std::min<std::size_t>(head.value, CrashTraces::kPlaces - 1));
            m_answer.head = {kHelperVersion, HelperMessage::Answer, isFinished ? 1u : 0u};
            send(kHelperSocket, &m_answer, sizeof m_answer, MSG_NOSIGNAL);
        }
    }

    std::uint32_t Dump(const DumpOrder& order)
    {
        if (MonotonicMs() - order.time >= kDumpTimeoutMs)
            return 0; // the process has written the dump itself meanwhile
        if (!order.isCrash)
            return WriteDump(m_process, order, order.dumpPath) ? 1 : 0;
        for (std::size_t i = 0; i < CrashTraces::kPlaces; ++i)
        {
            const CrashPlace& place = m_traces.Get().places[i];
            m_recordFile = WriteLockedRecord(place.recordPath.c_str(), place.record, order.notes.Bytes());
            m_place = i;
            if (m_recordFile < 0)
                continue;
            if (!order.withDump || WriteDump(m_process, order, place.dumpPath.c_str()))
                return static_cast<std::uint32_t>(i + 1);
            unlink(place.recordPath.c_str());
            close(std::exchange(m_recordFile, -1));
        }
        return 0;
    }

    bool Finish(std::size_t place)
    {
        using FinishFunction = bool (*)(const char*, char*, std::size_t);
        void* const library = dlopen(m_traces.Get().libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto finish =
            library == nullptr ? nullptr : reinterpret_cast<FinishFunction>(dlsym(library, kFinishFunction));
        return finish != nullptr &&
               finish(m_traces.Get().places[place].recordPath.c_str(), m_answer.text, sizeof m_answer.text);
    }

    const pid_t m_process;
    Traces m_traces;
    HelperAnswer m_answer;
    std::size_t m_place = 0;
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
    LiftLimits();
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
