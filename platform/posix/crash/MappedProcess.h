#pragma once

#include "platform/MinidumpWriter.h"
#include "platform/posix/crash/BuildId.h"
#include "platform/posix/crash/ProcessMaps.h"

#include <string_view>

#include <sys/types.h>

namespace tev::platform
{
/// The memory, mappings and modules of a process of this user, or of the calling process.
class MappedProcess : public DumpedProcess
{
public:
    /// The text of the process's list of mappings, which must outlive this.
    void SetMaps(std::string_view maps) noexcept;
    std::string_view Maps() const noexcept { return m_maps; }

    /// Reading an unmapped address fails instead of faulting.
    bool Read(std::uint64_t address, void* buffer, std::size_t size) noexcept override;
    bool FindMapping(std::uint64_t address, DumpedMapping& mapping) noexcept override;
    bool FindModule(std::uint64_t address, DumpedModule& module) noexcept override;
    std::uint64_t InterruptedStack(std::uint64_t stackPointer) noexcept override;

protected:
    explicit MappedProcess(pid_t process) noexcept : m_process(process) {}
    ~MappedProcess() = default;

private:
    const pid_t m_process;
    std::string_view m_maps;
    std::string_view m_behindModule;             ///< the lines behind the module that was found last
    std::uint64_t m_endOfModule = 0;             ///< and where it ends
    alignas(8) unsigned char m_page[kMostNotes]; ///< not on the small stack of a signal handler
};
} // namespace tev::platform
