// What the tool prints with --json is valid JSON in UTF-8, an object a line, whatever is in the file that it shows.

#include "tests/support/TempFolder.h"
#include "tools/tev/ArchiveCommands.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/CrashCommands.h"
#include "tools/tev/LogCommands.h"
#include "tools/tev/SettingsCommands.h"
#include "tools/tev/TextCommands.h"
#include "tools/tev/Tool.h"
#include "tools/tev/UnpackCommand.h"
#include "tools/tev/ZipCommands.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
using namespace tev::tool;

const std::vector<std::vector<std::string>> kCommands = {
    {"text", "info", "FILE"},
    {"archive", "dump", "FILE", "--class", "X=bool a,wchar b,float c,double d,text e,object f,objects g"},
    {"unpack", "--list", "FILE"},
    {"zip", "list", "FILE"},
    {"zip", "test", "FILE"},
    {"crash", "show", "FILE", "--threads", "--modules"},
    {"log", "show", "FILE"},
    {"settings", "list", "FILE"},
    {"settings", "show", "FILE", "1", "2"},
    {"settings", "check", "FILE"},
};

/// The standard output, which the fuzzer itself does not use.
class Streams
{
public:
    Streams() : m_output(memfd_create("output", 0)) { dup2(m_output, STDOUT_FILENO); }
    std::string Take() const
    {
        std::string text(static_cast<std::size_t>(lseek(m_output, 0, SEEK_END)), '\0');
        if (pread(m_output, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("the output cannot be read");
        if (ftruncate(m_output, 0) != 0 || lseek(m_output, 0, SEEK_SET) != 0)
            throw std::runtime_error("the output cannot be cut");
        return text;
    }

private:
    const int m_output;
};

void Run(const std::vector<std::string>& command)
{
    std::vector<char*> words = {const_cast<char*>("tev")};
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(const_cast<char*>("--json"));
    Session session;
    const std::optional<int> exitCode =
        RunCommandLine(static_cast<int>(words.size()), words.data(),
                       {AddTextCommands, AddCrashCommands, AddArchiveCommands, AddLogCommands, AddSettingsCommands,
                        AddUnpackCommand, AddZipCommands},
                       session);
    if (exitCode)
        throw std::logic_error("wrong usage");
    session.m_output.Flush();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Streams streams;
    static const tev::test::TempFolder folder;
    if (size == 0)
        return 0;
    const std::string file = folder.Path("file").string();
    folder.WriteFile("file", std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    std::vector<std::string> command = kCommands[data[0] % kCommands.size()];
    for (std::string& word : command)
        word = word == "FILE" ? file : word;
    Run(command);

    std::string lines = streams.Take();
    for (std::size_t end = lines.find('\n'); end != lines.npos; end = lines.find('\n'))
    {
        static_cast<void>(nlohmann::json::parse(lines.substr(0, end))); // throws
        lines.erase(0, end + 1);
    }
    if (!lines.empty())
        throw std::logic_error("a line without an end");
    return 0;
}
