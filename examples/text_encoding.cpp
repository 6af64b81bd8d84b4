// Finds out the encodings of texts, decodes them, and says what was lost.

#include <TevTools.h>

#include <cstdio>
#include <string>

namespace
{
// Text without a mark that fits no Unicode encoding is taken for that of older programs.
constexpr auto kFallback = static_cast<xStringEncoding>(1252);

bool Decode(const std::string& bytes, CXTString<wchar_t>& text)
{
    const XTextInfo info = XExamineText(bytes.data(), bytes.size());
    const xStringEncoding encoding = info.m_certainty >= XTextCertainty::Weak ? info.m_encoding : kFallback;
    XTextLoss loss;
    if (!XDecodeText(bytes.data() + info.m_markSize, bytes.size() - info.m_markSize, encoding, text, loss))
        return false;
    if (loss.m_count != 0)
        std::printf("%llu characters are lost, the first at byte %llu\n", loss.m_count, info.m_markSize + loss.m_first);
    return true;
}
} // namespace

int main(int argc, char* argv[])
{
    try
    {
        const CXTString<wchar_t> folder(argc > 1 ? argv[1] : "examples/data");
        const XTextInfo info = XExamineTextFile(folder + L"/utf16le.txt");
        std::printf("encoding %u, mark of %u bytes, %llu lines, %llu of them ended by CR LF\n", info.m_encoding,
                    info.m_markSize, info.m_lineCount, info.m_lineEnds.m_crLf);

        CXTString<wchar_t> text;
        for (const char* bytes : {"caf\xC3\xA9", "caf\xE9",
                                  "\xEF\xBB\xBF"
                                  "cut off: \xE2\x82"})
        {
            if (Decode(bytes, text))
                std::puts(CXTString<char>(text));
        }
        return info.m_encoding == xEncodingUtf16 ? 0 : 1;
    }
    catch (CXFileException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(e->GetCauseMessage()).GetConstBuffer());
        e->Delete();
        return 1;
    }
}
