#pragma once

#include "files/CStdioFileEx.h"
#include "tests/support/TextTools.h"

// Text files opened in the usual ways, and their lines.
namespace tev::test
{
inline constexpr unsigned kText = CXFile::modeRead | CXFile::shareDenyNone | CXFile::typeText;
inline constexpr unsigned kTextBoth = kText | CXFile::modeReadWrite;
inline constexpr unsigned kUtf8 = CStdioFileEx::kReadUtf8;
inline constexpr unsigned kUtf16 = CStdioFileEx::kWriteUtf16;
inline constexpr unsigned kNew = CXFile::modeReadWrite | CXFile::modeCreate | CXFile::shareDenyNone | CXFile::typeText;
inline constexpr unsigned kKeep = kNew | CXFile::modeNoTruncate;

using Lines = std::vector<std::wstring>;

inline Lines ReadLines(CStdioFileEx& file)
{
    Lines lines;
    CXTString<wchar_t> line(L"to be replaced");
    while (file.ReadString(line))
        lines.push_back(ToStd(line));
    EXPECT_TRUE(line.IsEmpty());
    EXPECT_FALSE(file.ReadString(line));
    return lines;
}
} // namespace tev::test
