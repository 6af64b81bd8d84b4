#include "tools/tev/TextCat.h"

#include "files/CStdioFileEx.h"
#include "objects/CXFileException.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Progress.h"
#include "tools/tev/System.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <filesystem>

namespace tev::tool
{
namespace
{
constexpr std::uint64_t kLinesBetweenShows = 256;

/// Pipes and devices can be read once only: their lines are read from a copy.
bool MustBeSpooled(const std::string& name)
{
    if (name == kStandardStream)
        return true;
    std::error_code unknown;
    const std::filesystem::file_status status = std::filesystem::status(SystemPath(name), unknown);
    return std::filesystem::is_other(status);
}

XTextMark MarkOf(const std::string& path)
{
    char bytes[4];
    return XFindTextMark(bytes, OpenInput(path)->Read(bytes, sizeof bytes));
}

/// Copies a file, but for a mark of UTF-32, which would be taken for one of UTF-16. Returns the mark of the file.
XTextMark Spool(const std::string& name, const SpoolFile& spool)
{
    TextSource source(name);
    CXFile copy(Widen(spool.Path()).c_str(), CXFile::modeWrite | CXFile::shareDenyNone | CXFile::modeNoInherit);
    Progress progress(name, source.Size(), Progress::Beside::kNothing);
    const XTextMark mark = source.Mark();
    CXTString<char> bytesOfMark;
    if (mark.m_size != 0 && !IsUtf32(mark.m_encoding) && XEncodeText(&kByteOrderMark, 1, mark.m_encoding, bytesOfMark))
        copy.Write(bytesOfMark.GetConstBuffer(), mark.m_size);
    for (std::string_view bytes = source.Next(xEncodingUtf8); !bytes.empty(); bytes = source.Next(xEncodingUtf8))
    {
        copy.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
        progress.Show(source.BytesRead());
    }
    return mark;
}

/// A text file as wide lines without their ends, read through the library. What cannot be read twice, and what the library
/// would take for something else, is spooled first.
class LineReader
{
public:
    LineReader(const std::string& name, xStringEncoding from)
    {
        if (!MustBeSpooled(name) && !IsUtf32(MarkOf(name).m_encoding))
        {
            Open(name, name, from);
            return;
        }
        const SpoolFile spool;
        const XTextMark mark = Spool(name, spool);
        Open(spool.Path(), name, mark.m_size != 0 ? mark.m_encoding : from);
    }

    bool Next(CXTString<wchar_t>& line)
    {
        if (!m_file.ReadString(line))
            return false;
        if (m_markIsText && line.GetAt(0) == kByteOrderMark)
            line.Delete(0);
        m_markIsText = false;
        return true;
    }

    void Skip(std::uint64_t count)
    {
        constexpr std::uint64_t kMostAtOnce = 1u << 30;
        while (count != 0)
        {
            const auto wanted = static_cast<unsigned int>(std::min(count, kMostAtOnce));
            if (m_file.SkipLines(wanted, CXFile::current) < wanted)
                return;
            count -= wanted;
            m_markIsText = false;
        }
    }

    std::uint64_t Size() const { return m_file.GetLength(); }
    std::uint64_t Position() const { return m_file.GetPosition(); }

private:
    void Open(const std::string& path, const std::string& name, xStringEncoding from)
    {
        const XTextMark mark = MarkOf(path);
        const std::wstring widePath = Widen(path);
        const std::wstring wideName = Widen(name);
        CXFileException error;
        if (!m_file.Open(widePath.c_str(), CXFile::modeRead | CXFile::typeText | CXFile::shareDenyNone, &error))
            CXFileException::Throw(error.GetCause(), wideName.c_str());
        m_file.SetFilePath(wideName.c_str());
        if (mark.m_encoding == xEncodingUtf16BE)
        {
            m_file.SetCodePage(xEncodingUtf16BE);
            m_markIsText = true;
        }
        else if (mark.m_size == 0)
        {
            m_file.SetCodePage(from);
        }
    }

    CStdioFileEx m_file;
    bool m_markIsText = false; // the library leaves a big-endian mark in the first line
};

/// Lines as UTF-8, encoded many at a time.
class Utf8Printer
{
public:
    explicit Utf8Printer(Output& output) : m_output(output) {}

    void Print(const CXTString<wchar_t>& line)
    {
        m_lines.Append(line.GetConstBuffer(), line.GetLength64());
        m_lines += L'\n';
        if (m_lines.GetLength64() >= kEncodeAtOnce)
            Finish();
    }

    void Finish()
    {
        if (XEncodeText(m_lines.GetConstBuffer(), m_lines.GetLength64(), xEncodingUtf8, m_bytes))
            m_output.Write({m_bytes.GetConstBuffer(), m_bytes.GetLength64()});
        m_lines.Empty();
    }

private:
    static constexpr std::uint64_t kEncodeAtOnce = 16 * 1024;

    Output& m_output;
    CXTString<wchar_t> m_lines;
    CXTString<char> m_bytes;
};

void Print(Output& output, const std::string& name, xStringEncoding from, LineRange lines)
{
    LineReader reader(name, from);
    Progress progress(name, reader.Size(), Progress::Beside::kOutput);
    reader.Skip(lines.m_first - 1);

    Utf8Printer printer(output);
    CXTString<wchar_t> line;
    for (std::uint64_t number = lines.m_first; number <= lines.m_last && reader.Next(line); ++number)
    {
        printer.Print(line);
        if (number % kLinesBetweenShows == 0)
            progress.Show(reader.Position());
    }
    printer.Finish();
}

std::optional<std::uint64_t> ParseLineNumber(const std::string& digits)
{
    constexpr std::size_t kMostDigits = 18;
    const bool isNumber =
        !digits.empty() && digits.size() <= kMostDigits && digits.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoull(digits) == 0)
        return std::nullopt;
    return std::stoull(digits);
}
} // namespace

std::optional<LineRange> ParseLineRange(const std::string& text)
{
    const std::size_t dash = text.find('-');
    const std::string first = text.substr(0, dash);
    const std::string last = dash == std::string::npos ? first : text.substr(dash + 1);
    if (first.empty() && last.empty())
        return std::nullopt;

    LineRange range;
    if (!first.empty())
    {
        const std::optional<std::uint64_t> number = ParseLineNumber(first);
        if (!number)
            return std::nullopt;
        range.m_first = *number;
    }
    if (!last.empty())
    {
        const std::optional<std::uint64_t> number = ParseLineNumber(last);
        if (!number || *number < range.m_first)
            return std::nullopt;
        range.m_last = *number;
    }
    return range;
}

void RunTextCat(Session& session, const std::vector<std::string>& files, xStringEncoding from, LineRange lines)
{
    AttemptEach(session, files, [&](const std::string& name) { Print(session.m_output, name, from, lines); });
}

} // namespace tev::tool
