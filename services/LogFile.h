#pragma once

#include "text/CXTString.h"
#include "text/CheckedFormat.h"

#include <type_traits>

// The diagnostic log of the process, a UTF-16 text file. A message is in the file when the call that wrote it returns,
// so that the log is complete after a crash. Line ends are part of the message; times and levels are added on request only.
// Safe from several threads at once; messages of different threads never mix.
//
// The level word: bits 0 to 7 are the threshold, up to which messages with a level are written and threads may be
// indented; bit 8 switches the log off; bit 9 makes WriteToLogFile do nothing.

/// What SetLogFile does with an existing file.
enum LogFileMode : int
{
    xLogCreate = 0, ///< replaces it
    xLogAppend = 1, ///< appends to it
    xLogNumber = 2  ///< keeps it and takes the next numbered name
};

/// What SetLogPrefix puts before messages.
enum LogPrefix : unsigned int
{
    xLogNoPrefix = 0,
    xLogPrefixTime = 1,   ///< when it is written, in UTC with milliseconds
    xLogPrefixThread = 2, ///< the system's identifier of the thread
    xLogPrefixLevel = 4   ///< the level of the call; - without one
};

constexpr unsigned int xLogOff = 0x100;
constexpr unsigned int xLogMute = 0x200;

/// Opens the log and writes a header. A path without a folder is placed in the application's data folder of this user.
/// `level` becomes the level word, also when the file cannot be opened or the mode is unknown; then nothing else
/// changes and the result is false. False, with nothing changed, when a log is open already. XLastFailure() says why.
TEVTOOLS_API bool SetLogFile(const CXTString<wchar_t>& path, LogFileMode mode, unsigned int level);
/// Closes the log and deletes the indentation of every thread. False when none was open.
TEVTOOLS_API bool CloseLogFile();
/// Replaces the level word, initially 0xFF, and returns the previous one. Closing the log keeps it.
TEVTOOLS_API unsigned int SetLogLevel(unsigned int level) noexcept;
/// Chooses what stands before each line that a message begins, so that viewers can filter: "[2026-11-22T13:45:10.123Z
/// 4711 L2] ", with the chosen LogPrefix bits in this order. Off at first. Empty lines, and what continues a line, get
/// none. Returns the previous choice.
TEVTOOLS_API unsigned int SetLogPrefix(unsigned int parts) noexcept;
/// Whether messages of the calling thread are written: the log is on and open, and the thread is not indented beyond
/// the threshold. A muted log (bit 9) counts as open.
[[nodiscard]] TEVTOOLS_API bool IsLogFileEnabled();

/// Appends a message as CXTString::Format makes it; an empty one when that fails. Nothing when no log is open or the
/// thread is indented beyond the threshold. The message is indented by the tabs of the main thread where that one has
/// some, else by those of the calling thread. Throws CXFileException when it cannot be written.
TEVTOOLS_API void WriteToLogFile(const wchar_t* format, ...);
TEVTOOLS_API void WriteToLogFile(const char* format, ...);
/// As above, unless the level is above the threshold, which costs next to nothing.
TEVTOOLS_API void WriteToLogFile(unsigned int level, const wchar_t* format, ...);
TEVTOOLS_API void WriteToLogFile(unsigned int level, const char* format, ...);

namespace tev
{
/// The character type of what is given as a format; void where it is none.
template <class Format>
using FormatCharacter =
    std::conditional_t<std::is_convertible_v<const Format&, const wchar_t*>, wchar_t,
                       std::conditional_t<std::is_convertible_v<const Format&, const char*>, char, void>>;

template <class Format, class... Arguments>
using IfFormatsObjects =
    std::enable_if_t<!std::is_void_v<FormatCharacter<Format>> && !(kIsScalarArgument<Arguments> && ...), int>;
} // namespace tev

/// With texts of the format's width among the arguments, as CXTString::Format takes them.
template <class Format, class... Arguments, tev::IfFormatsObjects<Format, Arguments...> = 0>
void WriteToLogFile(const Format& format, const Arguments&... arguments)
{
    using Character = tev::FormatCharacter<Format>;
    tev::RequireFormatArguments<Character, Arguments...>();
    WriteToLogFile(static_cast<const Character*>(format), tev::PassedArgument<Arguments>(arguments).Get()...);
}
template <class Format, class... Arguments, tev::IfFormatsObjects<Format, Arguments...> = 0>
void WriteToLogFile(unsigned int level, const Format& format, const Arguments&... arguments)
{
    using Character = tev::FormatCharacter<Format>;
    tev::RequireFormatArguments<Character, Arguments...>();
    WriteToLogFile(level, static_cast<const Character*>(format), tev::PassedArgument<Arguments>(arguments).Get()...);
}
/// With a format that is checked while compiling, X_FORMAT("%s: %d").
template <class Literal, class... Arguments>
void WriteToLogFile(tev::CheckedFormat<Literal> format, const Arguments&... arguments)
{
    format.template Require<std::remove_pointer_t<decltype(Literal::Text())>, Arguments...>();
    WriteToLogFile(Literal::Text(), tev::PassedArgument<Arguments>(arguments).Get()...);
}
template <class Literal, class... Arguments>
void WriteToLogFile(unsigned int level, tev::CheckedFormat<Literal> format, const Arguments&... arguments)
{
    format.template Require<std::remove_pointer_t<decltype(Literal::Text())>, Arguments...>();
    WriteToLogFile(level, Literal::Text(), tev::PassedArgument<Arguments>(arguments).Get()...);
}

/// Indents the messages of the calling thread by one tab more or less. Returns the number of its tabs, 0 when no log is
/// open. Throws where there is no memory for one more, and leaves the tabs as they are.
TEVTOOLS_API unsigned int LogFileAddTab(bool add);

/// Takes the log's lock, or releases it, so that several messages are written together; it is recursive. A thread that
/// holds it must release it before it waits for anything that another thread does (WaitForEnd, WaitEndOfThreads, a
/// parallel loop, a lock that others hold while they log), suspends or terminates a thread, calls functions of crash
/// reports, or shows something to the user. The library never suspends nor terminates a thread while it holds the lock.
TEVTOOLS_API void LogLock(bool lock);

/// Holds the log's lock while it exists: see LogLock. Destroyed on its thread.
class CXLogLock
{
public:
    CXLogLock() { LogLock(true); }
    ~CXLogLock() { LogLock(false); }
    CXLogLock(const CXLogLock&) = delete;
    CXLogLock& operator=(const CXLogLock&) = delete;
};

/// Indents the messages of its thread by one tab while it exists; not where no log is open when it is made.
class CXLogTab
{
public:
    CXLogTab() : m_isAdded(LogFileAddTab(true) != 0) {}
    ~CXLogTab()
    {
        if (m_isAdded)
            LogFileAddTab(false);
    }
    CXLogTab(const CXLogTab&) = delete;
    CXLogTab& operator=(const CXLogTab&) = delete;

private:
    const bool m_isAdded;
};
