#include "platform/posix/crash/MappedProcess.h"

#include "platform/posix/crash/BuildId.h"
#include "platform/posix/crash/MachineState.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include <signal.h>
#include <sys/uio.h>

namespace tev::platform
{
void MappedProcess::SetMaps(std::string_view maps) noexcept
{
    m_maps = m_behindModule = maps;
    m_endOfModule = 0;
}

bool MappedProcess::Read(std::uint64_t address, void* buffer, std::size_t size) noexcept
{
    const iovec here = {buffer, size};
    const iovec there = {reinterpret_cast<void*>(address), size};
    return process_vm_readv(m_process, &here, 1, &there, 1, 0) == static_cast<ssize_t>(size);
}

bool MappedProcess::FindMapping(std::uint64_t address, DumpedMapping& mapping) noexcept
{
    std::string_view text = m_maps;
    Mapping line;
    while (NextMapping(text, line))
    {
        if (line.end <= address)
            continue;
        mapping = {line.start, line.end, line.isReadable, line.isWritable};
        return true;
    }
    return false;
}

/// A module is a run of mappings of one file of which some can be executed.
bool MappedProcess::FindModule(std::uint64_t address, DumpedModule& module) noexcept
{
    std::string_view text = address == m_endOfModule ? m_behindModule : m_maps;
    std::string_view before = text;
    Mapping file;
    Mapping line;
    bool hasCode = false;
    const auto finish = [&] {
        if (!hasCode)
            return false;
        module.start = file.start;
        module.end = m_endOfModule = file.end;
        module.path = file.path;
        m_behindModule = before;
        module.buildIdSize = ReadBuildId(*this, module.start, m_page, module.buildId);
        return true;
    };
    for (; NextMapping(text, line); before = text)
    {
        if (!file.path.empty() && line.path == file.path)
        {
            file.end = line.end;
            hasCode = hasCode || line.isExecutable;
            continue;
        }
        // Mappings without a file are, for example, a module's zero-initialized data.
        if (line.start < address || line.path.empty() || line.path[0] != '/')
            continue;
        if (finish())
            return true;
        file = line;
        hasCode = line.isExecutable;
    }
    return finish();
}

// The system's record of the interrupted code, on an alternate stack, contains the description of that stack: the search is
// for this. In the record of the outermost handler the stack is described as not in use.
std::uint64_t MappedProcess::InterruptedStack(std::uint64_t stackPointer) noexcept
{
    constexpr std::uint64_t kMostSearched = std::uint64_t{128} << 10;
    constexpr std::uint64_t kLargestStack = std::uint64_t{64} << 20;
    constexpr std::size_t kContextSize = offsetof(ucontext_t, uc_sigmask);
    DumpedMapping mapping;
    if (!FindMapping(stackPointer, mapping) || mapping.start > stackPointer)
        return 0;
    const std::uint64_t end = std::min(mapping.end, stackPointer + kMostSearched);
    for (std::uint64_t block = stackPointer & ~std::uint64_t{7}; block < end; block += sizeof m_page - sizeof(stack_t))
    {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof m_page, end - block));
        if (!Read(block, m_page, size))
            return 0;
        for (std::size_t at = 0; at + sizeof(stack_t) <= size; at += 8)
        {
            stack_t stack;
            std::memcpy(&stack, m_page + at, sizeof stack);
            const auto start = reinterpret_cast<std::uintptr_t>(stack.ss_sp);
            const std::uint64_t place = block + at - offsetof(ucontext_t, uc_stack);
            if (stack.ss_flags != 0 || start > stackPointer || stack.ss_size > kLargestStack ||
                stackPointer - start >= stack.ss_size || place + kContextSize - start > stack.ss_size)
                continue;
            ucontext_t context = {};
            MachineState interrupted;
            if (!Read(place, &context, kContextSize))
                continue;
            StateFromContext(context, interrupted);
            if (interrupted.size != 0 && interrupted.stackPointer - start >= stack.ss_size)
                return interrupted.stackPointer;
        }
    }
    return 0;
}
} // namespace tev::platform
