#include <TevTools.h>

#include <cstdio>

// Writes a text file as UTF-16, and reads it in the encoding that it has.
int main()
{
    try
    {
        CStdioFileEx notes(L"notes.txt", CXFile::modeCreate | CXFile::modeWrite | CStdioFileEx::kWriteUtf16);
        notes.WriteString(L"roof: 41.5 m\u00b2\r\nwalls: 120 m\u00b2");
        notes.Close();

        if (!notes.Open(L"notes.txt", CXFile::modeRead | CXFile::typeText) || !notes.IsFileUnicodeText())
            return 1;
        CXTString<wchar_t> line;
        while (notes.ReadString(line))
            std::puts(CXTString<char>(line)); // narrow text is UTF-8 unless the program chooses a code page
        return 0;
    }
    catch (CXFileException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
        return 1;
    }
}
