#include "qt/toolkit/ReportPreview.h"

#include "crash/XMinidump.h"
#include "files/CXFile.h"
#include "qt/toolkit/QtText.h"
#include "services/Paths.h"
#include "text/TextDetection.h"

#include <QLocale>

#include <algorithm>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;

constexpr unsigned kMostOfText = 128 * 1024;
constexpr unsigned kMostOfBytes = 8 * 1024;
constexpr int kMostThreads = 4;

bool OpenForLook(const CPathString& path, CXFile& file)
{
    // Anything else, such as a pipe, may keep the reader waiting.
    return fileIsFile(path) && file.Open(path, CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit);
}

QString Joined(const std::vector<Text>& lines)
{
    QString result;
    for (const Text& line : lines)
        result += XToQString(line) + u'\n';
    return result;
}

QString DumpText(const XMinidump& dump)
{
    QString text;
    if (dump.Has(XMinidumpPart::kSystem))
        text += XToQString(dump.GetSystemName()) + u'\n';
    if (dump.HasSignal())
        text += XInLanguage(u"Signal %1, address 0x%2", u"Signal %1, adresse 0x%2")
                    .arg(dump.GetSignal())
                    .arg(dump.GetFaultAddress(), 0, 16) +
                u'\n';
    const int threads = static_cast<int>(dump.GetThreads().size());
    text += XInLanguage(u"Threads: %1", u"Threads : %1").arg(threads) + QStringLiteral("\n\n");
    if (dump.GetFaultThread() >= 0)
        return text + Joined(dump.DescribeThread(dump.GetFaultThread()));
    for (int i = 0; i < std::min(threads, kMostThreads); ++i)
        text += Joined(dump.DescribeThread(i)) + u'\n';
    return text;
}

QString HexText(const std::vector<unsigned char>& bytes)
{
    constexpr std::size_t kInLine = 16;
    QString text;
    for (std::size_t line = 0; line < bytes.size(); line += kInLine)
    {
        QString characters;
        text += QStringLiteral("%1 ").arg(line, 8, 16, QLatin1Char('0'));
        for (std::size_t i = line; i < line + kInLine; ++i)
        {
            if (i >= bytes.size())
            {
                text += QStringLiteral("   ");
                continue;
            }
            text += QStringLiteral(" %1").arg(bytes[i], 2, 16, QLatin1Char('0'));
            characters +=
                bytes[i] >= 0x20 && bytes[i] < 0x7F ? QLatin1Char(static_cast<char>(bytes[i])) : QLatin1Char('.');
        }
        text += QStringLiteral("  ") + characters + u'\n';
    }
    return text;
}

/// False when the bytes are no text. The last character of a cut one may be incomplete.
bool AsText(const std::vector<unsigned char>& bytes, bool isCut, QString& text)
{
    constexpr std::size_t kMostOfCharacter = 4;
    for (std::size_t less = 0; less < (isCut ? kMostOfCharacter : 1) && less < bytes.size(); ++less)
    {
        const std::size_t count = bytes.size() - less;
        const XTextInfo info = XExamineText(bytes.data(), count);
        const bool isWide = info.m_encoding == xEncodingUtf16 || info.m_encoding == xEncodingUtf16BE;
        if (!info.m_isValid || info.m_encoding == xEncodingUnknown || (info.m_holdsNul && !isWide))
            continue;
        Text decoded;
        if (!XDecodeText(bytes.data() + info.m_markSize, count - info.m_markSize, info.m_encoding, decoded))
            continue;
        text = XToQString(decoded);
        return true;
    }
    return bytes.empty();
}
} // namespace

namespace tev
{
QString DataSizeText(unsigned __int64 bytes)
{
    return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1);
}

ReportPreview LookAtFile(const CPathString& path)
{
    ReportPreview look;
    CXFile file(false);
    look.m_isReadable = OpenForLook(path, file);
    if (look.m_isReadable)
        look.m_size = file.GetLength();
    return look;
}

ReportPreview PreviewFile(const CPathString& path)
{
    ReportPreview look;
    CXFile file(false);
    look.m_isReadable = OpenForLook(path, file);
    if (!look.m_isReadable)
    {
        look.m_text = XInLanguage(u"This file cannot be read.", u"Ce fichier ne peut pas être lu.");
        return look;
    }
    look.m_size = file.GetLength();
    XMinidump dump;
    if (dump.Load(path))
    {
        look.m_text = DumpText(dump);
        return look;
    }
    std::vector<unsigned char> bytes(static_cast<std::size_t>(std::min<unsigned __int64>(look.m_size, kMostOfText)));
    bytes.resize(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
    bool isCut = bytes.size() < look.m_size;
    if (!AsText(bytes, isCut, look.m_text))
    {
        bytes.resize(std::min<std::size_t>(bytes.size(), kMostOfBytes));
        isCut = bytes.size() < look.m_size;
        look.m_text = HexText(bytes);
    }
    if (isCut)
        look.m_text += u'\n' + XInLanguage(u"[The first %1 of %2]", u"[Les premiers %1 sur %2]")
                                   .arg(DataSizeText(bytes.size()), DataSizeText(look.m_size));
    return look;
}
} // namespace tev
