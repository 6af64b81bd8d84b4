#include "tools/tev/CommandLine.h"

#include "services/Version.h"
#include "tools/tev/CommandPages.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
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

std::vector<std::string> CommandNames(const CLI::App& family)
{
    std::vector<std::string> names;
    for (const CLI::App* command : family.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

/// What to say where the word that names a command is missing or names none.
std::string MissingCommand(const CLI::App& tool, const CLI::App& family)
{
    const std::vector<std::string> words = tool.remaining(true);
    std::string text = &family == &tool ? "" : family.get_name() + ": ";
    text += words.empty() ? "a command is needed" : "there is no command " + words.front();
    const char* separator = words.empty() ? ": " : ", but ";
    const std::vector<std::string> names = CommandNames(family);
    for (const std::string& name : names)
    {
        text += separator + name;
        separator = ", ";
    }
    const std::string nearest = words.empty() ? "" : NearestName(words.front(), names);
    return nearest.empty() ? text : text + "\nDid you mean " + nearest + "?";
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
/// The value's name in the help; the parser itself has names of types.
std::string ValueName(const CLI::Option& option)
{
    return option.get_items_expected_max() == 0 ? "" : option.get_type_name();
}

CommandPage PageOf(const CLI::App& command, const OptionChoices& choices)
{
    CommandPage page;
    page.m_name = command.get_name();
    page.m_help = command.get_description();
    page.m_footer = command.get_footer();
    for (const CLI::Option* option : command.get_options())
    {
        OptionPage described;
        for (const std::string& name : option->get_snames())
            described.m_names.push_back("-" + name);
        for (const std::string& name : option->get_lnames())
            described.m_names.push_back("--" + name);
        described.m_isArgument = described.m_names.empty();
        if (described.m_isArgument)
            described.m_names.push_back(option->get_name());
        described.m_value = described.m_isArgument ? "" : ValueName(*option);
        described.m_help = option->get_description();
        described.m_isRequired = option->get_required();
        const auto found = choices.find(option);
        if (found != choices.end())
            described.m_choices = found->second;
        page.m_options.push_back(std::move(described));
    }
    for (const CLI::App* below : command.get_subcommands(nullptr))
        page.m_commands.push_back(PageOf(*below, choices));
    return page;
}

/// The help of the command that the words name.
std::string HelpOf(const CLI::App& tool, const std::vector<std::string>& words)
{
    const CLI::App* command = &tool;
    std::string path = "tev ";
    for (const std::string& word : words)
    {
        const std::vector<std::string> names = CommandNames(*command);
        if (std::find(names.begin(), names.end(), word) == names.end())
        {
            const std::string nearest = NearestName(word, names);
            throw UsageError("there is no command " + word +
                             (nearest.empty() ? "" : "\nDid you mean " + nearest + "?"));
        }
        command = command->get_subcommand(word);
        path += word + " ";
    }
    // The parser's own way would describe the command that runs.
    path.pop_back();
    return command->get_formatter()->make_help(command, path, CLI::AppFormatMode::Normal);
}

void AddHelpCommands(const ToolCommand& whole, const CLI::App& tool, const OptionChoices& choices, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_words;
        bool m_isManual = false;
        std::string m_shell;
    };
    const auto options = std::make_shared<Options>();
    const ToolCommand help = whole.AddCommand("help", "Describe a command, or list all");
    const ToolOption words = help.AddArgument("COMMAND", options->m_words, "The command, such as: text cat");
    help.AddFlag("--man", options->m_isManual, "The manual page of all commands, for man").Excludes(words);
    help.OnRun([&, options] {
        session.m_output.Write(options->m_isManual ? ManualPage(PageOf(tool, choices), TEVTOOLS_VERSION_TEXT)
                                                   : HelpOf(tool, options->m_words));
    });
    const ToolCommand completion =
        whole.AddCommand("completion", "Print a script with which a shell completes command lines of tev");
    completion.AddArgument("SHELL", options->m_shell, "bash, zsh or fish").OneOf(CompletedShells()).Required();
    completion.OnRun(
        [&, options] { session.m_output.Write(CompletionScript(PageOf(tool, choices), options->m_shell)); });
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
    (*m_choices)[m_option] = choices;
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

ToolOption ToolOption::Several() const
{
    m_option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
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
    return ToolCommand(*m_command->add_subcommand(name, help), *m_choices);
}

ToolCommand ToolCommand::AddFamily(const std::string& name, const std::string& help) const
{
    CLI::App& family = *m_command->add_subcommand(name, help);
    family.require_subcommand(1);
    return ToolCommand(family, *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, std::string& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, std::vector<std::string>& values,
                                  const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, values, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, int& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, unsigned& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, std::vector<unsigned>& values, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, values, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, float& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddOption(const std::string& name, std::optional<float>& value, const std::string& help) const
{
    return ToolOption(*m_command->add_option(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddParsedOption(const std::string& name, std::function<void(const std::string&)> parse,
                                        const std::string& help) const
{
    const auto parseEach = [parse = std::move(parse)](const std::vector<std::string>& values) {
        for (const std::string& value : values)
            CallWithUsageErrors(parse, value);
        return true;
    };
    return ToolOption(*m_command->add_option(name, parseEach, help)->expected(1), *m_choices);
}

ToolOption ToolCommand::AddFlag(const std::string& name, bool& value, const std::string& help) const
{
    return ToolOption(*m_command->add_flag(name, value, help), *m_choices);
}

ToolOption ToolCommand::AddFlag(const std::string& name, const std::string& help) const
{
    return ToolOption(*m_command->add_flag(name, help), *m_choices);
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
    OptionChoices choices;
    CLI::App tool("The abilities of the TevTools library, from the command line.", "tev");
    tool.set_version_flag("--version", "tev " TEVTOOLS_VERSION_TEXT);
    tool.require_subcommand(1);
    tool.failure_message(UsageErrorText);
    const ToolCommand whole(tool, choices);
    for (const AddCommands addFamily : families)
        addFamily(whole, session);
    AddRawFlags(tool, session);
    AddHelpCommands(whole, tool, choices, session);

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
