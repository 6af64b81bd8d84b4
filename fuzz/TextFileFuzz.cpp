// Text files of any bytes, read by lines in any encoding, against a slow model of the rules.
// Input: a byte for the encoding and one for the size of the buffer and of the file, then the bytes of the file.

#include "files/CStdioFileEx.h"
#include "tests/support/TextFileModel.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
void Check(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "differs from the model: %s\n", what);
    std::abort();
}

// A file without a disk, and the path that opens it.
class MemoryFile
{
public:
    MemoryFile() : m_descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {}

    std::wstring Fill(const std::string& bytes) const
    {
        const bool filled = ftruncate(m_descriptor, 0) == 0 &&
                            pwrite(m_descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
        Check(filled, "the input cannot be stored");
        return L"/proc/self/fd/" + std::to_wstring(m_descriptor);
    }

private:
    int m_descriptor;
};

void ReadFrom(CStdioFileEx& file, const tev::test::TextFileModel& model, std::size_t first)
{
    CXTString<wchar_t> line;
    for (std::size_t i = first; i < model.lines.size(); ++i)
    {
        Check(file.ReadString(line), "a line is missing");
        Check(model.lines[i].text.compare(0, std::wstring::npos, line.GetConstBuffer(), line.GetLength64()) == 0,
              "a line's text");
        Check(file.GetPosition() == model.lines[i].next, "the position after a line");
    }
    Check(!file.ReadString(line) && line.IsEmpty(), "a line too many");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr unsigned kEncodings[] = {xEncodingUtf8, xEncodingUtf16, xEncodingUtf16BE, 1252, 932, xEncodingAnsi};
    constexpr std::size_t kTwoBlocks = 70'000;
    constexpr std::size_t kFiller = 4001;
    if (size < 2)
        return 0;
    const auto encoding = static_cast<xStringEncoding>(kEncodings[data[0] % std::size(kEncodings)]);
    const bool large = data[1] == 0x10;
    std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    for (const std::string once = bytes + std::string(kFiller, 'x'); large && bytes.size() < kTwoBlocks;)
        bytes += once;

    static const MemoryFile memory;
    CStdioFileEx file;
    if (!large)
        file.SetBufferSize(data[1]);
    Check(file.Open(memory.Fill(bytes).c_str(), CXFile::typeText | CXFile::shareDenyNone), "Open");
    const bool marked16 = bytes.compare(0, 2, "\xFF\xFE") == 0;
    const bool marked8 = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
    Check(file.HasBom() == (marked8 || marked16), "HasBom");
    Check(file.GetEncoding() == (marked16  ? xEncodingUtf16
                                 : marked8 ? xEncodingUtf8
                                           : xEncodingUnknown),
          "GetEncoding");

    file.SetCodePage(encoding);
    const xStringEncoding used = marked16 ? xEncodingUtf16 : encoding;
    const std::size_t mark = marked16 ? 2 : marked8 ? 3 : 0;
    const tev::test::TextFileModel model = tev::test::ModelTextFile(bytes, mark, used);
    ReadFrom(file, model, 0);
    file.SeekToBegin();
    ReadFrom(file, model, 0);
    if (!model.lines.empty())
    {
        const std::size_t middle = model.lines.size() / 2;
        file.Seek(static_cast<__int64>(model.lines[middle].next), CXFile::begin);
        ReadFrom(file, model, middle + 1);
    }
    Check(file.SkipLines(0xFFFFFFFF, CXFile::begin) == model.lines.size(), "the number of lines");
    return 0;
}
