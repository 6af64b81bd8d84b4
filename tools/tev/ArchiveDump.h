#pragma once

#include <map>
#include <string>
#include <vector>

namespace tev::tool
{

struct Session;
class Dumper;

/// How a value of a type is read from an archive and shown.
struct FieldType
{
    const char* m_name;
    void (*m_dump)(Dumper& dumper, const FieldType& type, const std::string& label);
};

/// What the objects of a class write, in order.
struct Field
{
    const FieldType* m_type;
    std::string m_name;
    unsigned m_since; ///< the first schema that has the field
};
using ClassDescriptions = std::map<std::string, std::vector<Field>>;

/// Adds "NAME=TYPE FIELD[@SCHEMA],...", in place of what was known of the class. False, and nothing, when it is none.
bool Describe(ClassDescriptions& classes, const std::string& description);

/// The classes of examples/scene_archive.cpp.
ClassDescriptions ExampleClasses();
std::string ExampleClassesHelp();
std::string FieldTypesHelp();

/// Prints what an archive of objects holds, a line each with its offset. Throws Failure where it cannot go on.
void DumpArchive(Session& session, const std::string& name, const ClassDescriptions& classes);

} // namespace tev::tool
