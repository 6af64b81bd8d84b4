// Lets each writer of the library meet each fault at each of its system calls and allocations, and looks at what is left.

#include "tests/trials/FaultInjector.h"
#include "tests/trials/Operations.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <numeric>
#include <set>
#include <stdexcept>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;
using namespace tev::trials;

constexpr const char* kUsage = R"(usage: tevtools_trials [--sample N] [--only NAME]

Runs trials of all writers of the library and prints a table of them in Markdown. Each trial is a process of its own, in
which one system call or allocation fails, or before which it is killed. What is wrong after one is printed on the error
output; the exit code is 1 then, and 77 where processes cannot be traced.

  --sample N    at most N trials of a writer with a fault, spread evenly; all if not given
  --only NAME   writers whose name begins so
  --help        this text
)";
constexpr int kExitFaults = 1;
constexpr int kExitSkipped = 77;

constexpr mode_t kPermissions = 07777;

struct FaultRow
{
    const char* name = "none";
    Fault fault = Fault::None;
    int error = 0;
    unsigned told = kToldNothing; ///< why an operation fails that does
};

constexpr FaultRow kFaults[] = {
    {"killed", Fault::Kill},
    {"EIO", Fault::Error, EIO, kToldInputOutput},
    {"ENOSPC", Fault::Error, ENOSPC, kToldDiskFull},
    {"ENOMEM", Fault::Error, ENOMEM, kToldMemory},
    {"EMFILE", Fault::Error, EMFILE, kToldDescriptors},
    {"EINTR", Fault::Error, EINTR},
    {"short", Fault::ShortTransfer},
    {"one allocation", Fault::OneAllocation, 0, kToldMemory},
    {"all from one on", Fault::AllAllocations, 0, kToldMemory},
};

class Folder
{
public:
    Folder()
    {
        std::string name = (fs::temp_directory_path() / "tevtools-trials-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create " + name);
        m_path = name;
    }
    ~Folder()
    {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const fs::path& Path() const { return m_path; }

private:
    fs::path m_path;
};

std::set<std::string> NamesIn(const fs::path& folder)
{
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        names.insert(entry.path().lexically_relative(folder).string());
    return names;
}

/// What this process has open.
std::multiset<std::string> OpenFiles()
{
    std::multiset<std::string> files;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
    {
        std::error_code isGone; // the descriptor that lists them
        const fs::path file = fs::read_symlink(entry.path(), isGone);
        if (!isGone && file.filename() != "fd")
            files.insert(file.string());
    }
    return files;
}

std::string OpenedSince(const std::multiset<std::string>& before)
{
    const std::multiset<std::string> now = OpenFiles();
    std::vector<std::string> opened;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(), std::back_inserter(opened));
    return std::accumulate(opened.begin(), opened.end(), std::string());
}

bool IsLocked(const fs::path& folder)
{
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isLocked = flock(descriptor, LOCK_EX | LOCK_NB) != 0;
    close(descriptor);
    return isLocked;
}

/// The trials of one writer.
class Trial
{
public:
    explicit Trial(const Operation& operation) : m_operation(operation), m_before(m_folder.Path() / "before")
    {
        fs::create_directory(m_before);
        InChild([&] { operation.prepare(m_before); });
        Refill();
        if (operation.keepsConnection)
        {
            Work work = MakeWork();
            work.inspect = [this] { return OpenedSince(m_openFiles); };
            m_connection = RunInChild(work).wrong;
            Refill();
        }
        const Ending ending = RunInChild(MakeWork());
        if (!ending.answer || !ending.wrong.empty() || Look() != operation.done)
            throw std::runtime_error(std::string(operation.name) + " fails without a fault " + ending.wrong);
        m_names = NamesIn(m_place);
        Refill();
        const std::string steps = RunInChild(MakeWork(), {Fault::Kill, 0, 0}).durability;
        if (operation.replaces && steps.find("fsync close rename fsync") == steps.npos)
            throw std::runtime_error(std::string(operation.name) + " is not on the disk: " + steps);
    }

    /// What plans of this fault can meet.
    unsigned Count(const FaultRow& fault)
    {
        Refill();
        return RunInChild(MakeWork(), {fault.fault, fault.error, 0}).count;
    }

    /// Whether the fault was met; `wrong` becomes what is wrong then.
    bool Run(const FaultRow& fault, unsigned at, std::string& wrong)
    {
        Refill();
        const Ending ending = RunInChild(MakeWork(fault), {fault.fault, fault.error, at});
        wrong = Judge(fault, ending);
        if (!wrong.empty())
            wrong += " (" + ending.call + ")";
        return ending.isHit;
    }

private:
    static void InChild(const std::function<void()>& work)
    {
        RunInChild({work, [] { return true; }, [] { return std::string(); }});
    }

    void Refill()
    {
        fs::remove_all(m_place);
        fs::copy(m_before, m_place, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        for (const auto& entry : fs::recursive_directory_iterator(m_before)) // whose owner is not copied
        {
            struct stat status;
            const fs::path copy = m_place / entry.path().lexically_relative(m_before);
            if (lstat(entry.path().c_str(), &status) == 0 && status.st_uid != geteuid() &&
                (lchown(copy.c_str(), status.st_uid, status.st_gid) != 0 ||
                 (!entry.is_symlink() && chmod(copy.c_str(), status.st_mode & kPermissions) != 0)))
                throw std::runtime_error("cannot copy the owner of " + copy.string());
        }
    }

    Work MakeWork(const FaultRow& fault = {})
    {
        return {[this] { m_openFiles = OpenFiles(); }, [this] { return Succeeds(m_operation, m_place); },
                [this, fault] {
                    if (HasThrown())
                        return std::string("an exception leaves the library");
                    const Told told = WhatWasTold();
                    if (!IsTold(fault, told.byClass) || !IsTold(fault, told.byRecord))
                        return "told as " + std::to_string(told.byClass) + " and " + std::to_string(told.byRecord);
                    if (m_operation.keepsConnection)
                        Succeeds(m_operation, m_place);
                    const std::string opened = OpenedSince(m_openFiles);
                    if (opened != m_connection)
                        return "stays open: " + opened;
                    return std::string(IsLocked(m_place) ? "the folder stays locked" : "");
                }};
    }

    /// Whether a failure is told as what it is.
    static bool IsTold(const FaultRow& fault, unsigned told)
    {
        const bool isAny = fault.told == kToldNothing || told == kToldNothing;
        const bool isOfDisk = fault.told == kToldDiskFull || fault.told == kToldInputOutput;
        const bool isDevice = fault.told == kToldInputOutput && told == kToldDevice;
        return isAny || told == fault.told || isDevice || (isOfDisk && told == kToldUnreachable);
    }

    State Look()
    {
        const auto look = [this] { std::_Exit(static_cast<int>(m_operation.look(m_place))); };
        const Ending ending = RunInChild({look, [] { return false; }, [] { return std::string(); }});
        return ending.exitCode < 0 ? State::Damaged : static_cast<State>(ending.exitCode);
    }

    std::string Judge(const FaultRow& fault, const Ending& ending)
    {
        if (fault.fault != Fault::Kill && !ending.hasEnded)
            return "ended by signal " + std::to_string(ending.signal);
        if (!ending.wrong.empty())
            return ending.wrong;
        const State state = Look();
        if (state == State::Damaged)
            return "damaged";
        const bool isCut = m_operation.endsAtReadError && fault.error == EIO && ending.call == "pread64";
        if (state == State::Partly && !m_operation.isInParts && !isCut)
            return "half done";
        if (ending.hasEnded && ending.answer && state != m_operation.done && !(isCut && state == State::Partly))
            return "true, and not done";
        // A flush of the folder that fails comes after the new file is in place; so may the killing of a program.
        if (ending.hasEnded && fault.fault != Fault::Kill && !ending.answer && state == State::New &&
            m_operation.done == State::New && !m_operation.isInParts && ending.call != "fsync" &&
            !m_operation.keepsConnection)
            return "false, and done";
        InChild([this] { Succeeds(m_operation, m_place); });
        if (Look() != m_operation.done)
            return "the next use fails";
        const bool mayLeave = fault.fault == Fault::Kill && m_operation.leavesWhenKilled;
        if (!mayLeave && NamesIn(m_place) != m_names)
            return "a file is left";
        return {};
    }

    const Operation& m_operation;
    Folder m_folder;
    fs::path m_before;
    fs::path m_place = m_folder.Path() / "place";
    std::set<std::string> m_names;
    std::multiset<std::string> m_openFiles;
    std::string m_connection; ///< what a success leaves open
};

/// Runs the trials of a writer with a fault; returns how many there were.
unsigned RunTrials(Trial& trial, const Operation& operation, const FaultRow& fault, unsigned most, unsigned& faults)
{
    const unsigned count = trial.Count(fault);
    const unsigned step = most == 0 ? 1 : std::max(1U, count / most);
    unsigned done = 0;
    for (unsigned at = 1 + (step - 1) / 2; at <= count; at += step)
    {
        std::string wrong;
        done += trial.Run(fault, at, wrong) ? 1 : 0;
        if (wrong.empty())
            continue;
        ++faults;
        std::fprintf(stderr, "%s, %s at %u of %u: %s\n", operation.name, fault.name, at, count, wrong.c_str());
    }
    return done;
}

int RunAll(unsigned most, const std::string& only)
{
    std::string heading = "| writer |";
    std::string line = "|---|";
    for (const FaultRow& fault : kFaults)
    {
        heading += std::string(" ") + fault.name + " |";
        line += "---:|";
    }
    std::printf("%s faults |\n%s---:|\n", heading.c_str(), line.c_str());
    unsigned allFaults = 0;
    for (const Operation& operation : Operations())
    {
        if (std::string(operation.name).rfind(only, 0) != 0)
            continue;
        Trial trial(operation);
        unsigned faults = 0;
        std::printf("| %s |", operation.name);
        for (const FaultRow& fault : kFaults)
        {
            std::printf(" %u |", RunTrials(trial, operation, fault, most, faults));
            std::fflush(stdout);
        }
        std::printf(" %u |\n", faults);
        allFaults += faults;
    }
    return allFaults == 0 ? 0 : kExitFaults;
}
} // namespace

int main(int count, char** arguments)
{
    unsigned most = 0;
    std::string only;
    for (int i = 1; i < count; ++i)
    {
        const std::string argument = arguments[i];
        const bool hasValue = i + 1 < count;
        if (argument == "--sample" && hasValue)
            most = static_cast<unsigned>(std::strtoul(arguments[++i], nullptr, 10));
        else if (argument == "--only" && hasValue)
            only = arguments[++i];
        else
            return std::fputs(kUsage, argument == "--help" ? stdout : stderr), argument == "--help" ? 0 : 2;
    }
    if (!CanTrace())
        return std::fputs("processes cannot be traced here\n", stderr), kExitSkipped;
    try
    {
        return RunAll(most, only);
    }
    catch (const std::exception& failure)
    {
        return std::fprintf(stderr, "%s\n", failure.what()), kExitFaults;
    }
}
