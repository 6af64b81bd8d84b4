#pragma once

#include "platform/FrameState.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tev::platform
{
/// The file of a program or library: what its functions are called, and how their frames are left. Anything may stand in
/// the file. Immutable.
class ModuleFile
{
public:
    /// Null when there is no such file of that identity.
    static std::unique_ptr<ModuleFile> Open(const std::string& path, const std::vector<unsigned char>& buildId);
    /// As above, of the file's bytes, whatever its identity.
    static std::unique_ptr<ModuleFile> Read(std::vector<unsigned char> bytes);
    ~ModuleFile();
    ModuleFile(const ModuleFile&) = delete;
    ModuleFile& operator=(const ModuleFile&) = delete;

    const std::vector<unsigned char>& BuildId() const noexcept;
    /// The function at an offset from where the module was loaded, as a person writes it; false when it is not known.
    [[nodiscard]] bool FindFunction(std::uint64_t offset, std::string& name, std::uint64_t& offsetInFunction) const;
    /// Goes from a frame to the one that called it; `offset` is that of an instruction in the frame's function. False when
    /// that is not known.
    [[nodiscard]] bool LeaveFrame(std::uint64_t offset, FrameState& state, const StackReader& stack) const;

private:
    struct Contents;
    explicit ModuleFile(std::unique_ptr<const Contents> contents) noexcept;

    const std::unique_ptr<const Contents> m_contents;
};
} // namespace tev::platform
