#pragma once

#include "arrays/CXArray.h"
#include "text/CXTString.h"
#include "ui/XReportFile.h"

#include <memory>
#include <vector>

namespace tev::platform
{
struct PreviousSignals;
}

/// What the system knows of the moment of a fault: on Windows its own record of this name, elsewhere the two records that
/// it hands to a signal handler (siginfo_t and ucontext_t), which stay the caller's.
struct _EXCEPTION_POINTERS
{
    const void* m_signalInfo;
    const void* m_context;
};

/// Which hook reports a crash.
enum XCrashType : unsigned int
{
    xCrashException = 0, ///< an unhandled exception of the system: a fatal signal that has no type of its own
    xCrashTerminate = 1,
    xCrashUnexpected = 2,
    xCrashPureCall = 3,
    xCrashNoMemory = 4,
    xCrashInvalidParameter = 6,
    xCrashAbort = 7,
    xCrashFloatingPoint = 8,
    xCrashIllegalInstruction = 9,
    xCrashInterrupt = 10,
    xCrashSegmentViolation = 11,
    xCrashTermination = 12
};

/// What a hook knows of what happened.
struct _CR_EXCEPTION_INFO
{
    unsigned short cb = 64;
    _EXCEPTION_POINTERS* pexcptrs = nullptr; ///< null when the hook has none
    unsigned int exctype = xCrashException;
    unsigned int code = 0; ///< of a floating-point signal: which operation went wrong, as the system numbers it
    const wchar_t* expression = nullptr; ///< this and the rest: of an invalid parameter only
    const wchar_t* function = nullptr;
    const wchar_t* file = nullptr;
    unsigned int line = 0;
};

enum _HandlerCrashMode : unsigned int
{
    xCrashReport = 1, ///< something went wrong in the program: with a dump
    xFilesReport = 2  ///< something was wrong with files
};

// The flags of a handler: the mode in the low byte, and these.

constexpr unsigned int xCrashWithoutPointers = 0x200; ///< the report was made without exception pointers
constexpr unsigned int xCrashNoCallback = 0x400;      ///< the callback is not called

/// Catches what would end the process, and makes a report of it: a ZIP archive with a dump, the log and the files that the
/// host has registered, which the person may mail or save. A process has at most one; CrashInstall makes it. On the signals
/// of a process that a sanitizer watches, no hook is set.
///
/// For a crash the callback and the user interface are called on a thread that waits for that, because the crashed one may
/// hold anything: a callback takes no lock that another thread may have. What does not come back within some seconds is
/// given up, and the report is made without it, by another process where there is one; see docs/crash-reports.md.
/// Safe from several threads at once: all but the statics wait while a report is made.
class TEVTOOLS_API CCrashHandler
{
public:
    /// Takes the place of an earlier handler of this process, and its hooks.
    CCrashHandler(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2, unsigned int flags);
    CCrashHandler(const CCrashHandler&) = delete;
    CCrashHandler& operator=(const CCrashHandler&) = delete;
    /// Puts back what stood in the places of the hooks.
    virtual ~CCrashHandler();

    /// The callback says whether a report is made: 0 for no. It leaves the handler installed.
    void SetCallback(int (*callback)(CCrashHandler*));
    void SetFlags(unsigned int flags);
    unsigned int GetFlags() const;
    _HandlerCrashMode GetMode() const;
    /// The application's name and version, for the person and the mail's subject.
    void SetText(const wchar_t* text1, const wchar_t* text2);
    /// Registers files for all reports to come. A file is looked at when a report is made; one that cannot be read then, or
    /// is too large, is left out.
    void AddFiles(const CXArray<CXTString<wchar_t>>& files);
    /// In bytes; files below it go into a report.
    static unsigned __int64 GetFileSizeLimit() { return 0x600000; }

    /// Sets the hooks that hold for single threads on the calling one, or takes them back: 1, or 0 when that was done
    /// before.
    int SetThreadCPPExceptionHandlers();
    int UnSetThreadCPPExceptionHandlers();

    /// Makes a report in a process that can still do so. Flags other than 0 replace the handler's. Answers 1 when a report
    /// was made, 0 when the callback did not want one or nothing could be gathered. Nothing is thrown.
    int ExceptionOccurs(_CR_EXCEPTION_INFO* info, unsigned int flags);

protected:
    int SetProcessCPPExceptionHandlers();
    int UnSetProcessCPPExceptionHandlers();
    void InitPrevCPPExceptionHandlerPointers();

    /// Shows the report to the person. True when it was handed to the mail program.
    bool GenerateErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>& files);
    /// As above for a files report; null for the files is an invalid argument.
    bool GenerateFilesErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>* files);
    /// Lets the person choose another place for the archive, and moves it there. False when it stays.
    bool SaveReport(const wchar_t* archivePath);
    /// True when the mail was handed over.
    bool MailReport(const wchar_t* archivePath, const wchar_t* userAddress, const wchar_t* description);
    /// Makes exception pointers out of the registers of this moment. They live until the next call and the handler's end.
    bool GetExceptionPointers(unsigned long code, _EXCEPTION_POINTERS** pointers);

private:
    friend struct CrashHandlerAccess;
    using RunTimeHook = void (*)();
    using SignalSlot = std::shared_ptr<const tev::platform::PreviousSignals>;

    bool MakeReport(_CR_EXCEPTION_INFO& info, bool isCrash);
    CXTString<wchar_t> ApplicationText() const;
    /// Asks the person about a report, and does what the answer says.
    bool Offer(const wchar_t* archivePath, const CXTString<wchar_t>& introduction,
               const std::vector<XReportFile>& files);
    void TellToMailByHand(const wchar_t* archivePath) const;
    void TakeOver(CCrashHandler& earlier);
    void PublishTraces() const;

    SignalSlot m_previousFilter;
    RunTimeHook m_previousPureCall = nullptr;
    RunTimeHook m_previousNew = nullptr;
    void (*m_previousInvalidParameter)(const char*, int) = nullptr;
    SignalSlot m_previousAbort;
    SignalSlot m_previousInterrupt;
    SignalSlot m_previousTermination;
    RunTimeHook m_previousTerminate = nullptr;
    RunTimeHook m_previousUnexpected = nullptr;
    SignalSlot m_previousFloatingPoint;
    SignalSlot m_previousIllegalInstruction;
    SignalSlot m_previousSegmentViolation;
    int (*m_callback)(CCrashHandler*);
    int m_processId;
    std::vector<XReportFile> m_files;
    CXTString<wchar_t> m_text1;
    CXTString<wchar_t> m_text2;
    unsigned int m_flags;

    bool m_hasProcessHooks = false;
    int m_hookedThreads = 0;
    std::unique_ptr<unsigned char[]> m_pointers; ///< what GetExceptionPointers made
};

/// Installs the process's handler. When there is one already it takes the callback, the texts and the flags, of which the
/// low byte is the mode. A report that an earlier run could not finish is finished now. Nothing is thrown.
TEVTOOLS_API void CrashInstall(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2,
                               unsigned int flags);
/// The process's handler, or null.
TEVTOOLS_API CCrashHandler* CrashGetHandler();
/// Deletes the handler and puts back what stood in the places of its hooks. Threads with hooks of their own lose them.
TEVTOOLS_API void CrashUninstall();

/// Sets the hooks of single threads on the calling one, and gives it a stack for signal handlers where it has none; or
/// takes both back. Do nothing without a handler. A thread without is covered by the hooks of the process only.
TEVTOOLS_API void CrashThreadInstall();
TEVTOOLS_API void CrashThreadUninstall();

/// Makes a crash report now, on the calling thread, whose pending exception is deleted. The pointers may be null. Does
/// nothing without a handler.
TEVTOOLS_API void CrashGenerateErrorReport(_EXCEPTION_POINTERS* pointers, bool noCallback);
/// As above for a files report; the files are in this one only.
TEVTOOLS_API void CrashGenerateFilesErrorReport(const CXArray<CXTString<wchar_t>>& files, _EXCEPTION_POINTERS* pointers,
                                                bool noCallback);

/// The address of technical support, which reports are mailed to: a message text, until a host chooses another. Empty
/// takes the choice back. Safe from several threads at once.
TEVTOOLS_API CXTString<wchar_t> XGetSupportAddress();
TEVTOOLS_API void XSetSupportAddress(const CXTString<wchar_t>& address);
