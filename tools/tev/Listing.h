#pragma once

#include "tools/tev/Table.h"

#include <functional>
#include <string>
#include <vector>

namespace tev::tool
{

class Json;
class ToolCommand;
struct Session;

/// How the user wants a list.
struct ListForm
{
    std::string m_name; ///< empty for a table on a terminal, and else fields
    bool m_isJson = false;

    bool IsTable() const;
};

/// Adds the options --format and --json.
void AddListForm(const ToolCommand& command, ListForm& form);
/// Adds the option --json to a command that has one other form only.
void AddJsonFlag(const ToolCommand& command, bool& isJson);

/// Prints a list in the form that the user wants: at once, row by row, unless it is a table.
class Listing
{
public:
    Listing(Session& session, const ListForm& form, std::vector<Column> columns);

    /// Only the form that is wanted is made.
    void Add(const std::function<Row()>& row, const std::function<Json()>& json);
    /// Prints the table.
    void Finish();

private:
    Output& m_output;
    const bool m_isJson;
    const bool m_isTable;
    const std::vector<Column> m_columns;
    std::vector<Row> m_rows;
};

} // namespace tev::tool
