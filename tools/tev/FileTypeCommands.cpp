#include "tools/tev/FileTypeCommands.h"

#include "services/FileTypeRegistry.h"
#include "services/FileWildcards.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/System.h"
#include "tools/tev/Table.h"
#include "tools/tev/Tool.h"

#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
const std::map<std::string, unsigned> kKinds = {
    {"image", xFileImage}, {"3d", xFile3DScene}, {"audio", xFileAudio},
    {"video", xFileVideo}, {"web", xFileWeb},    {"archive", xFileArchive},
};

struct TypesOptions
{
    std::vector<std::string> m_names;
    std::string m_kind;
    std::string m_format;
};

std::string CodeText(unsigned code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string Parser(unsigned code)
{
    return code == xFileCodeUnknown ? kEmptyField : CodeText(code);
}

std::string KindText(unsigned properties)
{
    std::string text;
    for (const auto& [name, kind] : kKinds)
    {
        if ((properties & kind) != 0)
            text += (text.empty() ? "" : "+") + name;
    }
    return text.empty() ? kEmptyField : text;
}

std::vector<CFileExt> TypesOfKind(unsigned kind)
{
    unsigned count = 0;
    CFileExt* types = fileGetRegisteredFiles(count, kind);
    std::vector<CFileExt> result(types, types + count);
    fileFreeRegisteredFiles(types, count);
    return result;
}

/// The other classes whose types have the extension of the name.
std::string OtherClasses(const CXTString<wchar_t>& name, unsigned defaultClass)
{
    CXTString<wchar_t> extension = fileGetExtension(name);
    extension.MakeLower();
    std::string others;
    for (const CFileExt& type : TypesOfKind(0))
    {
        CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> extensions(false);
        fileGetExtensionArray(type.GetClass(), extensions, true);
        const CXTString<wchar_t>* const first = extensions.GetData();
        const bool hasIt = std::find(first, first + extensions.GetSize(), extension) != first + extensions.GetSize();
        if (hasIt && type.GetClass() != defaultClass)
            others += (others.empty() ? "" : " ") + CodeText(type.GetClass());
    }
    return others.empty() ? kEmptyField : others;
}

Row RowOfType(const CFileExt& type)
{
    return {CodeText(type.GetClass()), KindText(type.GetProperties()), Parser(type.GetLoader()),
            Parser(type.GetSaver()),   Narrow(type.GetExtension()),    Narrow(type.GetDescription())};
}

Row RowOfName(const std::string& name)
{
    const CXTString<wchar_t> wide(Widen(name).c_str());
    CFileExt type;
    if (!fileGetFileExt(wide, type))
        return {name, kEmptyField, kEmptyField, kEmptyField, kEmptyField, kEmptyField};
    return {name,
            CodeText(type.GetClass()),
            KindText(type.GetProperties()),
            Parser(type.GetLoader()),
            Parser(type.GetSaver()),
            OtherClasses(wide, type.GetClass())};
}

void ShowTypes(Session& session, const TypesOptions& options)
{
    const unsigned kind = options.m_kind.empty() ? 0 : kKinds.at(options.m_kind);
    std::vector<Row> rows;
    if (options.m_names.empty())
    {
        const std::vector<CFileExt> types = TypesOfKind(kind);
        std::transform(types.begin(), types.end(), std::back_inserter(rows), RowOfType);
    }
    for (const std::string& name : options.m_names)
    {
        if (kind == 0 || (fileGetKindOf(CXTString<wchar_t>(Widen(name).c_str())) & kind) != 0)
            rows.push_back(RowOfName(name));
    }

    const bool asTable = options.m_format == "table" || (options.m_format.empty() && IsTerminal(kStandardOutput));
    if (!asTable)
    {
        for (const Row& row : rows)
            PrintFields(session.m_output, row);
    }
    else if (options.m_names.empty())
    {
        PrintTable(session.m_output, {{"CLASS"}, {"KIND"}, {"LOADER"}, {"SAVER"}, {"EXTENSIONS"}, {"DESCRIPTION"}},
                   rows);
    }
    else
    {
        PrintTable(session.m_output, {{"NAME"}, {"CLASS"}, {"KIND"}, {"LOADER"}, {"SAVER"}, {"OTHERS"}}, rows);
    }
}

void AddTypes(const ToolCommand& tool, Session& session)
{
    const auto options = std::make_shared<TypesOptions>();
    const ToolCommand command =
        tool.AddCommand("types", "Show the file types that the library knows, or those of names");
    command.AddArgument("NAME", options->m_names, "File names or URLs, which need not exist; all types if none");
    command.AddOption("--kind", options->m_kind, "Only these: image, 3d, audio, video, web or archive")
        .OneOf(kKinds)
        .ValueName("KIND");
    command
        .AddOption("--format", options->m_format,
                   "table for users, fields for programs;\na table on a terminal and else fields if not given")
        .OneOf({"table", "fields"})
        .ValueName("FORMAT");
    command.Footer("FERN is the library's own loader or saver; - is none.");
    command.OnRun([&session, options] { ShowTypes(session, *options); });
}

void Match(Session& session, const std::string& list, const std::vector<std::string>& names)
{
    CXTString<wchar_t> patterns(Widen(list).c_str());
    CHashTable<CXTString<wchar_t>> set;
    fileGetHashFromExtensionList(patterns, set, false);
    bool found = false;
    for (const std::string& name : names)
    {
        if (!fileMatchWilcards(CXTString<wchar_t>(Widen(name).c_str()), set))
            continue;
        session.m_output.Write(name + "\n");
        found = true;
    }
    if (!found)
        session.m_exitCode = kExitFailed;
}

void AddMatch(const ToolCommand& tool, Session& session)
{
    struct Arguments
    {
        std::string m_list;
        std::vector<std::string> m_names;
    };
    const auto arguments = std::make_shared<Arguments>();
    const ToolCommand command = tool.AddCommand("match", "Print the names that a search list matches");
    command.AddArgument("LIST", arguments->m_list, "Words and patterns, separated by blanks, commas or semicolons")
        .Required();
    command.AddArgument("NAME", arguments->m_names, "Names to match").Required();
    command.Footer(
        "A word matches anywhere in a name; in it * matches any characters. A word with a ?, which matches one "
        "character,\n"
        "is a pattern for the whole name. In double quotes it is an extension, or a whole name if it has a dot.\n"
        "Matching is case-insensitive.\n"
        "The exit code is 1 when no name matches.");
    command.OnRun([&session, arguments] { Match(session, arguments->m_list, arguments->m_names); });
}
} // namespace

void AddFileTypeCommands(const ToolCommand& tool, Session& session)
{
    AddTypes(tool, session);
    AddMatch(tool, session);
}

} // namespace tev::tool
