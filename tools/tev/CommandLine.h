#pragma once

#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

// The command line in the tool's own terms. The parser behind it takes long to compile, so one source alone includes it.
namespace tev::tool
{

struct Session;

/// Thrown by the parser of a value, or by a command before it has done anything: the arguments are invalid.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What the parser does not keep: the values that an option takes.
using OptionChoices = std::map<const CLI::Option*, std::vector<std::string>>;

/// An option or a positional argument of a command. The handle is cheap to copy and valid until the run ends.
class ToolOption
{
public:
    ToolOption(CLI::Option& option, OptionChoices& choices) noexcept : m_option(&option), m_choices(&choices) {}

    ToolOption Required(bool required = true) const;
    ToolOption Description(const std::string& help) const;
    /// The name of the value in the help.
    ToolOption ValueName(const std::string& name) const;
    /// Another value is a usage error.
    ToolOption OneOf(const std::vector<std::string>& choices) const;
    template <class T>
    ToolOption OneOf(const std::map<std::string, T>& choices) const
    {
        std::vector<std::string> names;
        names.reserve(choices.size());
        for (const auto& choice : choices)
            names.push_back(choice.first);
        return OneOf(names);
    }
    ToolOption InRange(int lowest, int highest) const;
    /// Cannot be given together with the other.
    ToolOption Excludes(const ToolOption& other) const;
    /// One argument holds several values, with commas between them.
    ToolOption CommaSeparated() const;
    /// An argument that takes all words that are left.
    ToolOption Several() const;
    /// May be given several times, with one value each.
    ToolOption Repeatable() const;
    /// The help shows the value that counts when none is given.
    ToolOption ShowDefault() const;

    bool IsGiven() const;

private:
    CLI::Option* m_option;
    OptionChoices* m_choices;
};

/// A command of the tool, or a family of them. The handle is cheap to copy and valid until the run ends; so must be what
/// the values are bound to.
class ToolCommand
{
public:
    ToolCommand(CLI::App& command, OptionChoices& choices) noexcept : m_command(&command), m_choices(&choices) {}

    ToolCommand AddCommand(const std::string& name, const std::string& help) const;
    /// A family of commands, which are added to it; a command line that names none of them is a usage error.
    ToolCommand AddFamily(const std::string& name, const std::string& help) const;

    /// Positional; T is one of the types of AddOption.
    template <class T>
    ToolOption AddArgument(const std::string& name, T& value, const std::string& help) const
    {
        return AddOption(name, value, help).ValueName("");
    }

    ToolOption AddOption(const std::string& name, std::string& value, const std::string& help) const;
    ToolOption AddOption(const std::string& name, std::vector<std::string>& values, const std::string& help) const;
    ToolOption AddOption(const std::string& name, int& value, const std::string& help) const;
    ToolOption AddOption(const std::string& name, unsigned& value, const std::string& help) const;
    ToolOption AddOption(const std::string& name, std::vector<unsigned>& values, const std::string& help) const;
    ToolOption AddOption(const std::string& name, float& value, const std::string& help) const;
    ToolOption AddOption(const std::string& name, std::optional<float>& value, const std::string& help) const;
    /// `parse` takes the value; it may throw UsageError.
    ToolOption AddParsedOption(const std::string& name, std::function<void(const std::string&)> parse,
                               const std::string& help) const;

    ToolOption AddFlag(const std::string& name, bool& value, const std::string& help) const;
    ToolOption AddFlag(const std::string& name, const std::string& help) const;

    /// Printed below the options in the help.
    void Footer(const std::string& text) const;
    /// Called when the command line names this command; it may throw UsageError.
    void OnRun(std::function<void()> run) const;

private:
    CLI::App* m_command;
    OptionChoices* m_choices;
};

using AddCommands = void (*)(const ToolCommand& tool, Session& session);

/// Parses the command line and runs the command that it names. Prints help, the version and usage errors; where it printed
/// one of these instead of running a command, it returns the process's exit code.
std::optional<int> RunCommandLine(int argumentCount, char** arguments, std::initializer_list<AddCommands> families,
                                  Session& session);

} // namespace tev::tool
