#include "tools/tev/ArchiveCommands.h"
#include "tools/tev/ColourCommand.h"
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

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace
{
using namespace tev::tool;

// A family of commands has a file of its own and one line here.
constexpr void (*kCommandFamilies[])(CLI::App&, Session&) = {
    AddTextCommands,     AddCrashCommands,    AddArchiveCommands, AddColourCommand, AddFileTypeCommands, AddLogCommands,
    AddSettingsCommands, AddRegistryCommands, AddWatchCommand,    AddUnpackCommand, AddZipCommands,
};

/// What to say where the word that names a command is missing or names none.
std::string MissingCommand(const CLI::App& tool, const CLI::App& family)
{
    const std::vector<std::string> words = tool.remaining(true);
    std::string text = &family == &tool ? "" : family.get_name() + ": ";
    text += words.empty() ? "a command is needed" : "there is no command " + words.front();
    const char* separator = words.empty() ? ": " : ", but ";
    for (const CLI::App* command : family.get_subcommands(nullptr))
    {
        text += separator + command->get_name();
        separator = ", ";
    }
    return text;
}

std::string UsageError(const CLI::App* tool, const CLI::Error& error)
{
    const CLI::App* command = tool;
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    const bool lacksCommand = command->get_require_subcommand_min() != 0;
    return "tev: " + (lacksCommand ? MissingCommand(*tool, *command) : error.what()) +
           "\nRun with --help for more information.\n";
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InstallSignalRules();

    Session session;
    CLI::App tool("The abilities of the TevTools library, from the command line.", "tev");
    tool.set_version_flag("--version", "tev " TEVTOOLS_VERSION);
    tool.require_subcommand(1);
    tool.failure_message(UsageError);
    for (const auto addFamily : kCommandFamilies)
        addFamily(tool, session);

    try
    {
        tool.parse(argumentCount, arguments);
    }
    catch (const CLI::ParseError& error)
    {
        return tool.exit(error) == 0 ? kExitDone : kExitUsage;
    }
    Attempt(session, "standard output", [&] { session.m_output.Flush(); });
    return session.m_exitCode;
}
