#include "tools/tev/ArchiveCommands.h"
#include "tools/tev/ColourCommand.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/CrashCommands.h"
#include "tools/tev/FileTypeCommands.h"
#include "tools/tev/LogCommands.h"
#include "tools/tev/RegistryCommands.h"
#include "tools/tev/SettingsCommands.h"
#include "tools/tev/System.h"
#include "tools/tev/TextCommands.h"
#include "tools/tev/Tool.h"
#include "tools/tev/UnpackCommand.h"
#include "tools/tev/WatchCommand.h"
#include "tools/tev/ZipCommands.h"

#include <cstdio>

namespace
{
int Run(int argumentCount, char** arguments)
{
    using namespace tev::tool;
    InstallSignalRules();

    Session session;
    // A family of commands has a file of its own and stands once here.
    const std::optional<int> exitCode = RunCommandLine(
        argumentCount, arguments,
        {AddTextCommands, AddCrashCommands, AddArchiveCommands, AddColourCommand, AddFileTypeCommands, AddLogCommands,
         AddSettingsCommands, AddRegistryCommands, AddWatchCommand, AddUnpackCommand, AddZipCommands},
        session);
    if (exitCode)
        return *exitCode;
    Attempt(session, "standard output", [&] { session.m_output.Flush(); });
    return session.m_exitCode;
}
} // namespace

int main(int argumentCount, char** arguments)
{
    try
    {
        return Run(argumentCount, arguments);
    }
    catch (...) // other failures are reported where they occur
    {
        std::fputs("tev: not enough memory\n", stderr);
        return tev::tool::kExitFailed;
    }
}
