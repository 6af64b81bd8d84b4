// Texts and paths among those of the standard library.

#include "files/CStdioFileEx.h"
#include "services/CPathString.h"
#include "text/CXTString.h"
#include "text/CheckedFormat.h"

#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <unordered_map>

namespace
{
std::size_t CountSpaces(std::string_view text)
{
    std::size_t count = 0;
    for (const char character : text)
        count += character == ' ' ? 1 : 0;
    return count;
}
} // namespace

int main()
{
    // From a string or a view, and back: to a view by itself, to a string by its name.
    const std::string name = "left wall";
    CXTString<char> label = name;
    label += std::string_view(" (brick)").substr(0, 3);
    const std::string copy(label);
    if (CountSpaces(label) != 2 || label != copy || copy < name)
        return 1;

    // In streams, loops and hashed containers.
    for (char& character : label)
        character = character == ' ' ? '_' : character;
    std::unordered_map<CXTString<char>, int> faces{{label, 12}};
    std::cout << label << ": " << faces[label] << '\n';

    // Text objects are arguments for %s. X_FORMAT checks a format against its arguments while it is compiled.
    CXTString<char> line;
    line.Format("%s has %d faces", label, faces[label]);
    line.AppendFormat(X_FORMAT(", %.1f m on %s"), 2.5, name);
    std::cout << line << '\n';

    // Paths in both directions. Names that are no UTF-8 keep their bytes.
    const std::filesystem::path folder = std::filesystem::current_path();
    const CPathString path = CPathString(folder) / L"walls.txt";
    CStdioFileEx file(folder / "walls.txt", CXFile::modeCreate | CXFile::modeWrite | CXFile::typeText);
    file.WriteString(line);
    file.Close();
    return std::filesystem::file_size(path) == line.GetLength64() ? 0 : 1;
}
