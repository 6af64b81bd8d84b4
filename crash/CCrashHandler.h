#pragma once

#include "arrays/CXArray.h"
#include "text/CXTString.h"
#include "ui/XReportFile.h"

#include <memory>
#include <vector>

namespace tev
{
struct CrashRecord;
class PrivateFolder;
} // namespace tev
namespace tev::platform
{
struct PreviousSignals;
}

/// The system's description of a fault: on Windows its own record of this name, elsewhere pointers to the two records that
/// a signal handler gets (siginfo_t and ucontext_t). The caller owns those.
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

/// What a hook reports.
struct _CR_EXCEPTION_INFO
{
    unsigned short cb = 64;
    _EXCEPTION_POINTERS* pexcptrs = nullptr; ///< null when the hook has none
    unsigned int exctype = xCrashException;
    unsigned int code = 0;               ///< of a floating-point signal: the system's number of the error
    const wchar_t* expression = nullptr; ///< this and the following: of an invalid parameter only
    const wchar_t* function = nullptr;
    const wchar_t* file = nullptr;
    unsigned int line = 0;
};

enum _HandlerCrashMode : unsigned int
{
    xCrashReport = 1, ///< of a crash: with a dump
    xFilesReport = 2  ///< of files that caused trouble
};

// The flags of a handler: the mode in the low byte, and these.

constexpr unsigned int xCrashWithoutPointers = 0x200; ///< the report was made without exception pointers
constexpr unsigned int xCrashNoCallback = 0x400;      ///< the callback is not called

/// Catches fatal conditions of the process and makes a report of each: a ZIP archive with a dump, the log and the files that
/// the host has registered, which the user may mail or save. A process has at most one handler; CrashInstall creates it. In
/// a process with a sanitizer, the signals that the sanitizer reports itself are not hooked.
///
/// After a crash the callback and the user interface are called on a thread of the handler, because the crashed thread may
/// hold any lock: a callback must not take a lock that another thread may hold. A call that does not return within some
/// seconds is abandoned, and the report is made without it, by another process where possible; see docs/crash-reports.md.
/// XLastFailure() says why a report could not be made, saved or mailed.
/// Safe from several threads at once: all but the statics wait while a report is made.
class TEVTOOLS_API CCrashHandler
{
public:
    /// Replaces an earlier handler of this process and takes over its hooks.
    CCrashHandler(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2, unsigned int flags);
    CCrashHandler(const CCrashHandler&) = delete;
    CCrashHandler& operator=(const CCrashHandler&) = delete;
    /// Restores the handlers that were there before the hooks.
    virtual ~CCrashHandler();

    /// The callback returns 0 when no report is to be made. It must not uninstall the handler.
    void SetCallback(int (*callback)(CCrashHandler*));
    void SetFlags(unsigned int flags);
    unsigned int GetFlags() const;
    _HandlerCrashMode GetMode() const;
    /// The application's name and version, for the dialogs and the mail's subject.
    void SetText(const wchar_t* text1, const wchar_t* text2);
    /// Adds files to all later reports. A file is read when a report is made; one that cannot be read then, or is too large,
    /// is left out.
    void AddFiles(const CXArray<CXTString<wchar_t>>& files);
    /// In bytes; smaller files go into a report.
    static unsigned __int64 GetFileSizeLimit() { return 0x600000; }

    /// Installs the per-thread hooks on the calling thread, or removes them. Return 1, or 0 when there was nothing to do.
    int SetThreadCPPExceptionHandlers();
    int UnSetThreadCPPExceptionHandlers();

    /// Makes a report in a process that still works. Flags other than 0 replace the handler's. Returns 1 when a report was
    /// made, 0 when the callback refused it or no archive could be written. Nothing is thrown.
    int ExceptionOccurs(_CR_EXCEPTION_INFO* info, unsigned int flags);

protected:
    int SetProcessCPPExceptionHandlers();
    int UnSetProcessCPPExceptionHandlers();
    void InitPrevCPPExceptionHandlerPointers();

    /// Shows the report to the user. True when it was handed to the mail program.
    bool GenerateErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>& files);
    /// As above for a files report; a null list is an invalid argument.
    bool GenerateFilesErrorReport(const wchar_t* archivePath, const std::vector<XReportFile>* files);
    /// Lets the user choose another path for the archive, and moves it there. False when it stays.
    bool SaveReport(const wchar_t* archivePath);
    /// These take paths of the standard library, too.
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool SaveReport(const Path& archivePath)
    {
        return SaveReport(CXTString<wchar_t>(archivePath).GetConstBuffer());
    }
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool GenerateErrorReport(const Path& archivePath, const std::vector<XReportFile>& files)
    {
        return GenerateErrorReport(CXTString<wchar_t>(archivePath).GetConstBuffer(), files);
    }
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool GenerateFilesErrorReport(const Path& archivePath, const std::vector<XReportFile>* files)
    {
        return GenerateFilesErrorReport(CXTString<wchar_t>(archivePath).GetConstBuffer(), files);
    }
    template <class Path, tev::IfPathArgument<Path> = 0>
    bool MailReport(const Path& archivePath, const wchar_t* userAddress, const wchar_t* description)
    {
        return MailReport(CXTString<wchar_t>(archivePath).GetConstBuffer(), userAddress, description);
    }
    /// True when the mail was handed over.
    bool MailReport(const wchar_t* archivePath, const wchar_t* userAddress, const wchar_t* description);
    /// Creates exception pointers from the current registers. They are valid until the next call or the end of the handler.
    bool GetExceptionPointers(unsigned long code, _EXCEPTION_POINTERS** pointers);

private:
    friend struct CrashHandlerAccess;
    using RunTimeHook = void (*)();
    using SignalSlot = std::shared_ptr<const tev::platform::PreviousSignals>;

    bool MakeReport(_CR_EXCEPTION_INFO& info, bool isCrash);
    /// Asks the callback.
    bool IsWanted();
    /// The parts of a report that is made now; `written` is what a crash has left on the disk, or null. Names and folders are
    /// those of this moment also after a crash.
    /// What is written for the record alone lies in the folder.
    tev::CrashRecord RecordOfReport(const _CR_EXCEPTION_INFO& info, const tev::CrashRecord* written, bool hasPointers,
                                    std::unique_ptr<tev::PrivateFolder>& folder);
    CXTString<wchar_t> ApplicationText() const;
    /// Asks the user about a report, and does what the answer says.
    bool Offer(const wchar_t* archivePath, const CXTString<wchar_t>& introduction,
               const std::vector<XReportFile>& files);
    void NotifyToMailByHand(const wchar_t* archivePath) const;
    void TakeOver(CCrashHandler& earlier);
    /// The parts of a report as they are now.
    tev::CrashRecord RecordOfNow() const;
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

/// Installs the process's handler. An existing one gets the new callback, texts and flags; the low byte of the flags is the
/// mode. A report that an earlier run could not finish is finished now, and the user is asked about it, and about one in whose
/// question that run was ended, where the host has set its user interface and that can ask now (CUserInterface::CanAsk).
/// Nothing is thrown.
TEVTOOLS_API void CrashInstall(int (*callback)(CCrashHandler*), const wchar_t* text1, const wchar_t* text2,
                               unsigned int flags);
/// As CrashInstall does with a handler that exists and can ask the user now: finishes the reports of earlier runs and asks about
/// them. For user interfaces that could not ask before; does nothing without a handler. Nothing is thrown.
TEVTOOLS_API void XOfferLeftReports();
/// The process's handler, or null.
TEVTOOLS_API CCrashHandler* CrashGetHandler();
/// Deletes the handler and restores the handlers that were there before its hooks, those of all threads included.
TEVTOOLS_API void CrashUninstall();

/// Install the per-thread hooks on the calling thread, with an alternate stack for signal handlers where it has none; or
/// remove both. Do nothing without a handler. A thread without them is covered by the hooks of the process only.
TEVTOOLS_API void CrashThreadInstall();
TEVTOOLS_API void CrashThreadUninstall();

/// Makes a crash report now, on the calling thread, whose pending exception is deleted unless the callback refuses the
/// report. The pointers may be null. Does nothing without a handler.
TEVTOOLS_API void CrashGenerateErrorReport(_EXCEPTION_POINTERS* pointers, bool noCallback);
/// As above for a files report; the files are added to the handler's list as by AddFiles, and stay there.
TEVTOOLS_API void CrashGenerateFilesErrorReport(const CXArray<CXTString<wchar_t>>& files, _EXCEPTION_POINTERS* pointers,
                                                bool noCallback);

/// Writes one line to the error output for each report that stays on the disk, with its path, and for a pure virtual call
/// without handler. Off by default. In a crash nothing is allocated for it. Safe from several threads at once.
TEVTOOLS_API void XSetCrashErrorOutput(bool isOn);

/// Has the reports of crashes shown by a program of its own, tev-crash-dialog, because no window can be shown in a crashed
/// process; a host's AskAboutReport is asked only about reports of a process that goes on. The report is finished when that
/// program starts: nothing waits for it. Without a display, or that program, the report stays where it is. Off by default; a
/// CQtUserInterface turns it on. It speaks the language that was set when this, or a text of the handler, was set last. Safe
/// from several threads at once.
TEVTOOLS_API void XSetCrashDialog(bool isOn);

/// The address of technical support, to which reports are mailed: a message text, until a host sets another. An empty text
/// restores the default. Setting it waits for a report that another thread makes. Safe from several threads at once.
TEVTOOLS_API CXTString<wchar_t> XGetSupportAddress();
TEVTOOLS_API void XSetSupportAddress(const CXTString<wchar_t>& address);
