#include "tools/tev/TextInfo.h"

#include "text/TextDetection.h"
#include "tools/tev/Encodings.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/Progress.h"
#include "tools/tev/TextSource.h"
#include "tools/tev/Tool.h"

#include <cstdint>
#include <memory>

namespace tev::tool
{
namespace
{
constexpr std::size_t kExaminedAtOnce = 256 * 1024;

struct FileInfo
{
    std::string m_name;
    XTextInfo m_text;
};

FileInfo Examine(const std::string& name)
{
    const std::unique_ptr<CXFile> file = OpenInput(name);
    Progress progress(name, SizeOf(name), Progress::Beside::kNothing);
    CXTextExaminer examiner;
    std::vector<char> buffer(kExaminedAtOnce);
    std::uint64_t done = 0;
    while (const unsigned count = file->Read(buffer.data(), static_cast<unsigned>(buffer.size())))
    {
        examiner.Add(buffer.data(), count);
        progress.Show(done += count);
    }
    return {name, examiner.GetInfo()};
}

std::string DescribeEncoding(const XTextInfo& info)
{
    if (info.m_byteCount == 0)
        return "empty";
    if (info.m_markSize != 0)
        return EncodingName(info.m_encoding) + (info.m_encoding == xEncodingUtf8 && !info.m_isValid ? ", damaged" : "");
    if (info.m_encoding == xEncodingUnknown)
        return info.m_holdsNul ? "unknown, holds NUL bytes" : "8-bit, code page unknown";
    if (info.m_encoding == xEncodingUtf8)
        return info.m_isAscii ? "ASCII" : "UTF-8";
    return (info.m_certainty < XTextCertainty::Strong ? "probably " : "") + EncodingName(info.m_encoding);
}

std::string Describe(const XLineEnds& ends)
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
            DescribeEncoding(info.m_text),
            info.m_text.m_markSize != 0 ? "yes" : "no",
            Describe(info.m_text.m_lineEnds),
            std::to_string(info.m_text.m_lineCount),
            std::to_string(info.m_text.m_byteCount)};
}

Json ToJson(const FileInfo& info)
{
    const XTextInfo& text = info.m_text;
    return Json::Object({{"file", info.m_name},
                         {"encoding", DescribeEncoding(text)},
                         {"mark", text.m_markSize != 0},
                         {"lf", text.m_lineEnds.m_lf},
                         {"crlf", text.m_lineEnds.m_crLf},
                         {"cr", text.m_lineEnds.m_cr},
                         {"lines", text.m_lineCount},
                         {"bytes", text.m_byteCount}});
}
} // namespace

void RunTextInfo(Session& session, const std::vector<std::string>& files, const ListForm& form)
{
    Listing listing(session, form, {{"FILE"}, {"ENCODING"}, {"MARK"}, {"LINE ENDS"}, {"LINES", true}, {"BYTES", true}});
    AttemptEach(session, files, [&](const std::string& name) {
        const FileInfo info = Examine(name);
        listing.Add([&] { return ToRow(info); }, [&] { return ToJson(info); });
    });
    listing.Finish();
}

} // namespace tev::tool
