#include "tools/tev/TextCommands.h"

#include "tools/tev/Encodings.h"
#include "tools/tev/System.h"
#include "tools/tev/TextCat.h"
#include "tools/tev/TextConvert.h"
#include "tools/tev/TextInfo.h"
#include "tools/tev/Tool.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace tev::tool
{
namespace
{
constexpr const char* kMarkRule = "A byte-order mark at the start of a file counts before --from.";

/// An option that takes an encoding; another name is a usage error.
CLI::Option* AddEncodingOption(CLI::App& command, const std::string& option, xStringEncoding& encoding,
                               const std::string& help)
{
    const auto parse = [&encoding](const std::string& name) {
        const std::optional<xStringEncoding> found = FindEncoding(name);
        if (!found)
            throw CLI::ValidationError("unknown encoding or code page: " + name);
        encoding = *found;
    };
    return command.add_option_function<std::string>(option, parse, help)->type_name("ENCODING");
}

void AddFiles(CLI::App& command, std::vector<std::string>& files)
{
    command.add_option("FILE", files, "Files to read; - or none is standard input")->type_name("");
}

/// Without a name, what suits the standard output.
InfoFormat FormatNamed(const std::string& name)
{
    if (name == "json")
        return InfoFormat::kJson;
    return name == "table" || (name.empty() && IsTerminal(kStandardOutput)) ? InfoFormat::kTable : InfoFormat::kFields;
}

void AddInfo(CLI::App& text, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        std::string m_format;
    };
    const auto options = std::make_shared<Options>();
    CLI::App& command = *text.add_subcommand("info", "Tell the encoding, mark, line ends and number of lines of files");
    AddFiles(command, options->m_files);
    command
        .add_option(
            "--format", options->m_format,
            "table for people, fields or json for programs;\na table on a terminal and else fields if not given")
        ->check(CLI::IsMember({"table", "fields", "json"}).description(""))
        ->type_name("FORMAT");
    command.footer("Fields are separated by tabs, a file a line: name, encoding, byte-order mark (yes or no), line\n"
                   "ends, lines, bytes. Json is an object a line.\n"
                   "A text without mark is named ASCII or UTF-8 when all of it is; no other encoding can be told for\n"
                   "sure.");
    command.callback([&session, options] { RunTextInfo(session, options->m_files, FormatNamed(options->m_format)); });
}

void AddCat(CLI::App& text, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        xStringEncoding m_from = xEncodingUtf8;
        LineRange m_lines;
    };
    const auto options = std::make_shared<Options>();
    CLI::App& command = *text.add_subcommand("cat", "Print files as UTF-8, every line ended by LF");
    AddFiles(command, options->m_files);
    AddEncodingOption(command, "--from", options->m_from,
                      "Encoding of files without a byte-order mark; UTF-8 if not given");
    const auto parseLines = [options](const std::string& range) {
        const std::optional<LineRange> lines = ParseLineRange(range);
        if (!lines)
            throw CLI::ValidationError("--lines takes A-B, A-, -B or A, counted from 1: " + range);
        options->m_lines = *lines;
    };
    command.add_option_function<std::string>("--lines", parseLines, "Only these lines of each file: A-B, A-, -B or A")
        ->type_name("RANGE");
    command.footer(std::string(kMarkRule) + "\n" + EncodingNamesHelp());
    command.callback([&session, options] { RunTextCat(session, options->m_files, options->m_from, options->m_lines); });
}

void AddConvert(CLI::App& text, Session& session)
{
    const auto options = std::make_shared<ConvertOptions>();
    CLI::App& command = *text.add_subcommand("convert", "Write a text file again in another encoding");
    command.add_option("IN", options->m_in, "File to read; - is standard input")->required()->type_name("");
    command.add_option("OUT", options->m_out, "File to write, which may be IN; - is standard output")
        ->required()
        ->type_name("");
    AddEncodingOption(command, "--to", options->m_to, "Encoding of OUT")->required();
    AddEncodingOption(command, "--from", options->m_from,
                      "Encoding of IN without a byte-order mark; UTF-8 if not given");
    CLI::Option* mark = command.add_flag("--bom", "Write a byte-order mark, which UTF-16 gets anyway");
    CLI::Option* noMark = command.add_flag("--no-bom", "Write no byte-order mark")->excludes(mark);
    command.add_flag("--strict", options->m_strict, "Fail, and leave OUT alone, when a character would be lost");
    command.add_flag("-v,--verbose", options->m_verbose, "Say on the error output what was done");
    command.footer("Line ends stay as they are. What is lost is counted on the error output. OUT appears when it is\n"
                   "complete; when anything fails, it stays as it was.\n" +
                   std::string(kMarkRule) + "\n" + EncodingNamesHelp());
    command.callback([&session, options, mark, noMark] {
        const bool isUnicode = IsUtf16(options->m_to) || options->m_to == xEncodingUtf8;
        if (mark->count() != 0 && !isUnicode)
            throw CLI::ValidationError("--bom: only UTF-8 and UTF-16 have a byte-order mark");
        options->m_writeMark = noMark->count() == 0 && (mark->count() != 0 || IsUtf16(options->m_to));
        RunTextConvert(session, *options);
    });
}
} // namespace

void AddTextCommands(CLI::App& tool, Session& session)
{
    CLI::App& text = *tool.add_subcommand("text", "Look at and convert text files of any encoding");
    text.require_subcommand(1);
    AddInfo(text, session);
    AddCat(text, session);
    AddConvert(text, session);
}

} // namespace tev::tool
