#pragma once

#include "files/CXStdioFile.h"
#include "text/CXTString.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

class CXArchiveException;

// Common to all commands of the tool: exit codes, output, error messages.
// Names and texts are UTF-8 `std::string` for the user and the system, wide text for the library.
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

/// How many bytes the first character of a text that is not empty has; 0 where it is no UTF-8.
std::size_t CharacterLength(std::string_view text);

/// A name for one line of a terminal: characters that control it, and line ends, become '?'.
std::string Printable(const CXTString<wchar_t>& text);
/// UTF-8 text for a terminal: characters that control it or reverse the order of the text, and invalid bytes, become '?';
/// tabs and line ends stay.
std::string PrintableText(std::string_view text);

/// Why the library's last operation failed that answers false, without the name of the file.
std::string LastFailureText();
/// The library's message about the failure, without the name of the archive.
std::string ArchiveFailureText(const CXArchiveException& failure);

/// A failure that is no exception of the library.
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

/// Standard output, buffered: all of it has been written only after Flush.
class Output
{
public:
    Output();

    /// UTF-8 text. A terminal gets it printable, unless SetRaw was called.
    void Write(std::string_view text);
    /// The same, on a terminal in a style that ANSI escape sequences name, such as "1" for bold, unless the user wants none.
    void WriteStyled(const char* style, std::string_view text);
    void WriteBytes(std::string_view bytes);
    void Flush();
    void SetRaw() noexcept { m_isFiltered = false; }
    /// True after a failure to write: nothing more is worth doing.
    bool IsBroken() const noexcept { return m_broken; }

private:
    CXStdioFile m_file;
    bool m_broken = false;
    bool m_isFiltered;
    const bool m_hasStyles;
};

/// Whether a stream is a terminal whose user wants colours: the environment says NO_COLOR or a dumb terminal where not.
bool HasColours(int descriptor);

/// The state that commands share during a run of the tool.
struct Session
{
    Output m_output;
    int m_exitCode = kExitDone;
    bool m_isRaw = false; ///< terminals get what controls them, too
};

/// Prints "tev: subject: text" on the error output, after flushing the standard output, so that both appear in order.
void Report(Session& session, const std::string& subject, const std::string& text);

/// Does the work and reports what it throws, which also sets the exit code. Returns whether the work was done.
bool Attempt(Session& session, const std::string& subject, const std::function<void()>& work);

/// Does the work for each name, standard input when there is none. A failure does not stop the others, unless it was
/// the standard output that failed.
void AttemptEach(Session& session, const std::vector<std::string>& names,
                 const std::function<void(const std::string&)>& work);

} // namespace tev::tool
