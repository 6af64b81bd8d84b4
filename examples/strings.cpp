// Text in both widths: composing, searching, converting.

#include "text/CXTString.h"
#include "text/TextEncoding.h"

#include <cstdio>

int main()
{
    CXTString<wchar_t> line;
    line.Format(L"%-8s %3d faces, %.2f m\u00b2", L"roof", 12, 41.5);
    line.Replace(L"roof", L"wall");

    // Narrow text is in the ANSI code page, UTF-8 unless the host has chosen another one.
    std::puts(CXTString<char>(line));

    // Words between separators.
    int position = 0;
    for (CXTString<wchar_t> word = line.Tokenize(L" ,", position); position != -1;
         word = line.Tokenize(L" ,", position))
        std::puts(CXTString<char>(word));

    // Any other encoding by its code page: Windows-1252 writes the superscript two as one byte.
    CXTString<char> bytes;
    if (!XEncodeText(line, line.GetLength64(), static_cast<xStringEncoding>(1252), bytes))
        return 1;
    return bytes.GetLength() == line.GetLength() ? 0 : 1;
}
