#include "tools/tev/CommandPages.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <sstream>

namespace tev::tool
{
namespace
{
using CommandVisitor = std::function<void(const CommandPage& command, const std::string& path)>;

/// Calls `visit` for each command with the words that name it, beginning with the tool itself, whose path is empty.
void ForEachCommand(const CommandPage& command, const std::string& path, const CommandVisitor& visit)
{
    visit(command, path);
    for (const CommandPage& below : command.m_commands)
        ForEachCommand(below, path.empty() ? below.m_name : path + " " + below.m_name, visit);
}

/// Text for roff: a backslash and a minus are themselves, and no line begins with a request.
std::string Roff(const std::string& text)
{
    std::string escaped;
    for (const char c : text)
    {
        if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n'))
            escaped += "\\&";
        escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return escaped;
}

std::string RoffLine(const std::string& text)
{
    std::string line = text;
    std::replace(line.begin(), line.end(), '\n', ' ');
    return Roff(line);
}

std::string Usage(const CommandPage& command)
{
    std::string usage;
    for (const OptionPage& option : command.m_options)
    {
        if (!option.m_isArgument && !option.m_isRequired)
            continue;
        const std::string name = option.m_names.back() + (option.m_isArgument ? "" : " " + option.m_value);
        usage += option.m_isRequired ? " " + name : " [" + name + "]";
    }
    return usage;
}

void AppendOption(std::string& page, const OptionPage& option)
{
    page += ".TP\n";
    std::string names;
    for (const std::string& name : option.m_names)
        names += (names.empty() ? "" : ", ") + std::string(option.m_isArgument ? "\\fI" : "\\fB") + Roff(name) + "\\fR";
    page += names + (option.m_value.empty() ? "" : " \\fI" + Roff(option.m_value) + "\\fR") + "\n";
    page += RoffLine(option.m_help) + "\n";
}

/// A word of a shell script that stands for itself.
std::string ShellWord(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

std::string FirstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

std::string Words(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

/// The choices of the first argument that has some.
std::vector<std::string> ArgumentChoices(const CommandPage& command)
{
    for (const OptionPage& option : command.m_options)
    {
        if (option.m_isArgument && !option.m_choices.empty())
            return option.m_choices;
    }
    return {};
}

/// The commands within, or the choices of the argument.
std::vector<std::string> WordsWithin(const CommandPage& command)
{
    std::vector<std::string> words = ArgumentChoices(command);
    for (const CommandPage& below : command.m_commands)
        words.push_back(below.m_name);
    return words;
}

std::vector<std::string> OptionsOf(const CommandPage& command)
{
    std::vector<std::string> words;
    for (const OptionPage& option : command.m_options)
    {
        if (!option.m_isArgument)
            words.insert(words.end(), option.m_names.begin(), option.m_names.end());
    }
    return words;
}

/// Lines of a `case` by the words of a command, with a space before each word; `pattern` and `action` may be empty.
std::string Cases(const CommandPage& tool,
                  const std::function<std::string(const CommandPage&, const std::string& at)>& line)
{
    std::string cases;
    ForEachCommand(tool, "", [&](const CommandPage& command, const std::string& path) {
        cases += line(command, path.empty() ? "" : " " + path);
    });
    return cases;
}

/// Patterns of all commands, to find the one that the words before the cursor name.
std::string CommandPatterns(const CommandPage& tool)
{
    std::string patterns;
    Cases(tool, [&](const CommandPage&, const std::string& at) {
        if (!at.empty())
            patterns += (patterns.empty() ? "" : " | ") + ShellWord(at);
        return std::string();
    });
    return patterns;
}

/// One `case` line for each option of a command that takes one of some values, or any value.
std::string ValueCases(const CommandPage& tool, const std::string& before, const std::string& after,
                       const std::string& anyValue)
{
    return Cases(tool, [&](const CommandPage& command, const std::string& at) {
        std::string lines;
        for (const OptionPage& option : command.m_options)
        {
            if (option.m_isArgument || option.m_value.empty())
                continue;
            std::string patterns;
            for (const std::string& name : option.m_names)
            {
                std::string words = at;
                (words += ' ') += name;
                (patterns += patterns.empty() ? "" : " | ") += ShellWord(words);
            }
            lines += "        " + patterns + ") ";
            if (option.m_choices.empty())
                lines += anyValue;
            else
                ((lines += before) += Words(option.m_choices)) += after;
            lines += " ;;\n";
        }
        return lines;
    });
}

std::string BashScript(const CommandPage& tool)
{
    const std::string words = Cases(tool, [](const CommandPage& command, const std::string& at) {
        return "        " + ShellWord(at) + ") words=" + ShellWord(Words(WordsWithin(command))) +
               " options=" + ShellWord(Words(OptionsOf(command))) + " ;;\n";
    });
    return "# Completes command lines of tev in bash.\n"
           "_tev()\n{\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} at= words= options= i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case \"$at ${COMP_WORDS[i]}\" in\n            " +
           CommandPatterns(tool) +
           ") at=\"$at ${COMP_WORDS[i]}\" ;;\n"
           "        esac\n    done\n"
           "    case \"$at $prev\" in\n" +
           ValueCases(tool, "COMPREPLY=($(compgen -W '", "' -- \"$cur\")); return", "return") +
           "    esac\n"
           "    case $at in\n" +
           words +
           "    esac\n"
           "    [[ $cur != -* ]] || words=$options\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "}\n"
           "complete -o default -F _tev tev\n";
}

std::string ZshScript(const CommandPage& tool)
{
    const auto described = [](const std::string& name, const std::string& help) {
        std::string text = FirstLine(help);
        std::replace(text.begin(), text.end(), ':', ',');
        return " " + ShellWord(name + ":" + text);
    };
    const std::string words = Cases(tool, [&](const CommandPage& command, const std::string& at) {
        std::string commands, options;
        for (const CommandPage& below : command.m_commands)
            commands += described(below.m_name, below.m_help);
        for (const std::string& choice : ArgumentChoices(command))
            commands += described(choice, "");
        for (const OptionPage& option : command.m_options)
        {
            for (const std::string& name : option.m_names)
                options += option.m_isArgument ? "" : described(name, option.m_help);
        }
        return "        " + ShellWord(at) + ") commands=(" + commands + " ) options=(" + options + " ) ;;\n";
    });
    return "#compdef tev\n"
           "# Completes command lines of tev in zsh.\n"
           "_tev()\n{\n"
           "    local at= i\n"
           "    local -a commands options\n"
           "    for ((i = 2; i < CURRENT; i++)); do\n"
           "        case \"$at $words[i]\" in\n            " +
           CommandPatterns(tool) +
           ") at=\"$at $words[i]\" ;;\n"
           "        esac\n    done\n"
           "    case \"$at $words[CURRENT-1]\" in\n" +
           ValueCases(tool, "compadd -- ", "; return", "_files; return") +
           "    esac\n"
           "    case $at in\n" +
           words +
           "    esac\n"
           "    if [[ $words[CURRENT] == -* ]]; then\n"
           "        _describe 'option' options\n"
           "    elif (( $#commands )); then\n"
           "        _describe 'command' commands\n"
           "    else\n"
           "        _files\n"
           "    fi\n"
           "}\n"
           "_tev \"$@\"\n";
}

std::string FishScript(const CommandPage& tool)
{
    const std::string lines = Cases(tool, [](const CommandPage& command, const std::string& at) {
        const std::string start = "complete -c tev -n '__tev_is \"" + at + "\"'";
        std::string text;
        for (const CommandPage& below : command.m_commands)
            text += start + " -f -a " + ShellWord(below.m_name) + " -d " + ShellWord(FirstLine(below.m_help)) + "\n";
        for (const std::string& choice : ArgumentChoices(command))
            text += start + " -f -a " + ShellWord(choice) + "\n";
        for (const OptionPage& option : command.m_options)
        {
            if (option.m_isArgument)
                continue;
            text += start;
            for (const std::string& name : option.m_names)
                text += name.compare(0, 2, "--") == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
            if (!option.m_choices.empty())
                text += " -x -a " + ShellWord(Words(option.m_choices));
            else if (!option.m_value.empty())
                text += " -r";
            text += " -d " + ShellWord(FirstLine(option.m_help)) + "\n";
        }
        return text;
    });
    return "# Completes command lines of tev in fish.\n"
           "function __tev_is\n"
           "    set -l at ''\n"
           "    for word in (commandline -opc)[2..-1]\n"
           "        switch \"$at $word\"\n"
           "            case " +
           [&tool] {
               std::string patterns = CommandPatterns(tool);
               for (std::size_t bar = patterns.find(" | "); bar != patterns.npos; bar = patterns.find(" | "))
                   patterns.replace(bar, 3, " ");
               return patterns;
           }() +
           "\n                set at \"$at $word\"\n"
           "        end\n    end\n"
           "    test \"$at\" = \"$argv[1]\"\n"
           "end\n" +
           lines;
}

struct Shell
{
    const char* m_name;
    std::string (*m_makeScript)(const CommandPage& tool);
};
constexpr Shell kShells[] = {{"bash", BashScript}, {"zsh", ZshScript}, {"fish", FishScript}};

/// How many letters are to be changed, added, left out or exchanged with the next, to make one word of the other.
std::size_t EditDistance(const std::string& from, const std::string& to)
{
    std::vector<std::vector<std::size_t>> rows(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
    std::iota(rows[0].begin(), rows[0].end(), std::size_t(0));
    for (std::size_t i = 1; i <= from.size(); ++i)
    {
        rows[i][0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j)
        {
            rows[i][j] = std::min(
                {rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[from.size()][to.size()];
}
} // namespace

std::string ManualPage(const CommandPage& tool, const std::string& version)
{
    std::string page = ".TH TEV 1 \"\" \"TevTools " + version + "\" \"User Commands\"\n.SH NAME\ntev \\- " +
                       RoffLine("shows and changes what programs of the TevTools library write") +
                       "\n.SH SYNOPSIS\n.B tev\n.I COMMAND\n[\\fIARGUMENT\\fR]...\n.SH DESCRIPTION\n" +
                       Roff(tool.m_help) + "\n.SH COMMANDS\n";
    ForEachCommand(tool, "", [&](const CommandPage& command, const std::string& path) {
        if (path.empty())
            return;
        if (command.m_commands.empty())
        {
            page += ".SS \"tev " + Roff(path + Usage(command)) + "\"\n" + Roff(command.m_help) + "\n";
            for (const OptionPage& option : command.m_options)
                AppendOption(page, option);
        }
        if (!command.m_footer.empty())
            page += (command.m_commands.empty() ? ".PP\n" : ".SS \"tev " + Roff(path) + "\"\n") + std::string(".nf\n") +
                    Roff(command.m_footer) + "\n.fi\n";
    });
    return page + ".SH EXIT STATUS\n0 when everything was done, 1 when something failed, 2 for wrong usage.\n"
                  ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nwhere it is set, nothing is coloured.\n";
}

const std::vector<std::string>& CompletedShells()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> shells;
        for (const Shell& shell : kShells)
            shells.emplace_back(shell.m_name);
        return shells;
    }();
    return names;
}

std::string CompletionScript(const CommandPage& tool, const std::string& shell)
{
    for (const Shell& known : kShells)
    {
        if (known.m_name == shell)
            return known.m_makeScript(tool);
    }
    return {};
}

std::string NearestName(const std::string& word, const std::vector<std::string>& names)
{
    std::string nearest;
    std::size_t least = std::min(word.size(), std::max<std::size_t>(2, word.size() / 3) + 1); // else it is another word
    for (const std::string& name : names)
    {
        const std::size_t distance = EditDistance(word.substr(0, 2 * name.size() + 1), name);
        if (distance < least)
        {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace tev::tool
