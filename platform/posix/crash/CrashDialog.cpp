#include "platform/CrashDialog.h"

#include "platform/CrashDumps.h"
#include "platform/posix/process/SpawnedProgram.h"

#include <cstdlib>
#include <exception>

namespace tev::platform
{
namespace
{
bool HasDisplay() noexcept
{
    for (const char* const name : {"DISPLAY", "WAYLAND_DISPLAY"})
    {
        const char* const display = std::getenv(name);
        if (display != nullptr && *display != '\0')
            return true;
    }
    return false;
}
} // namespace

bool StartCrashDialog(const std::vector<std::string>& arguments) noexcept
{
    try
    {
        const std::string program = HasDisplay() ? FindCrashProgram("tev-crash-dialog", "TEVTOOLS_CRASH_DIALOG") : "";
        if (program.empty())
            return false;
        std::vector<char*> words = {const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        return SpawnProgram({program.c_str(), false, true}, words.data()) != 0;
    }
    catch (const std::exception&)
    {
        return false;
    }
}
} // namespace tev::platform
