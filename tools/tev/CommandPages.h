#pragma once

#include <string>
#include <vector>

// What is made from the help of all commands: the manual page, and what shells complete command lines with.
namespace tev::tool
{

/// An option or an argument.
struct OptionPage
{
    std::vector<std::string> m_names; ///< "-v" and "--verbose"; of an argument its name
    std::string m_value;              ///< what stands for the value in the help; empty for a flag
    std::string m_help;
    std::vector<std::string> m_choices; ///< empty where any value is taken
    bool m_isArgument = false;
    bool m_isRequired = false;
};

/// A command, or a family of commands.
struct CommandPage
{
    std::string m_name;
    std::string m_help;
    std::string m_footer;
    std::vector<OptionPage> m_options;
    std::vector<CommandPage> m_commands;
};

/// In the language of roff, as `man` reads it.
std::string ManualPage(const CommandPage& tool, const std::string& version);

/// The names of the shells that CompletionScript knows.
const std::vector<std::string>& CompletedShells();
std::string CompletionScript(const CommandPage& tool, const std::string& shell);

/// The name that differs from the word by the fewest letters; empty where none is near.
std::string NearestName(const std::string& word, const std::vector<std::string>& names);

} // namespace tev::tool
