#pragma once

#include "files/CXStdioFile.h"
#include "text/CXTString.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// What every command of the tool stands on: its exit codes, its output, how it reports what failed.
// Names and texts are UTF-8 `std::string` towards the user and the system, wide text towards the library.
namespace tev::tool
{

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// How the user names standard input and output.
constexpr const char* kStandardStream = "-";

std::wstring Widen(const std::string& text);
std::string Narrow(const wchar_t* text, std::size_t length);
std::string Narrow(const CXTString<wchar_t>& text);

/// Text that comes from a file: a terminal gets none of its controls, and a line of output stays one.
std::string Printable(const CXTString<wchar_t>& text);

/// The text in quotes, as JSON writes it.
std::string JsonString(const std::string& text);

/// Something failed that is not the library's to report.
class Failure : public std::runtime_error
{
public:
    Failure(std::string subject, const std::string& reason);
    const std::string& Subject() const noexcept { return m_subject; }

private:
    std::string m_subject;
};

/// Writes any number of bytes.
void WriteAll(CXFile& file, std::string_view bytes);

/// Standard output, written in large pieces. What was written is sure to have gone out only after Flush.
class Output
{
public:
    Output();

    void Write(std::string_view bytes);
    void Flush();
    /// After a failure to write there is nobody left to work for.
    bool IsBroken() const noexcept { return m_broken; }

private:
    CXStdioFile m_file;
    bool m_broken = false;
};

/// What the commands share during one run of the tool.
struct Session
{
    Output m_output;
    int m_exitCode = kExitDone;
};

/// Prints "tev: subject: text" on the error output; the standard output goes out first, so that both stand in order.
void Report(Session& session, const std::string& subject, const std::string& text);

/// Does the work and reports what it throws; the session's exit code then says so. Returns whether the work was done.
bool Attempt(Session& session, const std::string& subject, const std::function<void()>& work);

/// Does the work for each name, standard input when there is none. One that fails does not keep the others from their
/// turn, unless it is the standard output that failed.
void AttemptEach(Session& session, const std::vector<std::string>& names,
                 const std::function<void(const std::string&)>& work);

} // namespace tev::tool
