#pragma once

#include <cstdint>
#include <string_view>

namespace tev::platform
{
/// One line of a process's list of mappings.
struct Mapping
{
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t fileOffset = 0;
    bool isReadable = false;
    bool isWritable = false;
    bool isExecutable = false;
    std::string_view path; ///< of the mapped file, a view of the text; empty or in brackets where there is none
};

/// Removes the first line from the text and parses it; false at the end. Malformed lines are skipped. Safe in signal
/// handlers.
bool NextMapping(std::string_view& text, Mapping& mapping) noexcept;
} // namespace tev::platform
