// How long a program takes from its start to its end that loads the library, or is the tool, compared with an empty one.

#include <benchmark/benchmark.h>

#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
void Start(benchmark::State& state, const char* program, const char* argument)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string words[] = {program, argument};
    char* const arguments[] = {words[0].data(), words[1].data(), nullptr};
    for (auto _ : state)
    {
        pid_t process = 0;
        int status = 1;
        if (posix_spawn(&process, program, &actions, nullptr, arguments, environ) != 0 ||
            waitpid(process, &status, 0) != process || status != 0)
        {
            state.SkipWithError("the program does not run");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK_CAPTURE(Start, , TEVTOOLS_START_LIBRARY, "")->Name("Start/Library/ours")->UseRealTime();
BENCHMARK_CAPTURE(Start, , TEVTOOLS_START_EMPTY, "")->Name("Start/Library/empty_program")->UseRealTime();
#if defined(TEVTOOLS_TEV)
BENCHMARK_CAPTURE(Start, , TEVTOOLS_TEV, "--version")->Name("Start/Tool/ours")->UseRealTime();
BENCHMARK_CAPTURE(Start, , TEVTOOLS_START_EMPTY, "")->Name("Start/Tool/empty_program")->UseRealTime();
#endif
} // namespace
