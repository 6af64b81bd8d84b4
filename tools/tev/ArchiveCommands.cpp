#include "tools/tev/ArchiveCommands.h"

#include "tools/tev/ArchiveDump.h"
#include "tools/tev/CommandLine.h"
#include "tools/tev/Tool.h"

#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
void AddDump(const ToolCommand& archive, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        ClassDescriptions m_classes = ExampleClasses();
        bool m_isJson = false;
    };
    const auto options = std::make_shared<Options>();
    const ToolCommand command =
        archive.AddCommand("dump", "Show the classes, objects and values in an archive of objects");
    command.AddArgument("FILE", options->m_files, "Archives to read; - or none is standard input");
    const auto describe = [options](const std::string& description) {
        if (!Describe(options->m_classes, description))
            throw UsageError("--class takes NAME=TYPE FIELD,TYPE FIELD,...: " + description);
    };
    command.AddParsedOption("--class", describe, "The fields that objects of a class write; may be given several times")
        .ValueName("CLASS")
        .Repeatable();
    command.AddFlag("--json", options->m_isJson, "As JSON, an object a line");
    command.Footer(
        "An archive names its classes but does not describe their fields. The classes of\n"
        "examples/scene_archive.cpp are known, as if they were given by:\n" +
        ExampleClassesHelp() + "Types: " + FieldTypesHelp() +
        ".\nA field of type objects is a count and as many objects. With @N a field is there from schema N on.");
    command.OnRun([&session, options] {
        AttemptEach(session, options->m_files, [&](const std::string& name) {
            DumpArchive(session, name, options->m_classes, options->m_isJson);
        });
    });
}
} // namespace

void AddArchiveCommands(const ToolCommand& tool, Session& session)
{
    const ToolCommand archive = tool.AddFamily("archive", "Show archives of objects");
    AddDump(archive, session);
}

} // namespace tev::tool
