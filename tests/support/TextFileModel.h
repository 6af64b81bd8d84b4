#pragma once

// The lines of a text file, worked out slowly from all of its bytes at once: what CStdioFileEx is measured against.

#include "text/CXTString.h"
#include "text/TextEncoding.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tev::test
{
struct TextFileModel
{
    struct Line
    {
        std::wstring text;
        std::size_t next; // where the following line starts in the file
    };

    bool returnsEndLines;
    std::vector<Line> lines;
};

namespace model
{
// The file as CR, LF and anything else; '?' stands for a byte that is left over.
inline std::string Units(const std::string& bytes, xStringEncoding encoding)
{
    if (encoding != xEncodingUtf16 && encoding != xEncodingUtf16BE)
        return bytes;
    std::string units;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
    {
        const char low = bytes[encoding == xEncodingUtf16 ? i : i + 1];
        const char high = bytes[encoding == xEncodingUtf16 ? i + 1 : i];
        units += high == 0 ? low : 'x';
    }
    return bytes.size() % 2 == 0 ? units : units + '?';
}

inline bool FirstLineHoldsReturn(const std::string& units)
{
    std::string line = units.substr(0, units.find('\n') == std::string::npos ? units.size() : units.find('\n') + 1);
    if (line.size() >= 2 && line.substr(line.size() - 2) == "\r\n")
        line.erase(line.size() - 2, 1);
    return line.find('\r') != std::string::npos && line.find('\r') != line.size() - 1;
}
} // namespace model

/// For encodings in which no byte of a longer character looks like CR or LF.
inline TextFileModel ModelTextFile(const std::string& file, std::size_t markSize, xStringEncoding encoding)
{
    const std::string bytes = file.substr(markSize);
    const std::string units = model::Units(bytes, encoding);
    const std::size_t unit = encoding == xEncodingUtf16 || encoding == xEncodingUtf16BE ? 2 : 1;
    TextFileModel result = {model::FirstLineHoldsReturn(units), {}};
    std::size_t start = 0;
    while (start < units.size())
    {
        std::size_t end = units.find_first_of(result.returnsEndLines ? "\r\n" : "\n", start);
        std::size_t next = end == std::string::npos ? units.size() : end + 1;
        if (end == std::string::npos)
            end = units.size();
        else if (units.compare(end, 2, "\r\n") == 0)
            ++next;
        // Where only LF ends lines, a CR before it or at the very end of the file belongs to the line end.
        if (!result.returnsEndLines && end > start && units[end - 1] == '\r')
            --end;
        const std::size_t last = std::min(end * unit, bytes.size());
        CXTString<wchar_t> text;
        static_cast<void>(XDecodeText(bytes.data() + start * unit, last - start * unit, encoding, text));
        result.lines.push_back(
            {text.GetConstBuffer(), markSize + std::min(next * unit, bytes.size())}); // cut at the first NUL
        start = next;
    }
    return result;
}
} // namespace tev::test
