#include "tools/tev/Table.h"

#include "tools/tev/Tool.h"

#include <algorithm>

namespace tev::tool
{
namespace
{
/// Width on a terminal: one column per code point.
std::size_t Width(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Join(const Row& row, const std::vector<Column>& columns, const std::vector<std::size_t>& widths)
{
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column)
    {
        const std::string padding(widths[column] - Width(row[column]), ' ');
        line += column == 0 ? "" : "  ";
        line += columns[column].m_isNumber ? padding + row[column] : row[column] + padding;
    }
    return line.erase(line.find_last_not_of(' ') + 1) + "\n";
}
} // namespace

void PrintTable(Output& output, const std::vector<Column>& columns, const std::vector<Row>& rows)
{
    Row titles;
    for (const Column& column : columns)
        titles.push_back(column.m_title);
    std::vector<std::size_t> widths(columns.size());
    const auto widen = [&](const Row& row) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], Width(row[column]));
    };
    widen(titles);
    std::for_each(rows.begin(), rows.end(), widen);

    std::string line = Join(titles, columns, widths);
    line.pop_back();
    output.WriteStyled("1", line);
    output.Write("\n");
    for (const Row& row : rows)
        output.Write(Join(row, columns, widths));
}

void PrintFields(Output& output, const Row& row)
{
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column)
        line += (column == 0 ? "" : "\t") + row[column];
    output.Write(line + "\n");
}

} // namespace tev::tool
