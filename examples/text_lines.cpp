// Prints a text file of any encoding as UTF-8, with line numbers: text_lines FILE [CODE-PAGE]
// A byte-order mark at its start decides the encoding; without one the code page does, UTF-8 if it is not given.

#include "files/CStdioFileEx.h"
#include "objects/CXFileException.h"
#include "objects/LastFailure.h"
#include "text/TextEncoding.h"
#include "text/XCA2W.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace
{
void PrintLines(const wchar_t* path, xStringEncoding codePage)
{
    // With typeText, opening detects the mark and whether lines end with CR alone.
    CStdioFileEx file(path, CXFile::modeRead | CXFile::typeText | CXFile::shareDenyWrite);
    if (!file.HasBom())
        file.SetCodePage(codePage);

    CXTString<wchar_t> line; // without its line end
    for (int number = 1; file.ReadString(line); ++number)
        std::printf("%5d  %s\n", number, static_cast<const char*>(XCW2A(line, xEncodingUtf8)));
}
} // namespace

int main(int argumentCount, char** arguments)
{
    std::filesystem::path path = argumentCount > 1 ? arguments[1] : "examples/data";
    if (std::filesystem::is_directory(path))
        path /= "utf16le.txt"; // one of the sample texts
    const auto codePage = argumentCount > 2 ? static_cast<xStringEncoding>(std::atoi(arguments[2])) : xEncodingUtf8;

    try
    {
        PrintLines(XCA2W(path.string().c_str(), xEncodingUtf8), codePage);
        return 0;
    }
    catch (CXFileException* failure)
    {
        // Exceptions are pointers; the catcher deletes them.
        std::fprintf(stderr, "text_lines: %s\n", CXTString<char>(XGetExceptionText(failure)).GetConstBuffer());
        failure->Delete();
        return 1;
    }
}
