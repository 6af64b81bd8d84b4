#pragma once

#include "tests/support/ForkedChild.h"
#include "tests/support/Places.h"
#include "tests/support/TempFolder.h"
#include "zip/CZip.h"

namespace tev::test
{
/// The program of tests/crash/program as a child process, with its own data folders and current folder.
class CrashingProgram
{
public:
    /// The helper is the real one unless another path is given. Starts with the program's output going to a pipe.
    explicit CrashingProgram(const std::vector<std::string>& arguments, const std::string& helper = {},
                             const std::vector<std::string>& environment = {})
    {
        std::vector<char*> words = {const_cast<char*>("tevtools_crash_ways")};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        for (const char* const name : {"user", "common", "temporary"})
            std::filesystem::create_directories(m_folder.Path(name));
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || (m_process = fork()) < 0)
            throw std::runtime_error("cannot start the crashing program");
        m_output = ends[0];
        if (m_process == 0)
        {
            dup2(ends[1], STDOUT_FILENO);
            dup2(open(m_folder.Path("errors").c_str(), O_RDWR | O_CREAT, 0600), STDERR_FILENO);
            if (chdir(m_folder.Path().c_str()) != 0)
                _exit(126);
            const rlimit few = {100, 100}; // one of the ways to crash exhausts them
            setrlimit(RLIMIT_NOFILE, &few);
            setenv("TEVTOOLS_USER_DATA", m_folder.Path("user").c_str(), 1);
            setenv("TEVTOOLS_COMMON_DATA", m_folder.Path("common").c_str(), 1);
            setenv("TMPDIR", m_folder.Path("temporary").c_str(), 1);
            for (const std::string& variable : environment)
                putenv(const_cast<char*>(variable.c_str()));
            if (!helper.empty())
                setenv("TEVTOOLS_CRASH_HELPER", helper.c_str(), 1);
            execv(kCrashWays, words.data());
            _exit(127);
        }
        close(ends[1]);
    }
    ~CrashingProgram()
    {
        if (m_process > 0)
        {
            kill(m_process, SIGKILL);
            Wait();
        }
        close(m_output);
    }
    CrashingProgram(const CrashingProgram&) = delete;
    CrashingProgram& operator=(const CrashingProgram&) = delete;

    pid_t Process() const { return m_process; }
    const TempFolder& Folder() const { return m_folder; }

    /// Waits until the program has printed so many lines, or ended.
    void AwaitLines(int count) const
    {
        char character = 0;
        while (count > 0 && read(m_output, &character, 1) == 1)
            count -= character == '\n' ? 1 : 0;
    }

    /// As ResultOf.
    int Wait() { return ResultOf(std::exchange(m_process, -1)); }

    /// The names in one of the folders "common", "user", "temporary".
    std::set<std::string> Names(const std::string& folder) const { return m_folder.Names(folder); }
    std::string Errors() const { return m_folder.ReadFile("errors"); }

private:
    TempFolder m_folder;
    pid_t m_process = -1;
    int m_output = -1;
};

/// The names of the files in an archive; a single "?" when it cannot be opened.
inline std::set<std::wstring> NamesInArchive(const std::wstring& path)
{
    CZip zip;
    if (!zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr))
        return {L"?"};
    std::set<std::wstring> names;
    for (int i = 0; i < zip.GetCount(false); ++i)
    {
        CZipFileInfo info;
        if (zip.GetFileInfo(info, static_cast<unsigned>(i)))
            names.insert(info.GetFileName().GetConstBuffer());
    }
    return names;
}
} // namespace tev::test
