#include "tools/tev/System.h"

#include "objects/CXFileException.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::tool
{
namespace
{
constexpr char kEraseLine[] = "\r\033[K";
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Cleaned up by the signal handler. The path is written only while the ending signals are blocked.
char g_temporaryPath[4096];
volatile std::sig_atomic_t g_lineIsShown = 0;
volatile std::sig_atomic_t g_areSignalsHeld = 0;
volatile std::sig_atomic_t g_heldSignal = 0;

void EndBySignal(int signal)
{
    if (g_areSignalsHeld != 0 && g_heldSignal == 0)
    {
        g_heldSignal = signal;
        return;
    }
    if (g_temporaryPath[0] != '\0')
        unlink(g_temporaryPath);
    if (g_lineIsShown != 0)
        static_cast<void>(!write(STDERR_FILENO, kEraseLine, sizeof kEraseLine - 1));
    raise(signal); // the default action waits until this handler returns
}

class EndingSignalsBlocked
{
public:
    EndingSignalsBlocked()
    {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : kEndingSignals)
            sigaddset(&ending, signal);
        sigprocmask(SIG_BLOCK, &ending, &m_before);
    }
    ~EndingSignalsBlocked() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    EndingSignalsBlocked(const EndingSignalsBlocked&) = delete;
    EndingSignalsBlocked& operator=(const EndingSignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

mode_t PermissionsFor(const std::filesystem::file_status& existing)
{
    if (std::filesystem::exists(existing))
        return static_cast<mode_t>(existing.permissions()) & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}
} // namespace

void InstallSignalRules()
{
    // Also where the caller ignores it: a closed output pipe is no failure to report.
    std::signal(SIGPIPE, SIG_DFL);

    struct sigaction rule = {};
    rule.sa_handler = EndBySignal;
    rule.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kEndingSignals)
    {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN)
            sigaction(signal, &rule, nullptr);
    }
}

EndingSignalsHeld::EndingSignalsHeld()
{
    g_heldSignal = 0;
    g_areSignalsHeld = 1;
}

EndingSignalsHeld::~EndingSignalsHeld()
{
    g_areSignalsHeld = 0;
    if (g_heldSignal != 0)
        raise(g_heldSignal); // its action is the default one by now
}

bool EndingSignalsHeld::HasCome() noexcept
{
    return g_heldSignal != 0;
}

std::string SignalName(int number)
{
    const char* const name = sigabbrev_np(number);
    return name == nullptr ? "?" : std::string("SIG") + name;
}

bool IsTerminal(int descriptor)
{
    return isatty(descriptor) == 1;
}

void WriteError(const std::string& text)
{
    for (std::size_t done = 0; done < text.size();)
    {
        const ssize_t written = write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return;
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
}

void ShowErrorLine(const std::string& line)
{
    g_lineIsShown = line.empty() ? 0 : 1;
    WriteError(kEraseLine + line);
}

std::filesystem::path SystemPath(const std::string& name)
{
    std::string path = name;
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

void ThrowSystemError(const std::string& name)
{
    CXFileException::ThrowOsError(fileGeneric, Widen(name).c_str(), nullptr);
}

void RequireFolderOf(const std::string& target)
{
    const std::filesystem::path folder = SystemPath(target).parent_path();
    std::error_code unknown; // is met again when the file is created
    if (folder.empty() || std::filesystem::exists(folder, unknown) || unknown)
        return;
    throw Failure(target, "there is no folder " + folder.string());
}

void CreateFolder(const std::string& name)
{
    std::error_code failure;
    std::filesystem::create_directories(SystemPath(name), failure);
    if (!failure)
        return;
    errno = failure.value();
    ThrowSystemError(name);
}

SpoolFile::SpoolFile() : m_descriptor(-1)
{
    std::string name = (std::filesystem::temp_directory_path() / "tev-XXXXXX").string();
    {
        const EndingSignalsBlocked blocked;
        m_descriptor = mkostemp(name.data(), O_CLOEXEC);
        if (m_descriptor >= 0)
            unlink(name.c_str());
    }
    if (m_descriptor < 0)
        ThrowSystemError(name);
    m_path = "/dev/fd/" + std::to_string(m_descriptor);
}

SpoolFile::~SpoolFile()
{
    close(m_descriptor);
}

namespace
{
/// The owner and the group stay those of the file that is replaced, as far as the system permits it.
bool GiveTo(int descriptor, const std::filesystem::path& replaced, mode_t permissions)
{
    constexpr mode_t kSetId = S_ISUID | S_ISGID;
    struct stat status;
    const bool isThere = stat(replaced.c_str(), &status) == 0;
    if (!isThere && errno != ENOENT)
        return false;
    if (isThere && fchown(descriptor, status.st_uid, status.st_gid) != 0)
    {
        if (errno != EPERM && errno != EINVAL) // in a namespace there may be no such user
            return false;
        permissions &= ~kSetId; // which would be another user's
        if (fchown(descriptor, static_cast<uid_t>(-1), status.st_gid) != 0)
            permissions &= ~mode_t{S_IRWXG} | (permissions & S_IRWXO) << 3; // nor may another group do more than others
    }
    return fchmod(descriptor, permissions) == 0;
}

/// The new name is on the disk then, where the folder may be read and its file system can tell.
void SyncFolderOf(const std::filesystem::path& path, const std::string& name)
{
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool hasFailed = descriptor >= 0 && fsync(descriptor) != 0 && (errno == EIO || errno == ENOSPC);
    const int error = errno;
    if (descriptor >= 0)
        close(descriptor);
    errno = error;
    if (hasFailed)
        ThrowSystemError(name);
}
} // namespace

Replacement::Replacement(const std::string& target) : m_name(target), m_target(SystemPath(target))
{
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(m_target, failure);
    if (status.type() == std::filesystem::file_type::none) // it may be a link, or have permissions to keep
    {
        errno = failure.value();
        ThrowSystemError(target);
    }
    if (std::filesystem::is_directory(status))
        throw Failure(target, "is a folder");
    if (std::filesystem::exists(status))
    {
        if (!std::filesystem::is_regular_file(status))
            throw Failure(target, "is not an ordinary file, and cannot be replaced by one");
        m_target = std::filesystem::canonical(m_target);
        if (access(m_target.c_str(), W_OK) != 0)
            ThrowSystemError(target);
        m_written = std::filesystem::last_write_time(m_target);
        m_size = std::filesystem::file_size(m_target);
    }

    RequireFolderOf(target);
    const mode_t permissions = PermissionsFor(status);
    std::string path = (m_target.parent_path() / ".tev-XXXXXX").string();
    if (path.size() >= sizeof g_temporaryPath)
        CXFileException::Throw(fileBadPath, Widen(target).c_str());
    int descriptor = -1;
    {
        const EndingSignalsBlocked blocked;
        descriptor = mkostemp(path.data(), O_CLOEXEC);
        if (descriptor >= 0)
            std::memcpy(g_temporaryPath, path.c_str(), path.size() + 1);
    }
    if (descriptor < 0)
        ThrowSystemError(target);
    m_path = path;
    const bool isPermitted = GiveTo(descriptor, m_target, permissions);
    const int error = errno;
    close(descriptor);
    if (!isPermitted)
    {
        unlink(g_temporaryPath);
        g_temporaryPath[0] = '\0';
        errno = error;
        ThrowSystemError(target);
    }
}

Replacement::~Replacement()
{
    const EndingSignalsBlocked blocked;
    if (!m_path.empty())
        unlink(m_path.c_str());
    g_temporaryPath[0] = '\0';
}

void Replacement::RequireUnchanged() const
{
    std::error_code failure;
    if (std::filesystem::last_write_time(m_target, failure) != m_written ||
        std::filesystem::file_size(m_target, failure) != m_size)
        throw Failure(m_name, "has been changed by another program meanwhile");
}

void Replacement::TakePlace()
{
    const EndingSignalsBlocked blocked;
    if (rename(m_path.c_str(), m_target.c_str()) != 0)
        ThrowSystemError(m_name);
    m_path.clear();
    g_temporaryPath[0] = '\0';
    SyncFolderOf(m_target, m_name);
}

} // namespace tev::tool
