#include "tools/tev/CommandLine.h"

#include "services/Version.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <CLI/CLI.hpp>

#include <utility>

namespace tev::tool
{
namespace
{
/// The parser knows errors of its own only.
template <class Function, class... Arguments>
void CallWithUsageErrors(const Function& function, const Arguments&... arguments)
{
    try
    {
        function(arguments...);
    }
    catch (const UsageError& error)
    {
        throw CLI::ValidationError(error.what());
    }
}

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

std::string UsageErrorText(const CLI::App* tool, const CLI::Error& error)
{
    const CLI::App* command = tool;
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    const bool lacksCommand = command->get_require_subcommand_min() != 0;
    const std::string text = "tev: " + (lacksCommand ? MissingCommand(*tool, *command) : error.what()) +
                             "\nRun with --help for more information.\n";
    return IsTerminal(kStandardError) ? PrintableText(text) : text;
}

void AddRawFlags(CLI::App& command, Session& session)
{
    const std::vector<CLI::App*> commands = command.get_subcommands(nullptr);
    for (CLI::App* below : commands)
        AddRawFlags(*below, session);
    const auto setRaw = [&session] {
        session.m_isRaw = true;
        session.m_output.SetRaw();
    };
    if (commands.empty())
        command.add_flag_callback("--raw", setRaw, "Print control characters of names and texts to a terminal, too");
}
} // namespace

ToolOption ToolOption::Required(bool required) const
{
    m_option->required(required);
    return *this;
}

ToolOption ToolOption::Description(const std::string& help) const
{
    m_option->description(help);
    return *this;
}

ToolOption ToolOption::ValueName(const std::string& name) const
{
    m_option->type_name(name);
    return *this;
}

ToolOption ToolOption::OneOf(const std::vector<std::string>& choices) const
{
    m_option->check(CLI::IsMember(choices).description(""));
    return *this;
}

ToolOption ToolOption::InRange(int lowest, int highest) const
{
    m_option->check(CLI::Range(lowest, highest).description(""));
    return *this;
}

ToolOption ToolOption::Excludes(const ToolOption& other) const
{
    m_option->excludes(other.m_option);
    return *this;
}

ToolOption ToolOption::CommaSeparated() const
{
    m_option->delimiter(',')->allow_extra_args(false);
    return *this;
}

ToolOption ToolOption::Repeatable() const
{
    m_option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    return *this;
}

ToolOption ToolOption::ShowDefault() const
{
    m_option->capture_default_str();
    return *this;
}

bool ToolOption::IsGiven() const
{
    return m_option->count() != 0;
}

ToolCommand ToolCommand::AddCommand(const std::string& name, const std::string& help) const
{
    return ToolCommand(*m_command->add_subcommand(name, help));
}

ToolCommand ToolCommand::AddFamily(const std::string& name, const std::string& help) const
{
    CLI::App& family = *m_command->add_subcommand(name, help);
    family.require_subcommand(1);
    return ToolCommand(family);
}

ToolOption ToolCommand::AddOption(const std::string& name, std::string& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, std::vector<std::string>& values,
                                  const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, values, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, int& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, unsigned& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, std::vector<unsigned>& values, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, values, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, float& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help));
}

ToolOption ToolCommand::AddOption(const std::string& name, std::optional<float>& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help));
}

ToolOption ToolCommand::AddParsedOption(const std::string& name, std::function<void(const std::string&)> parse,
                                        const std::string& help) const
{
    const auto parseEach = [parse = std::move(parse)](const std::vector<std::string>& values) {
        for (const std::string& value : values)
            CallWithUsageErrors(parse, value);
        return true;
    };
    return ToolOption(*m_command->add_option(name, parseEach, help)->expected(1));
}

ToolOption ToolCommand::AddFlag(const std::string& name, bool& value, const std::string& help) const
{
    return ToolOption(*m_command->add_flag(name, value, help));
}

ToolOption ToolCommand::AddFlag(const std::string& name, const std::string& help) const
{
    return ToolOption(*m_command->add_flag(name, help));
}

void ToolCommand::Footer(const std::string& text) const
{
    m_command->footer(text);
}

void ToolCommand::OnRun(std::function<void()> run) const
{
    m_command->callback([run = std::move(run)] { CallWithUsageErrors(run); });
}

std::optional<int> RunCommandLine(int argumentCount, char** arguments, std::initializer_list<AddCommands> families,
                                  Session& session)
{
    CLI::App tool("The abilities of the TevTools library, from the command line.", "tev");
    tool.set_version_flag("--version", "tev " TEVTOOLS_VERSION_TEXT);
    tool.require_subcommand(1);
    tool.failure_message(UsageErrorText);
    for (const AddCommands addFamily : families)
        addFamily(ToolCommand(tool), session);
    AddRawFlags(tool, session);

    try
    {
        tool.parse(argumentCount, arguments);
        return std::nullopt;
    }
    catch (const CLI::ParseError& error)
    {
        return tool.exit(error) == 0 ? kExitDone : kExitUsage;
    }
}

} // namespace tev::tool
