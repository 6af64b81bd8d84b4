#pragma once

#include <string>
#include <vector>

namespace tev::tool
{
/// A field that has no value.
constexpr const char* kEmptyField = "-";

class Output;

struct Column
{
    const char* m_title;
    bool m_isNumber = false; ///< right-aligned
};

using Row = std::vector<std::string>;

/// For users: a line of titles, then the rows, each column as wide as its widest entry.
void PrintTable(Output& output, const std::vector<Column>& columns, const std::vector<Row>& rows);

/// For programs: the entries of a row, separated by tabs.
void PrintFields(Output& output, const Row& row);

} // namespace tev::tool
