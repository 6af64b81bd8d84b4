#include "tools/tev/FileTypeCommands.h"

#include "services/FileTypeRegistry.h"
#include "services/FileWildcards.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/Tool.h"

#include <algorithm>
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
    ListForm m_form;
};

std::string CodeText(unsigned code)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// Nothing where there is none.
std::string Parser(unsigned code)
{
    return code == xFileCodeUnknown ? std::string() : CodeText(code);
}

std::vector<std::string> KindsOf(unsigned properties)
{
    std::vector<std::string> kinds;
    for (const auto& [name, kind] : kKinds)
    {
        if ((properties & kind) != 0)
            kinds.push_back(name);
    }
    return kinds;
}

std::string Field(const std::string& text)
{
    return text.empty() ? kEmptyField : text;
}

std::string Joined(const std::vector<std::string>& words, const char* separator)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : separator) + word;
    return Field(text);
}

Json OrNull(const std::string& text)
{
    return text.empty() ? Json() : Json(text);
}

std::vector<CFileExt> TypesOfKind(unsigned kind)
{
    unsigned count = 0;
    CFileExt* types = fileGetRegisteredFiles(count, kind);
    std::vector<CFileExt> result(types, types + count);
    fileFreeRegisteredFiles(types, count);
    return result;
}

std::vector<CXTString<wchar_t>> ExtensionsOf(const CFileExt& type)
{
    CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> extensions(false);
    fileGetExtensionArray(type.GetClass(), extensions, true);
    return {extensions.GetData(), extensions.GetData() + extensions.GetSize()};
}

/// The other classes whose types have the extension of the name.
std::vector<std::string> OtherClasses(const CXTString<wchar_t>& name, unsigned defaultClass)
{
    CXTString<wchar_t> extension = fileGetExtension(name);
    extension.MakeLower();
    std::vector<std::string> others;
    for (const CFileExt& type : TypesOfKind(0))
    {
        const std::vector<CXTString<wchar_t>> extensions = ExtensionsOf(type);
        const bool hasIt = std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
        if (hasIt && type.GetClass() != defaultClass)
            others.push_back(CodeText(type.GetClass()));
    }
    return others;
}

void AddType(Listing& listing, const CFileExt& type)
{
    const std::vector<std::string> kinds = KindsOf(type.GetProperties());
    const std::string loader = Parser(type.GetLoader());
    const std::string saver = Parser(type.GetSaver());
    const auto row = [&]() -> Row {
        return {CodeText(type.GetClass()),   Joined(kinds, "+"),           Field(loader), Field(saver),
                Narrow(type.GetExtension()), Narrow(type.GetDescription())};
    };
    const auto json = [&] {
        return Json::Object({{"class", CodeText(type.GetClass())},
                             {"kinds", Json::ListOf(kinds)},
                             {"loader", OrNull(loader)},
                             {"saver", OrNull(saver)},
                             {"extensions", Json::ListOf(ExtensionsOf(type))},
                             {"description", type.GetDescription()}});
    };
    listing.Add(row, json);
}

void AddName(Listing& listing, const std::string& name)
{
    const CXTString<wchar_t> wide(Widen(name).c_str());
    CFileExt type;
    std::string code, loader, saver;
    std::vector<std::string> kinds, others;
    if (fileGetFileExt(wide, type))
    {
        code = CodeText(type.GetClass());
        kinds = KindsOf(type.GetProperties());
        loader = Parser(type.GetLoader());
        saver = Parser(type.GetSaver());
        others = OtherClasses(wide, type.GetClass());
    }
    const auto row = [&]() -> Row {
        return {name, Field(code), Joined(kinds, "+"), Field(loader), Field(saver), Joined(others, " ")};
    };
    const auto json = [&] {
        return Json::Object({{"name", name},
                             {"class", OrNull(code)},
                             {"kinds", Json::ListOf(kinds)},
                             {"loader", OrNull(loader)},
                             {"saver", OrNull(saver)},
                             {"others", Json::ListOf(others)}});
    };
    listing.Add(row, json);
}

void ShowTypes(Session& session, const TypesOptions& options)
{
    const unsigned kind = options.m_kind.empty() ? 0 : kKinds.at(options.m_kind);
    const std::vector<Column> ofTypes = {{"CLASS"}, {"KIND"}, {"LOADER"}, {"SAVER"}, {"EXTENSIONS"}, {"DESCRIPTION"}};
    const std::vector<Column> ofNames = {{"NAME"}, {"CLASS"}, {"KIND"}, {"LOADER"}, {"SAVER"}, {"OTHERS"}};
    Listing listing(session, options.m_form, options.m_names.empty() ? ofTypes : ofNames);
    if (options.m_names.empty())
    {
        for (const CFileExt& type : TypesOfKind(kind))
            AddType(listing, type);
    }
    for (const std::string& name : options.m_names)
    {
        if (kind == 0 || (fileGetKindOf(CXTString<wchar_t>(Widen(name).c_str())) & kind) != 0)
            AddName(listing, name);
    }
    listing.Finish();
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
    AddListForm(command, options->m_form);
    command.Footer("FERN is the library's own loader or saver; - is none.");
    command.OnRun([&session, options] { ShowTypes(session, *options); });
}

struct MatchOptions
{
    std::string m_list;
    std::vector<std::string> m_names;
    bool m_isJson = false;
};

void Match(Session& session, const MatchOptions& options)
{
    CXTString<wchar_t> patterns(Widen(options.m_list).c_str());
    CHashTable<CXTString<wchar_t>> set;
    fileGetHashFromExtensionList(patterns, set, false);
    bool found = false;
    for (const std::string& name : options.m_names)
    {
        if (!fileMatchWilcards(CXTString<wchar_t>(Widen(name).c_str()), set))
            continue;
        session.m_output.Write(options.m_isJson ? Json::Object({{"name", name}}).Line() : name + "\n");
        found = true;
    }
    if (!found)
        session.m_exitCode = kExitFailed;
}

void AddMatch(const ToolCommand& tool, Session& session)
{
    const auto options = std::make_shared<MatchOptions>();
    const ToolCommand command = tool.AddCommand("match", "Print the names that a search list matches");
    command.AddArgument("LIST", options->m_list, "Words and patterns, separated by blanks, commas or semicolons")
        .Required();
    command.AddArgument("NAME", options->m_names, "Names to match").Required();
    command.Footer(
        "A word matches anywhere in a name; in it * matches any characters. A word with a ?, which matches one "
        "character,\n"
        "is a pattern for the whole name. In double quotes it is an extension, or a whole name if it has a dot.\n"
        "Matching is case-insensitive.\n"
        "The exit code is 1 when no name matches.");
    AddJsonFlag(command, options->m_isJson);
    command.OnRun([&session, options] { Match(session, *options); });
}
} // namespace

void AddFileTypeCommands(const ToolCommand& tool, Session& session)
{
    AddTypes(tool, session);
    AddMatch(tool, session);
}

} // namespace tev::tool
