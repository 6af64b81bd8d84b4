// Writers beside preference files and archives: the registry, the log, and the tool.

#include "tests/support/Places.h"
#include "tests/trials/OperationFiles.h"
#include "tests/trials/Operations.h"

#include "TevTools.h"

#include <cerrno>
#include <new>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

namespace tev::trials
{
namespace
{
constexpr const wchar_t* kRegistryPath = L"Software\\Trials";

// The registry, in a file of its own.

void UseRegistryIn(const fs::path& folder)
{
    const bool isSet = setenv("TEVTOOLS_REGISTRY", (folder / "registry.db").c_str(), 1) == 0 &&
                       setenv("TEVTOOLS_MACHINE_REGISTRY", (folder / "machine.db").c_str(), 1) == 0;
    if (!isSet) // else it would be the user's own
        throw std::bad_alloc();
}

bool WriteValues(const fs::path& folder, unsigned long value)
{
    UseRegistryIn(folder);
    CRegUtil registry(CRegUtil::kReadWrite);
    return registry.SetPath(kRegistryPath, true) && registry.WriteKeyInt(L"Value", value);
}

void PrepareRegistry(const fs::path& folder)
{
    WriteValues(folder, 10);
}

State LookAtRegistry(const fs::path& folder)
{
    UseRegistryIn(folder);
    CRegUtil registry(CRegUtil::kRead);
    unsigned long value = 0;
    if (!registry.SetPath(kRegistryPath, false) || !registry.GetKeyInt(L"Value", value))
        return State::Damaged;
    return value == 11 ? State::New : value == 10 ? State::Old : State::Damaged;
}

bool WriteRegistry(const fs::path& folder)
{
    return WriteValues(folder, 11);
}

bool ImportRegistry(const fs::path& folder)
{
    UseRegistryIn(folder);
    XRegistryImport result;
    return XImportRegistry(L"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Trials]\r\n"
                           L"\"Other\"=\"text\"\r\n\"Value\"=dword:0000000b\r\n",
                           result);
}

// The log.

constexpr const wchar_t* kLogLine = L"a line of the log\r\n";
constexpr int kLogLines = 5;

void PrepareLog(const fs::path& folder)
{
    SetLogFile(PathOf(folder, "log"), xLogCreate, 0xFF);
    WriteToLogFile(L"old\r\n");
    CloseLogFile();
}

/// What writes to the log may throw.
struct LogClosed
{
    ~LogClosed() { CloseLogFile(); }
};

bool WriteLog(const fs::path& folder)
{
    const LogClosed atEnd;
    if (!SetLogFile(PathOf(folder, "log"), xLogAppend, 0xFF))
        return false;
    for (int line = 0; line < kLogLines; ++line)
        WriteToLogFile(kLogLine);
    return CloseLogFile();
}

/// Messages that cannot be written are lost; what was there before stays.
State LookAtLog(const fs::path& folder)
{
    CStdioFileEx file;
    Text line;
    int lines = 0;
    bool hasOld = false;
    if (!file.Open(PathOf(folder, "log"), CXFile::modeRead | CXFile::typeText))
        return State::Damaged;
    while (file.ReadString(line))
    {
        hasOld = hasOld || line.Find(L"old") >= 0;
        lines += line.Find(L"a line of the log") >= 0 ? 1 : 0;
    }
    if (!hasOld)
        return State::Damaged;
    return lines == 0 ? State::Old : lines >= kLogLines ? State::New : State::Partly;
}

// Exports of the tool.

bool RunTool(std::vector<std::string> arguments)
{
    std::vector<char*> pointers;
    arguments.insert(arguments.begin(), test::kTool);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = 0;
    const bool isStarted = posix_spawn(&child, pointers[0], &actions, nullptr, pointers.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    while (isStarted && waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    return isStarted && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void PrepareExport(const fs::path& folder)
{
    PrepareRegistry(folder);
    WriteAll(folder / "source", "text\n");
    WriteAll(folder / "out", "old");
    HideBehindLink(folder, "out");
}

bool ExportRegistry(const fs::path& folder)
{
    UseRegistryIn(folder);
    return RunTool({"registry", "export", "HKEY_CURRENT_USER\\Software\\Trials", (folder / "out").string()});
}

bool ConvertText(const fs::path& folder)
{
    return RunTool({"text", "convert", (folder / "source").string(), (folder / "out").string(), "--to", "utf16"});
}

/// An export ends with the end of a line, in two bytes.
State LookAtExport(const fs::path& folder)
{
    const std::string found = ReadAll(folder / "out");
    if (!IsLinkKept(folder, "out"))
        return State::Damaged;
    const bool isComplete = found.size() > 4 && found.substr(found.size() - 2) == std::string("\n\0", 2);
    return found == "old" ? State::Old : isComplete ? State::New : State::Damaged;
}
} // namespace

std::vector<Operation> ServiceOperations()
{
    return {
        {"registry: write", PrepareRegistry, WriteRegistry, LookAtRegistry, State::New, false, false, false, true},
        {"registry: import", PrepareRegistry, ImportRegistry, LookAtRegistry, State::New, false, false, false, true},
        {"tev registry export", PrepareExport, ExportRegistry, LookAtExport, State::New, false, true, false, false,
         true},
        {"tev text convert", PrepareExport, ConvertText, LookAtExport, State::New, false, true, false, false, true},
        {"log", PrepareLog, WriteLog, LookAtLog, State::New, true},
    };
}
} // namespace tev::trials
