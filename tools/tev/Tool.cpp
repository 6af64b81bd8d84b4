#include "tools/tev/Tool.h"

#include "objects/CXArchiveException.h"
#include "objects/CXFileException.h"
#include "objects/LastFailure.h"
#include "text/Language.h"
#include "text/TextEncoding.h"
#include "tools/tev/System.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace tev::tool
{
namespace
{
// The library's message texts, one for each cause.
constexpr unsigned kTextFirstFileCause = 0xF1A0;
constexpr unsigned kTextFirstArchiveCause = 0xF1B0;
constexpr unsigned kOutputBufferSize = 256 * 1024;

/// The library's message of a cause. What it is about is the subject before it, so it is not named again.
std::string CauseText(unsigned id)
{
    CXTString<wchar_t> text;
    text.Format(id, XGetLanguage() == XLanguage::French ? L"ce fichier" : L"it");
    return Narrow(text);
}

/// Whether a character controls a terminal, or the direction of the text after it; not for tabs and line feeds.
bool IsControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character.front());
    if (character.size() == 1)
        return (first < ' ' && first != '\t' && first != '\n') || first == 0x7F;
    const auto isBetween = [&](std::string_view low, std::string_view high) {
        return character >= low && character <= high && character.size() == low.size();
    };
    return isBetween("\xC2\x80", "\xC2\x9F") || isBetween("\xE2\x80\xA8", "\xE2\x80\xAE") ||
           isBetween("\xE2\x81\xA6", "\xE2\x81\xA9");
}

/// Reports the exception that is being handled.
void ReportCurrentException(Session& session, const std::string& subject)
{
    try
    {
        throw;
    }
    catch (CXFileException* failure)
    {
        const CXTString<wchar_t>& name = failure->GetFileName();
        Report(session, name.IsEmpty() ? subject : Narrow(name), CauseText(kTextFirstFileCause + failure->GetCause()));
        failure->Delete();
    }
    catch (CXArchiveException* failure)
    {
        const CXTString<wchar_t>& name = failure->GetFileName();
        Report(session, name.IsEmpty() ? subject : Narrow(name), ArchiveFailureText(*failure));
        failure->Delete();
    }
    catch (CXException* failure)
    {
        Report(session, subject, Narrow(XGetExceptionText(failure)));
        failure->Delete();
    }
    catch (const Failure& failure)
    {
        Report(session, failure.Subject(), failure.what());
    }
    catch (const std::bad_alloc&)
    {
        constexpr unsigned kNotEnoughMemory = 8;
        Report(session, subject, Narrow(XGetSystemErrorText(kNotEnoughMemory)));
    }
    catch (const std::exception& failure)
    {
        Report(session, subject, failure.what());
    }
}
} // namespace

std::wstring Widen(const std::string& text)
{
    CXTString<wchar_t> wide;
    static_cast<void>(XDecodeText(text.data(), text.size(), xEncodingUtf8, wide));
    return std::wstring(wide.GetConstBuffer(), wide.GetLength64());
}

std::string Narrow(const wchar_t* text, std::size_t length)
{
    CXTString<char> narrow;
    static_cast<void>(XEncodeText(text, length, xEncodingUtf8, narrow));
    return std::string(narrow.GetConstBuffer(), narrow.GetLength64());
}

std::string Narrow(const CXTString<wchar_t>& text)
{
    return Narrow(text.GetConstBuffer(), text.GetLength64());
}

std::size_t CharacterLength(std::string_view text)
{
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length > text.size())
        return 0;
    for (std::size_t at = 1; at < length; ++at)
    {
        if ((byte(at) & 0xC0) != 0x80)
            return 0;
    }
    // Overlong forms, surrogates, and numbers above the last character.
    const bool isBad = length > 2 && ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) >= 0xA0) ||
                                      (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) >= 0x90));
    return isBad ? 0 : length;
}

std::string Printable(const CXTString<wchar_t>& text)
{
    std::string result = PrintableText(Narrow(text));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, '?');
    return result;
}

std::string PrintableText(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();)
    {
        const std::size_t length = CharacterLength(text.substr(at));
        const bool isLineEnd = text[at] == '\r' && text.substr(at + 1, 1) == "\n";
        if (length != 0 && (isLineEnd || !IsControl(text.substr(at, length))))
            result += text.substr(at, length);
        else
            result += '?';
        at += std::max<std::size_t>(length, 1);
    }
    return result;
}

std::string LastFailureText()
{
    return Narrow(XLastFailure().GetTextWithoutPath());
}

std::string ArchiveFailureText(const CXArchiveException& failure)
{
    return CauseText(kTextFirstArchiveCause + failure.GetCause());
}

Failure::Failure(std::string subject, const std::string& reason)
    : std::runtime_error(reason), m_subject(std::move(subject))
{
}

void WriteAll(CXFile& file, std::string_view bytes)
{
    constexpr std::size_t kLargestPiece = 1u << 30;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kLargestPiece)))
        file.Write(bytes.data(), static_cast<unsigned int>(std::min(bytes.size(), kLargestPiece)));
}

Output::Output() : m_file(CXFile::HandleFromDescriptor(kStandardOutput), true), m_hasStyles(HasColours(kStandardOutput))
{
    m_isFiltered = IsTerminal(kStandardOutput);
    m_file.SetBufferSize(kOutputBufferSize);
    m_file.SetFilePath(L"standard output");
}

void Output::Write(std::string_view text)
{
    if (m_isFiltered)
        WriteBytes(PrintableText(text));
    else
        WriteBytes(text);
}

void Output::WriteStyled(const char* style, std::string_view text)
{
    if (m_hasStyles)
        WriteBytes("\033[" + std::string(style) + "m");
    Write(text);
    if (m_hasStyles)
        WriteBytes("\033[0m");
}

bool HasColours(int descriptor)
{
    const char* const none = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return IsTerminal(descriptor) && (none == nullptr || *none == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

void Output::WriteBytes(std::string_view bytes)
{
    try
    {
        WriteAll(m_file, bytes);
    }
    catch (...)
    {
        m_broken = true;
        throw;
    }
}

void Output::Flush()
{
    try
    {
        if (!m_broken)
            m_file.Flush();
    }
    catch (...)
    {
        m_broken = true;
        throw;
    }
}

void Report(Session& session, const std::string& subject, const std::string& text)
{
    Attempt(session, subject, [&] { session.m_output.Flush(); });
    const std::string line = subject + ": " + text + "\n";
    const char* const start = HasColours(kStandardError) ? "\033[1;31mtev:\033[0m " : "tev: ";
    WriteError(start + (session.m_isRaw || !IsTerminal(kStandardError) ? line : PrintableText(line)));
}

bool Attempt(Session& session, const std::string& subject, const std::function<void()>& work)
{
    try
    {
        work();
        return true;
    }
    catch (...)
    {
        session.m_exitCode = kExitFailed;
        ReportCurrentException(session, subject);
        return false;
    }
}

void AttemptEach(Session& session, const std::vector<std::string>& names,
                 const std::function<void(const std::string&)>& work)
{
    const std::vector<std::string> standardInput = {kStandardStream};
    for (const std::string& name : names.empty() ? standardInput : names)
    {
        if (!session.m_output.IsBroken())
            Attempt(session, name, [&] { work(name); });
    }
}

} // namespace tev::tool
