#include "platform/MailProgram.h"
#include "platform/Cancellation.h"

#include "platform/Threads.h"
#include "platform/posix/process/SpawnedProgram.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <vector>

#include <sys/wait.h>

namespace tev::platform
{
namespace
{
using Clock = std::chrono::steady_clock;

constexpr auto kLongestStart = std::chrono::seconds(60);
constexpr unsigned kBetweenLooksMs = 5;

/// Whether the program has ended with exit code 0.
bool EndsWell(pid_t program) noexcept
{
    const WithoutCancellation whole;
    const Clock::time_point end = Clock::now() + kLongestStart;
    for (;;)
    {
        int status = 0;
        const pid_t answer = waitpid(program, &status, WNOHANG);
        if (answer == program)
            return WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (answer < 0 && errno != EINTR)
            return false; // the process ignores SIGCHLD
        if (Clock::now() >= end)
            break;
        SleepThisThread(kBetweenLooksMs);
    }
    kill(program, SIGTERM);
    waitpid(program, nullptr, 0);
    return false;
}

/// Whether the text is an address and cannot be taken for an option.
bool IsAddress(const std::string& text)
{
    return !text.empty() && text[0] != '-' && text.find('@') != text.npos &&
           text.find_first_of(" \t\r\n,;<>\"'") == text.npos;
}
} // namespace

bool HandToMailProgram(const MailMessage& message)
{
    constexpr const char* kProgram = "xdg-email";
    if (!IsAddress(message.to))
        return false;
    std::vector<std::string> words = {kProgram, "--utf8", "--subject", message.subject, "--body", message.body};
    if (IsAddress(message.copyTo))
        words.insert(words.end(), {"--cc", message.copyTo});
    words.insert(words.end(), {"--attach", message.attachment, message.to});
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t program = SpawnProgram({kProgram, true}, arguments.data());
    return program != 0 && EndsWell(program);
}
} // namespace tev::platform
