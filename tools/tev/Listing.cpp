#include "tools/tev/Listing.h"

#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"

#include <utility>

namespace tev::tool
{

bool ListForm::IsTable() const
{
    return m_name == "table" || (m_name.empty() && IsTerminal(kStandardOutput));
}

void AddListForm(const ToolCommand& command, ListForm& form)
{
    const ToolOption format =
        command
            .AddOption("--format", form.m_name,
                       "table for users, fields for programs;\na table on a terminal and else fields if not given")
            .OneOf({"table", "fields"})
            .ValueName("FORMAT");
    command.AddFlag("--json", form.m_isJson, "As JSON, an object a line").Excludes(format);
}

void AddJsonFlag(const ToolCommand& command, bool& isJson)
{
    command.AddFlag("--json", isJson, "As JSON");
}

Listing::Listing(Session& session, const ListForm& form, std::vector<Column> columns)
    : m_output(session.m_output),
      m_isJson(form.m_isJson),
      m_isTable(!form.m_isJson && form.IsTable()),
      m_columns(std::move(columns))
{
}

void Listing::Add(const std::function<Row()>& row, const std::function<Json()>& json)
{
    if (m_isJson)
        m_output.Write(json().Line());
    else if (m_isTable)
        m_rows.push_back(row());
    else
        PrintFields(m_output, row());
}

void Listing::Finish()
{
    if (m_isTable && !m_rows.empty())
        PrintTable(m_output, m_columns, m_rows);
}

} // namespace tev::tool
