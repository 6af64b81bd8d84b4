#include "tools/tev/TextCommands.h"

#include "tools/tev/CommandLine.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Listing.h"
#include "tools/tev/System.h"
#include "tools/tev/TextCat.h"
#include "tools/tev/TextConvert.h"
#include "tools/tev/TextInfo.h"
#include "tools/tev/Tool.h"

#include <memory>

namespace tev::tool
{
namespace
{
constexpr const char* kMarkRule = "A byte-order mark at the start of a file overrides --from.";

/// An option that takes an encoding; another name is a usage error.
ToolOption AddEncodingOption(const ToolCommand& command, const std::string& option, xStringEncoding& encoding,
                             const std::string& help)
{
    const auto parse = [&encoding](const std::string& name) {
        const std::optional<xStringEncoding> found = FindEncoding(name);
        if (!found)
            throw UsageError("unknown encoding or code page: " + name);
        encoding = *found;
    };
    return command.AddParsedOption(option, parse, help).ValueName("ENCODING");
}

void AddFiles(const ToolCommand& command, std::vector<std::string>& files)
{
    command.AddArgument("FILE", files, "Files to read; - or none is standard input");
}

void AddInfo(const ToolCommand& text, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        ListForm m_form;
    };
    const auto options = std::make_shared<Options>();
    const ToolCommand command =
        text.AddCommand("info", "Show the encoding, mark, line ends and number of lines of files");
    AddFiles(command, options->m_files);
    AddListForm(command, options->m_form);
    command.Footer(
        "Fields are separated by tabs, a file a line: name, encoding, byte-order mark (yes or no), line\n"
        "ends, lines, bytes.\n"
        "A text without mark is reported as ASCII, UTF-8, UTF-16 or UTF-32 if its bytes say so; code pages cannot\n"
        "be told from each other.");
    command.OnRun([&session, options] { RunTextInfo(session, options->m_files, options->m_form); });
}

void AddCat(const ToolCommand& text, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        xStringEncoding m_from = xEncodingUtf8;
        LineRange m_lines;
    };
    const auto options = std::make_shared<Options>();
    const ToolCommand command = text.AddCommand("cat", "Print files as UTF-8, every line ended by LF");
    AddFiles(command, options->m_files);
    AddEncodingOption(command, "--from", options->m_from,
                      "Encoding of files without a byte-order mark; UTF-8 if not given");
    const auto parseLines = [options](const std::string& range) {
        const std::optional<LineRange> lines = ParseLineRange(range);
        if (!lines)
            throw UsageError("--lines takes A-B, A-, -B or A, counted from 1: " + range);
        options->m_lines = *lines;
    };
    command.AddParsedOption("--lines", parseLines, "Only these lines of each file: A-B, A-, -B or A")
        .ValueName("RANGE");
    command.Footer(std::string(kMarkRule) + "\n" + EncodingNamesHelp());
    command.OnRun([&session, options] { RunTextCat(session, options->m_files, options->m_from, options->m_lines); });
}

void AddConvert(const ToolCommand& text, Session& session)
{
    const auto options = std::make_shared<ConvertOptions>();
    const ToolCommand command = text.AddCommand("convert", "Write a text file again in another encoding");
    command.AddArgument("IN", options->m_in, "File to read; - is standard input").Required();
    command.AddArgument("OUT", options->m_out, "File to write, which may be IN; - is standard output").Required();
    AddEncodingOption(command, "--to", options->m_to, "Encoding of OUT").Required();
    AddEncodingOption(command, "--from", options->m_from,
                      "Encoding of IN without a byte-order mark; UTF-8 if not given");
    const ToolOption mark = command.AddFlag("--bom", "Write a byte-order mark, which UTF-16 gets anyway");
    const ToolOption noMark = command.AddFlag("--no-bom", "Write no byte-order mark").Excludes(mark);
    command.AddFlag("--strict", options->m_strict, "Fail, and leave OUT unchanged, when a character would be lost");
    command.AddFlag("-v,--verbose", options->m_verbose, "Say on the error output what was done");
    command.Footer(
        "Line ends are kept. Lost characters are counted on the error output. OUT is replaced when the new file is\n"
        "complete; when anything fails, it is unchanged.\n" +
        std::string(kMarkRule) + "\n" + EncodingNamesHelp());
    command.OnRun([&session, options, mark, noMark] {
        const bool isUnicode = IsUtf16(options->m_to) || options->m_to == xEncodingUtf8;
        if (mark.IsGiven() && !isUnicode)
            throw UsageError("--bom: only UTF-8 and UTF-16 have a byte-order mark");
        options->m_writeMark = !noMark.IsGiven() && (mark.IsGiven() || IsUtf16(options->m_to));
        RunTextConvert(session, *options);
    });
}
} // namespace

void AddTextCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand text = tool.AddFamily("text", "Examine and convert text files of any encoding");
    AddInfo(text, session);
    AddCat(text, session);
    AddConvert(text, session);
}

} // namespace tev::tool
