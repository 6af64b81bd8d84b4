#pragma once

#include <map>
#include <string>
#include <vector>

namespace tev::tool
{

struct Session;
class Dumper;

/// Reads a value of a type from an archive and prints it.
struct FieldType
{
    const char* m_name;
    void (*m_dump)(Dumper& dumper, const FieldType& type, const std::string& label);
};

/// A field that the objects of a class write.
struct Field
{
    const FieldType* m_type;
    std::string m_name;
    unsigned m_since; ///< the first schema that has the field
};
struct ClassDescription
{
    std::vector<Field> m_fields;
    unsigned m_lastSchema; ///< objects of later ones are not described
    unsigned m_firstSchema = 0;
};
using ClassDescriptions = std::map<std::string, ClassDescription>;

/// Adds "NAME=TYPE FIELD[@SCHEMA],...", which replaces an earlier description of the class. False, with no change, when
/// the description is invalid.
bool Describe(ClassDescriptions& classes, const std::string& description);

/// The classes of examples/scene_archive.cpp.
ClassDescriptions ExampleClasses();
std::string ExampleClassesHelp();
std::string FieldTypesHelp();

/// Prints the contents of an archive of objects, a line each with its offset, or a JSON object each. What follows an object of a class that is not
/// described is printed as bytes; then, and where the archive is damaged, throws Failure.
void DumpArchive(Session& session, const std::string& name, const ClassDescriptions& classes, bool isJson);

} // namespace tev::tool
