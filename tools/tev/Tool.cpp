#include "tools/tev/Tool.h"

#include "objects/CXFileException.h"
#include "text/TextEncoding.h"
#include "tools/tev/System.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tev::tool
{
namespace
{
constexpr unsigned kTextFirstFileCause = 0xF1A0; // the library's message texts, one for each cause
constexpr unsigned kOutputBufferSize = 256 * 1024;

/// The library's message about a file. The subject before it names the path, so the message has the last component
/// only.
std::string FileFailureText(const CXFileException& failure)
{
    CXFile file;
    file.SetFilePath(failure.GetFileName());
    CXTString<wchar_t> text;
    text.Format(kTextFirstFileCause + failure.GetCause(), file.GetFileName().GetConstBuffer());
    return Narrow(text);
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
        Report(session, name.IsEmpty() ? subject : Narrow(name), FileFailureText(*failure));
        failure->Delete();
    }
    catch (CXException* failure)
    {
        Report(session, subject, failure->GetRuntimeClassDescriptor()->m_name);
        failure->Delete();
    }
    catch (const Failure& failure)
    {
        Report(session, failure.Subject(), failure.what());
    }
    catch (const std::bad_alloc&)
    {
        Report(session, subject, "not enough memory");
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

std::string Printable(const CXTString<wchar_t>& text)
{
    std::string result = Narrow(text);
    for (char& c : result)
        c = static_cast<unsigned char>(c) < ' ' || c == '\x7F' ? '?' : c;
    return result;
}

std::string JsonString(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text)
    {
        CXTString<char> escape;
        if (c == '"' || c == '\\')
            escape.Format("\\%c", c);
        else if (static_cast<unsigned char>(c) < 0x20)
            escape.Format("\\u%04x", c);
        else
            escape = c;
        quoted += escape.GetConstBuffer();
    }
    return quoted + "\"";
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

Output::Output() : m_file(CXFile::HandleFromDescriptor(kStandardOutput), true)
{
    m_file.SetBufferSize(kOutputBufferSize);
    m_file.SetFilePath(L"standard output");
}

void Output::Write(std::string_view bytes)
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
    WriteError("tev: " + subject + ": " + text + "\n");
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
