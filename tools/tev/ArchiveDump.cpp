#include "tools/tev/ArchiveDump.h"

#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "tools/tev/Json.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <type_traits>
#include <utility>

namespace tev::tool
{
namespace
{
constexpr unsigned kNestingLimit = 2000; // each level takes some of the stack
constexpr std::size_t kDumpBlockSize = 1024 * 1024;

// The tags of the format, see docs/formats.md.
constexpr unsigned kNewClass = 0xFFFF;
constexpr unsigned kLargeNumber = 0x7FFF;
constexpr unsigned kClassBit16 = 0x8000;
constexpr unsigned kClassBit32 = 0x80000000;

struct ExampleClass
{
    const char* m_description;
    unsigned m_schema;
};

constexpr ExampleClass kExampleClasses[] = {
    {"Material=text name,float shine@2", 2},
    {"Node=text name,object material,objects children", 1},
};
constexpr unsigned kAnySchema = ~0u;
constexpr std::size_t kBytesInLine = 16;

/// Stands for every object of an archive.
class DumpedObject : public CXObject
{
public:
    void Serialize(CXArchive& archive) override;
};

/// A class of the archive, registered while it is dumped.
class DumpedClass
{
public:
    DumpedClass(std::string name, unsigned schema, const std::vector<Field>& fields)
        : m_name(std::move(name)),
          m_fields(fields),
          m_record{m_name.c_str(), sizeof(DumpedObject), schema, CXObject::GetThisRuntimeClassDescriptor(),
                   []() -> CXObject* { return new DumpedObject; }},
          m_declaration(&m_record)
    {
    }
    const std::string& Name() const noexcept { return m_name; }
    const std::vector<Field>& Fields() const noexcept { return m_fields; }

private:
    std::string m_name;
    const std::vector<Field>& m_fields;
    CXRuntimeClass m_record;
    XClassDeclaration m_declaration;
};

std::string ReadAll(const std::string& name)
{
    const std::unique_ptr<CXFile> file = OpenInput(name);
    std::string bytes;
    for (unsigned got = 1; got != 0;)
    {
        const std::size_t size = bytes.size();
        bytes.resize(size + kDumpBlockSize);
        got = file->Read(bytes.data() + size, kDumpBlockSize);
        bytes.resize(size + got);
    }
    return bytes;
}
} // namespace

/// Loads an archive with objects that print what they read.
class Dumper
{
public:
    Dumper(Session& session, std::string bytes, const ClassDescriptions& classes, bool isJson)
        : m_session(session),
          m_isJson(isJson),
          m_classes(classes),
          m_bytes(std::move(bytes)),
          m_file(reinterpret_cast<const unsigned char*>(m_bytes.data()), m_bytes.size(), false),
          m_archive(&m_file, xArchiveLoad | xArchiveStrict),
          m_numbers(1)
    {
        m_archive.SetData(this);
        m_archive.SetNestingLimit(kNestingLimit);
    }
    ~Dumper()
    {
        for (CXObject* object : m_archive.GetCreatedObjects())
            delete object;
    }
    Dumper(const Dumper&) = delete;
    Dumper& operator=(const Dumper&) = delete;

    CXArchive& Archive() noexcept { return m_archive; }
    /// The start of the value that is being read.
    unsigned __int64 Offset() const noexcept { return m_offset; }

    void DumpAll()
    {
        while (Advance() < m_bytes.size())
            DumpReference("");
        Print("", "end", {{"kind", "end"}});
    }

    void DumpFields()
    {
        const DumpedClass& type = *m_next;
        const unsigned schema = m_archive.GetObjectSchema();
        ++m_depth;
        for (const Field& field : type.Fields())
        {
            Advance();
            if (schema >= field.m_since)
                field.m_type->m_dump(*this, *field.m_type, field.m_name);
        }
        --m_depth;
    }

    /// Prints the reference at the offset, and reads the object.
    void DumpReference(const std::string& label)
    {
        // An invalid reference is refused by the library.
        const unsigned word = Peek(0, 2);
        const bool isLarge = word == kLargeNumber;
        const unsigned tag = isLarge ? Peek(2, 4) : (word & kClassBit16) << 16 | (word & ~kClassBit16);
        const unsigned number = tag & ~kClassBit32;
        if (word == kNewClass)
            DumpNewClass();
        const DumpedClass* const type = word == kNewClass           ? m_numbers.back().m_type
                                        : number < m_numbers.size() ? m_numbers[number].m_type
                                                                    : nullptr;
        if (Peekable(2) && tag == 0)
            Print(label, "null", {{"kind", "null"}});
        else if (type != nullptr && (tag & kClassBit32) == 0)
            Print(label, "object " + std::to_string(number) + " again, " + type->Name(),
                  {{"kind", "reference"}, {"number", number}, {"class", type->Name()}});
        else if (type != nullptr)
        {
            Print(label, "object " + std::to_string(m_numbers.size()) + ", " + type->Name(),
                  {{"kind", "object"}, {"number", m_numbers.size()}, {"class", type->Name()}});
            m_numbers.push_back({type, false});
            m_next = type;
        }
        m_archive.ReadObject(nullptr);
    }

    void DumpObjects(const std::string& label)
    {
        const unsigned __int64 count = DumpCount(label);
        ++m_depth;
        for (unsigned __int64 i = 0; i < count; ++i)
        {
            Advance();
            DumpReference("[" + std::to_string(i) + "]");
        }
        --m_depth;
    }

    unsigned __int64 DumpCount(const std::string& label)
    {
        const unsigned __int64 count = m_archive.ReadCount();
        PrintValue(label, "count", std::to_string(count), count);
        return count;
    }

    void DumpText(const std::string& label)
    {
        const char* const encodings[] = {"UTF-16BE", "UTF-8", "UTF-16"};
        const unsigned tag = Peek(0, 1) == 0xFF ? Peek(1, 2) : 0;
        const bool isTagged = tag >= 0xFFFC && tag <= 0xFFFE;
        CXTString<wchar_t> text;
        m_archive >> text;
        const char* const encoding = isTagged ? encodings[tag - 0xFFFC] : "ANSI";
        Print(label, encoding + (" " + Json(text).Text()), {{"kind", "text"}, {"encoding", encoding}, {"value", text}});
    }

    /// A value of a kind that has one form as text.
    void PrintValue(const std::string& label, const char* kind, const std::string& text, const Json& json)
    {
        Print(label, kind + (" " + text), {{"kind", kind}, {"value", json}});
    }

    /// The label is the name of a field, or an index in brackets, or empty.
    void Print(const std::string& label, const std::string& text, const Json::Members& members)
    {
        if (m_isJson)
        {
            Json::Members all = {{"offset", m_offset}, {"depth", m_depth}};
            if (!label.empty())
                all.emplace_back("field", label);
            all.insert(all.end(), members.begin(), members.end());
            m_session.m_output.Write(Json::Object(all).Line());
            return;
        }
        char offset[24];
        std::snprintf(offset, sizeof offset, "%08llx  ", m_offset);
        const char* const separator = label.empty() ? "" : label.front() == '[' ? " " : ": ";
        m_session.m_output.Write(offset + std::string(2 * m_depth, ' ') + label + separator + text + "\n");
    }

private:
    struct Numbered
    {
        const DumpedClass* m_type = nullptr; ///< the class, or that of the object
        bool m_isClass = false;
    };

    /// Moves the offset to the archive's position.
    unsigned __int64 Advance()
    {
        m_archive.Flush();
        return m_offset = m_file.GetPosition();
    }

    bool Peekable(std::size_t end) const noexcept { return end <= m_bytes.size() - m_offset; }

    /// The number at a distance from the offset; 0 where the archive has ended.
    unsigned Peek(std::size_t distance, std::size_t size) const noexcept
    {
        unsigned value = 0;
        for (std::size_t i = size; i-- > 0 && Peekable(distance + size);)
            value = value << 8 | static_cast<unsigned char>(m_bytes[m_offset + distance + i]);
        return value;
    }

    /// The rest of the archive.
    void DumpBytes(unsigned __int64 from)
    {
        const unsigned __int64 offset = m_offset;
        for (m_offset = from; m_offset < m_bytes.size(); m_offset += kBytesInLine)
        {
            std::string line = "bytes";
            const std::string bytes = m_bytes.substr(m_offset, kBytesInLine);
            for (const char byte : bytes)
            {
                char text[4];
                std::snprintf(text, sizeof text, " %02X", static_cast<unsigned char>(byte));
                line += text;
            }
            const auto* const first = reinterpret_cast<const unsigned char*>(bytes.data());
            Print("", line, {{"kind", "bytes"}, {"value", Hexadecimal(first, bytes.size())}});
        }
        m_offset = offset;
    }

    void DumpNewClass()
    {
        constexpr std::size_t kNameAt = 6;
        const unsigned schema = Peek(2, 2);
        const unsigned length = Peek(4, 2);
        if (!Peekable(kNameAt + length))
            CXArchiveException::Throw(archiveEndOfFile);
        const std::string name = m_bytes.substr(m_offset + kNameAt, length);
        Print("",
              "class " + std::to_string(m_numbers.size()) + " " + Json(name).Text() + ", schema " +
                  std::to_string(schema),
              {{"kind", "class"}, {"number", m_numbers.size()}, {"class", name}, {"schema", schema}});
        const auto described = m_classes.find(name);
        if (described == m_classes.end() || schema < described->second.m_firstSchema ||
            schema > described->second.m_lastSchema)
        {
            DumpBytes(m_offset + kNameAt + length);
            throw Failure("", "the fields of class " + Json(name).Text() + ", schema " + std::to_string(schema) +
                                  ", are not known; --class can describe them");
        }
        m_types.push_back(std::make_unique<DumpedClass>(name, schema, described->second.m_fields));
        m_numbers.push_back({m_types.back().get(), true});
    }

    Session& m_session;
    const bool m_isJson;
    const ClassDescriptions& m_classes;
    std::string m_bytes;
    std::vector<std::unique_ptr<DumpedClass>> m_types;
    CXMemFile m_file;
    CXArchive m_archive;
    std::vector<Numbered> m_numbers; // by object and class number; 0 is null
    const DumpedClass* m_next = nullptr;
    unsigned __int64 m_offset = 0;
    std::size_t m_depth = 0;
};

namespace
{
void DumpedObject::Serialize(CXArchive& archive)
{
    static_cast<Dumper*>(archive.GetData())->DumpFields();
}

template <class T>
void DumpScalar(Dumper& dumper, const FieldType& type, const std::string& label)
{
    T value;
    dumper.Archive() >> value;
    std::ostringstream text;
    text.precision(sizeof(T) == sizeof(float) ? 9 : 17);
    if constexpr (std::is_same_v<T, char>)
        text << static_cast<int>(static_cast<signed char>(value)); // also where a char has no sign
    else if constexpr (sizeof(T) == 1 || std::is_same_v<T, wchar_t>)
        text << static_cast<int>(value);
    else
        text << value;
    dumper.PrintValue(label, type.m_name, text.str(), Json::Number(text.str()));
}

const FieldType kFieldTypes[] = {
    {"bool", DumpScalar<unsigned char>}, // keeps the byte, which a bool would not
    {"char", DumpScalar<char>},
    {"uchar", DumpScalar<unsigned char>},
    {"short", DumpScalar<short>},
    {"ushort", DumpScalar<unsigned short>},
    {"wchar", DumpScalar<wchar_t>},
    {"int", DumpScalar<int>},
    {"uint", DumpScalar<unsigned>},
    {"int64", DumpScalar<__int64>},
    {"uint64", DumpScalar<unsigned __int64>},
    {"float", DumpScalar<float>},
    {"double", DumpScalar<double>},
    {"count", [](Dumper& dumper, const FieldType&, const std::string& label) { dumper.DumpCount(label); }},
    {"text", [](Dumper& dumper, const FieldType&, const std::string& label) { dumper.DumpText(label); }},
    {"object", [](Dumper& dumper, const FieldType&, const std::string& label) { dumper.DumpReference(label); }},
    {"objects", [](Dumper& dumper, const FieldType&, const std::string& label) { dumper.DumpObjects(label); }},
};

/// "TYPE FIELD" or "TYPE FIELD@SCHEMA"; the type is null when the text is invalid.
Field ParseField(const std::string& description)
{
    const std::size_t space = description.find(' ');
    const std::size_t at = description.find('@');
    const std::string type = description.substr(0, space);
    const auto* const found = std::find_if(std::begin(kFieldTypes), std::end(kFieldTypes),
                                           [&](const FieldType& known) { return known.m_name == type; });
    if (space == std::string::npos || found == std::end(kFieldTypes))
        return {nullptr, "", 0};
    unsigned since = 0;
    if (at != std::string::npos)
    {
        const std::string digits = description.substr(at + 1);
        if (digits.empty() || digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos)
            return {nullptr, "", 0};
        since = static_cast<unsigned>(std::stoul(digits));
    }
    return {found, description.substr(space + 1, at == std::string::npos ? at : at - space - 1), since};
}
} // namespace

bool Describe(ClassDescriptions& classes, const std::string& description)
{
    const std::size_t equals = description.find('=');
    if (equals == 0 || equals == std::string::npos)
        return false;
    std::vector<Field> fields;
    std::istringstream rest(description.substr(equals + 1));
    for (std::string field; std::getline(rest, field, ',');)
    {
        fields.push_back(ParseField(field));
        if (fields.back().m_type == nullptr)
            return false;
    }
    classes[description.substr(0, equals)] = {std::move(fields), kAnySchema};
    return true;
}

ClassDescriptions ExampleClasses()
{
    ClassDescriptions classes;
    for (const ExampleClass& example : kExampleClasses)
    {
        Describe(classes, example.m_description);
        const std::string description = example.m_description;
        ClassDescription& described = classes[description.substr(0, description.find('='))];
        described.m_firstSchema = 1; // 0 is that of another program's class
        described.m_lastSchema = example.m_schema;
    }
    return classes;
}

std::string ExampleClassesHelp()
{
    std::string help;
    for (const ExampleClass& example : kExampleClasses)
        help += "  --class \"" + std::string(example.m_description) + "\"\n";
    return help;
}

std::string FieldTypesHelp()
{
    std::string names;
    for (const FieldType& type : kFieldTypes)
        names += (names.empty() ? "" : " ") + std::string(type.m_name);
    return names;
}

void DumpArchive(Session& session, const std::string& name, const ClassDescriptions& classes, bool isJson)
{
    Dumper dumper(session, ReadAll(name), classes, isJson);
    const auto fail = [&](const std::string& reason) {
        char offset[40];
        std::snprintf(offset, sizeof offset, "at offset %08llx: ", dumper.Offset());
        throw Failure(name, offset + reason);
    };
    try
    {
        dumper.DumpAll();
    }
    catch (CXArchiveException* failure)
    {
        const bool isTooDeep = failure->GetCause() == archiveGeneric;
        const std::string text = ArchiveFailureText(*failure);
        failure->Delete();
        fail(isTooDeep ? "objects nest deeper than " + std::to_string(kNestingLimit) + " levels" : text);
    }
    catch (const Failure& failure)
    {
        if (!failure.Subject().empty())
            throw;
        fail(failure.what());
    }
}

} // namespace tev::tool
