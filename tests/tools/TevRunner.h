#pragma once

#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Pipe.h"
#include "tests/support/Places.h"

namespace tev::test
{
using testing::_;
using testing::AllOf;
using testing::EndsWith;
using testing::FieldsAre;

/// The tool as a child process. Its texts are English, and its standard input is empty unless one is given.
class TevProcess
{
public:
    /// Starts it. A descriptor of -1 stands for /dev/null; `prepare` runs in the child before the tool does.
    TevProcess(const std::vector<std::string>& arguments, int input, int output, int error,
               const std::function<void()>& prepare = nullptr)
    {
        std::vector<char*> words = {const_cast<char*>("tev")};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        // Made before the fork: a sanitizer's memory may be locked in the child for ever.
        std::vector<char*> environment = {const_cast<char*>("LC_ALL=C"), const_cast<char*>("LANGUAGE=en")};
        for (char** variable = environ; *variable != nullptr; ++variable)
        {
            const std::string_view entry = *variable;
            if (entry.rfind("LC_ALL=", 0) != 0 && entry.rfind("LANGUAGE=", 0) != 0)
                environment.push_back(*variable);
        }
        environment.push_back(nullptr);
        m_process = fork();
        if (m_process < 0)
            throw std::runtime_error("cannot fork");
        if (m_process > 0)
            return;
        const int null = open("/dev/null", O_RDWR);
        dup2(input < 0 ? null : input, STDIN_FILENO);
        dup2(output < 0 ? null : output, STDOUT_FILENO);
        dup2(error < 0 ? null : error, STDERR_FILENO);
        environ = environment.data();
        if (prepare)
            prepare();
        execv(kTool, words.data());
        _exit(127);
    }

    ~TevProcess()
    {
        if (m_process > 0)
        {
            Signal(SIGKILL);
            Wait();
        }
    }

    TevProcess(const TevProcess&) = delete;
    TevProcess& operator=(const TevProcess&) = delete;

    void Signal(int signal) const { kill(m_process, signal); }

    /// As ResultOf.
    int Wait() { return ResultOf(std::exchange(m_process, -1)); }

private:
    pid_t m_process = -1;
};

struct TevResult
{
    int m_exitCode;
    std::string m_output;
    std::string m_error;
};

/// Runs the tool to its end. The input goes through a pipe and must fit into it (64 KiB).
inline TevResult RunTev(const std::vector<std::string>& arguments, const std::string& input = {},
                        const std::function<void()>& prepare = nullptr)
{
    const auto readAll = [](FILE* file) {
        std::string text;
        std::rewind(file);
        for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
            text += static_cast<char>(c);
        std::fclose(file);
        return text;
    };
    FILE* output = std::tmpfile();
    FILE* error = std::tmpfile();
    if (output == nullptr || error == nullptr)
        throw std::runtime_error("cannot make temporary files");
    Pipe pipe;
    if (write(pipe.WriteEnd(), input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        throw std::runtime_error("cannot feed the tool");
    pipe.CloseWrite();
    TevProcess process(arguments, pipe.ReadEnd(), fileno(output), fileno(error), prepare);
    const int exitCode = process.Wait();
    return {exitCode, readAll(output), readAll(error)};
}

/// What the tool prints to a terminal on which it runs, errors too; nothing where this system has no terminals.
inline std::optional<std::string> RunTevOnTerminal(const std::vector<std::string>& arguments)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0)
        return std::nullopt;
    const int toolsEnd = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::string text;
    {
        TevProcess tool(arguments, -1, toolsEnd, toolsEnd);
        close(toolsEnd);
        char buffer[256];
        for (ssize_t count = 1; count > 0;) // until all copies of the other end are closed
        {
            count = read(terminal, buffer, sizeof buffer);
            text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        tool.Wait();
    }
    close(terminal);
    return text;
}

/// Reads until the text arrives, or until nothing arrives for ten seconds.
inline std::string ReadUntil(int descriptor, const std::string& awaited)
{
    std::string text;
    char buffer[256];
    pollfd waiting = {descriptor, POLLIN, 0};
    while (text.find(awaited) == text.npos && poll(&waiting, 1, 10000) == 1)
    {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count <= 0)
            break;
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace tev::test
