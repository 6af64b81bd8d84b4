#include "tools/tev/TextInfo.h"

#include "text/CXTString.h"
#include "tools/tev/Progress.h"
#include "tools/tev/Table.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <algorithm>

namespace tev::tool
{
namespace
{
/// Detects the encoding of a file without mark, and whether one with a UTF-8 mark is valid.
class ContentCheck
{
public:
    void Add(std::string_view bytes)
    {
        unsigned char any = 0;
        for (const char byte : bytes)
            any = static_cast<unsigned char>(any | static_cast<unsigned char>(byte));
        m_isEmpty = m_isEmpty && bytes.empty();
        m_holdsNul = m_holdsNul || bytes.find('\0') != std::string_view::npos;
        if (any < 0x80)
            return;
        m_isAscii = false;
        m_isUtf8 = m_isUtf8 && SurvivesRoundTrip(bytes);
    }

    std::string Name(const ByteOrderMark& mark) const
    {
        if (mark.m_size != 0)
            return EncodingName(mark.m_encoding) + (mark.m_encoding == xEncodingUtf8 && !m_isUtf8 ? ", damaged" : "");
        if (m_isEmpty)
            return "empty";
        if (m_holdsNul)
            return "unknown, holds NUL bytes";
        if (m_isAscii)
            return "ASCII";
        return m_isUtf8 ? "UTF-8" : "8-bit, code page unknown";
    }

private:
    /// Invalid bytes are decoded to U+FFFD, which is encoded to other bytes.
    bool SurvivesRoundTrip(std::string_view bytes)
    {
        return XDecodeText(bytes.data(), bytes.size(), xEncodingUtf8, m_text) &&
               XEncodeText(m_text.GetConstBuffer(), m_text.GetLength64(), xEncodingUtf8, m_again) &&
               bytes == std::string_view(m_again.GetConstBuffer(), m_again.GetLength64());
    }

    bool m_isEmpty = true;
    bool m_isAscii = true;
    bool m_isUtf8 = true;
    bool m_holdsNul = false;
    CXTString<wchar_t> m_text;
    CXTString<char> m_again;
};

struct FileInfo
{
    std::string m_name;
    std::string m_encoding;
    bool m_hasMark = false;
    LineEnds m_ends;
    std::uint64_t m_lines = 0;
    std::uint64_t m_bytes = 0;
};

FileInfo Examine(const std::string& name)
{
    TextSource source(name);
    const ByteOrderMark& mark = source.Mark();
    const xStringEncoding encoding = mark.m_size != 0 ? mark.m_encoding : xEncodingUtf8;

    Progress progress(name, source.Size(), Progress::Beside::kNothing);
    LineEndCounter counter(encoding);
    ContentCheck content;
    for (std::string_view bytes = source.Next(encoding); !bytes.empty(); bytes = source.Next(encoding))
    {
        counter.Add(bytes);
        if (!IsUtf16(encoding))
            content.Add(bytes);
        progress.Show(source.BytesRead());
    }

    FileInfo info;
    info.m_name = name;
    info.m_encoding = content.Name(mark);
    info.m_hasMark = mark.m_size != 0;
    info.m_ends = counter.Ends();
    info.m_lines = counter.Lines();
    info.m_bytes = source.BytesRead();
    return info;
}

std::string Describe(const LineEnds& ends)
{
    struct Kind
    {
        const char* m_name;
        std::uint64_t m_count;
    };
    std::string kinds;
    std::string counts;
    int kindCount = 0;
    for (const Kind& kind : {Kind{"LF", ends.m_lf}, Kind{"CRLF", ends.m_crLf}, Kind{"CR", ends.m_cr}})
    {
        if (kind.m_count == 0)
            continue;
        const char* separator = kindCount == 0 ? "" : ", ";
        kinds += separator + std::string(kind.m_name);
        counts += separator + std::to_string(kind.m_count) + " " + kind.m_name;
        ++kindCount;
    }
    return kindCount == 0 ? "none" : kindCount == 1 ? kinds : "mixed: " + counts;
}

Row ToRow(const FileInfo& info)
{
    return {info.m_name,
            info.m_encoding,
            info.m_hasMark ? "yes" : "no",
            Describe(info.m_ends),
            std::to_string(info.m_lines),
            std::to_string(info.m_bytes)};
}

void PrintJson(Output& output, const FileInfo& info)
{
    const auto number = [](const char* name, std::uint64_t value) {
        return std::string(", \"") + name + "\": " + std::to_string(value);
    };
    output.Write("{\"file\": " + JsonString(info.m_name) + ", \"encoding\": " + JsonString(info.m_encoding) +
                 ", \"mark\": " + (info.m_hasMark ? "true" : "false") + number("lf", info.m_ends.m_lf) +
                 number("crlf", info.m_ends.m_crLf) + number("cr", info.m_ends.m_cr) + number("lines", info.m_lines) +
                 number("bytes", info.m_bytes) + "}\n");
}
} // namespace

void LineEndCounter::Add(std::string_view bytes)
{
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    if (IsUtf16(m_encoding))
    {
        const std::size_t low = m_encoding == xEncodingUtf16BE ? 1 : 0;
        AddUnits(bytes.size() / 2, [=](std::size_t i) { return data[2 * i + low] | data[2 * i + 1 - low] << 8; });
        m_inLine = m_inLine || bytes.size() % 2 != 0;
    }
    else
    {
        AddUnits(bytes.size(), [=](std::size_t i) { return int{data[i]}; });
    }
}

template <class UnitAt>
void LineEndCounter::AddUnits(std::size_t count, UnitAt unitAt)
{
    if (count == 0)
        return;
    // Without branches, so that the compiler can vectorize it.
    std::uint64_t feeds = unitAt(0) == '\n' ? 1 : 0;
    std::uint64_t returns = unitAt(0) == '\r' ? 1 : 0;
    std::uint64_t pairs = m_afterReturn ? feeds : 0;
    for (std::size_t i = 1; i < count; ++i)
    {
        const bool isFeed = unitAt(i) == '\n';
        feeds += isFeed ? 1 : 0;
        returns += unitAt(i) == '\r' ? 1 : 0;
        pairs += unitAt(i - 1) == '\r' && isFeed ? 1 : 0;
    }
    m_ends.m_lf += feeds - pairs;
    m_ends.m_crLf += pairs;
    m_ends.m_cr += returns - pairs; // the first pair may take back a return that ended the last block
    m_afterReturn = unitAt(count - 1) == '\r';
    m_inLine = !m_afterReturn && unitAt(count - 1) != '\n';
}

void RunTextInfo(Session& session, const std::vector<std::string>& files, InfoFormat format)
{
    std::vector<Row> rows;
    AttemptEach(session, files, [&](const std::string& name) {
        const FileInfo info = Examine(name);
        if (format == InfoFormat::kTable)
            rows.push_back(ToRow(info));
        else if (format == InfoFormat::kJson)
            PrintJson(session.m_output, info);
        else
            PrintFields(session.m_output, ToRow(info));
    });
    if (!rows.empty())
        PrintTable(session.m_output,
                   {{"FILE"}, {"ENCODING"}, {"MARK"}, {"LINE ENDS"}, {"LINES", true}, {"BYTES", true}}, rows);
}

} // namespace tev::tool
