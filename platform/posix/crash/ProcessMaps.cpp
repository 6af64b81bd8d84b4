#include "platform/posix/crash/ProcessMaps.h"

#include <charconv>

namespace tev::platform
{
namespace
{
bool TakeHex(std::string_view& line, char behind, std::uint64_t& value) noexcept
{
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), value, 16);
    if (error != std::errc() || end == line.data() + line.size() || *end != behind)
        return false;
    line.remove_prefix(static_cast<std::size_t>(end - line.data()) + 1);
    return true;
}

// "7f00-7f10 r-xp 00001000 08:02 1234   /usr/lib/libc.so.6"
bool ReadMapping(std::string_view line, Mapping& mapping) noexcept
{
    if (!TakeHex(line, '-', mapping.start) || !TakeHex(line, ' ', mapping.end) || line.size() < 5)
        return false;
    mapping.isReadable = line[0] == 'r';
    mapping.isWritable = line[1] == 'w';
    mapping.isExecutable = line[2] == 'x';
    line.remove_prefix(5);
    if (!TakeHex(line, ' ', mapping.fileOffset))
        return false;
    for (int field = 0; field < 2; ++field) // device and inode
    {
        const std::size_t blank = line.find(' ');
        if (blank == line.npos)
            return field == 1;
        line.remove_prefix(blank + 1);
    }
    const std::size_t path = line.find_first_not_of(' ');
    mapping.path = path == line.npos ? std::string_view() : line.substr(path);
    return true;
}
} // namespace

bool NextMapping(std::string_view& text, Mapping& mapping) noexcept
{
    while (!text.empty())
    {
        const std::size_t length = text.find('\n');
        const std::string_view line = text.substr(0, length);
        text.remove_prefix(length == text.npos ? text.size() : length + 1);
        mapping = {};
        if (ReadMapping(line, mapping))
            return true;
    }
    return false;
}
} // namespace tev::platform
