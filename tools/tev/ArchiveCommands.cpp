#include "tools/tev/ArchiveCommands.h"

#include "tools/tev/ArchiveDump.h"
#include "tools/tev/Tool.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

namespace tev::tool
{
namespace
{
void AddDump(CLI::App& archive, Session& session)
{
    struct Options
    {
        std::vector<std::string> m_files;
        ClassDescriptions m_classes = ExampleClasses();
    };
    const auto options = std::make_shared<Options>();
    CLI::App& command =
        *archive.add_subcommand("dump", "Show the classes, objects and values in an archive of objects");
    command.add_option("FILE", options->m_files, "Archives to read; - or none is standard input")->type_name("");
    const auto describe = [options](const std::vector<std::string>& descriptions) {
        for (const std::string& description : descriptions)
        {
            if (!Describe(options->m_classes, description))
                throw CLI::ValidationError("--class takes NAME=TYPE FIELD,TYPE FIELD,...: " + description);
        }
        return true;
    };
    command.add_option("--class", describe, "What the objects of a class write; may be given several times")
        ->type_name("CLASS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.footer(
        "An archive names its classes but not what their objects hold. Known are the classes that\n"
        "examples/scene_archive.cpp writes, as if they had been given like this:\n" +
        ExampleClassesHelp() + "Types: " + FieldTypesHelp() +
        ".\nA field of type objects is a count and as many objects. With @N a field is there from schema N on.");
    command.callback([&session, options] {
        AttemptEach(session, options->m_files,
                    [&](const std::string& name) { DumpArchive(session, name, options->m_classes); });
    });
}
} // namespace

void AddArchiveCommands(CLI::App& tool, Session& session)
{
    CLI::App& archive = *tool.add_subcommand("archive", "Look into archives of objects");
    archive.require_subcommand(1);
    AddDump(archive, session);
}

} // namespace tev::tool
