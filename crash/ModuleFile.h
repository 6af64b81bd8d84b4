#pragma once

#include "crash/FrameRules.h"
#include "crash/UntrustedBytes.h"
#include "text/CXTString.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tev
{
/// The file of a program or library: the names of its functions and the rules to unwind their frames. The file is untrusted
/// input, and stays open. One thread at a time.
class ModuleFile
{
public:
    /// Null when there is no file with that build identifier at the path.
    static std::unique_ptr<ModuleFile> Open(const CXTString<wchar_t>& path, const std::vector<unsigned char>& buildId);
    /// As above from the file's bytes, with any build identifier.
    static std::unique_ptr<ModuleFile> Read(UntrustedBytes bytes);
    ~ModuleFile();
    ModuleFile(const ModuleFile&) = delete;
    ModuleFile& operator=(const ModuleFile&) = delete;

    const std::vector<unsigned char>& BuildId() const noexcept;
    /// The demangled name of the function at an offset from the module's load address; false when unknown.
    [[nodiscard]] bool FindFunction(std::uint64_t offset, std::string& name, std::uint64_t& offsetInFunction) const;
    /// Unwinds a frame to its caller's; `offset` is that of an instruction in the frame's function.
    [[nodiscard]] FrameStep LeaveFrame(std::uint64_t offset, FrameState& state, const StackReader& stack) const;

private:
    struct Contents;
    explicit ModuleFile(std::unique_ptr<const Contents> contents) noexcept;

    const std::unique_ptr<const Contents> m_contents;
};
} // namespace tev
