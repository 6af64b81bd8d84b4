#pragma once

#include "tests/support/Testing.h"

namespace tev::test
{
/// The output of lldb for commands about a dump.
inline std::string AskDebugger(const std::string& dump, const std::string& commands)
{
    const std::string line = "lldb --no-lldbinit --batch -c '" + dump + "' " + commands + " 2>&1 </dev/null";
    FILE* const pipe = popen(line.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot start the debugger");
    std::string answer;
    std::array<char, 4096> block;
    for (std::size_t count = 1; count != 0;)
    {
        count = std::fread(block.data(), 1, block.size(), pipe);
        answer.append(block.data(), count);
    }
    pclose(pipe);
    return answer;
}
} // namespace tev::test
