#pragma once

#include "services/CPathString.h"
#include "text/CXTString.h"
#include "ui/XReportFile.h"
#include "values/CRGBColor.h"

#include <vector>

// Message texts for the columns of a host's dialog about a report; CXTString::LoadString gives them.

constexpr unsigned int xTextReportName = 0xE10A;
constexpr unsigned int xTextReportDescription = 0xE10B;
constexpr unsigned int xTextReportSize = 0xE10C;
constexpr unsigned int xTextReportType = 0xE10D;

/// What the person says to a report.
struct XReportAnswer
{
    bool m_send = false;              ///< hand it to the mail program
    bool m_save = false;              ///< keep it somewhere else
    CXTString<wchar_t> m_mailAddress; ///< of the person, may be empty
    CXTString<wchar_t> m_description; ///< what the person was doing
};

struct XColoredLine
{
    CXTString<wchar_t> m_text; ///< without a line end
    bool m_hasColor = false;   ///< else it has the usual colour of texts
    CRGBColor m_color;
};

/// The one way in which the library tells a person something or asks. A host derives a class from this one, answers what
/// it can, and installs it with XSetUserInterface. The functions below stand in for what it leaves out, and for a process
/// without a host's: messages go to the log where it is open, and questions get the answer that changes nothing.
///
/// The library calls these functions from any thread and holds none of its locks meanwhile, but for the one that keeps
/// crash reports apart. They must not throw.
class TEVTOOLS_API CUserInterface
{
public:
    enum class Severity
    {
        Information,
        Warning,
        Error
    };

    CUserInterface() = default;
    CUserInterface(const CUserInterface&) = delete;
    CUserInterface& operator=(const CUserInterface&) = delete;
    virtual ~CUserInterface();

    /// Shows a text and waits until it was read.
    virtual void ShowMessage(Severity severity, const CXTString<wchar_t>& text);
    /// Asks a question; `safeAnswer` is the one that changes nothing.
    virtual bool AskYesNo(const CXTString<wchar_t>& question, bool safeAnswer);
    /// Shows what a report will hold, with an introduction, and asks what to do with it.
    virtual XReportAnswer AskAboutReport(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files);
    /// Asks where to save a file; `path` holds the proposed name, and receives the answer. False: not at all.
    virtual bool AskForSavePath(const CXTString<wchar_t>& filter, CPathString& path);
    /// Shows a text for a while, without waiting. The link, which may be empty, is opened when the person asks for it.
    virtual void Notify(const CXTString<wchar_t>& title, const CXTString<wchar_t>& text,
                        const CXTString<wchar_t>& link);
    /// Shows lines, in a window before `parent` where that is not null, and waits until they were read.
    virtual void ShowLines(const std::vector<XColoredLine>& lines, void* parent);
    /// Whether texts stand on a dark ground.
    virtual bool IsDarkTheme();
};

/// The host's user interface, or the one that stands in for it. Safe from several threads at once.
TEVTOOLS_API CUserInterface& XGetUserInterface() noexcept;

/// Installs the host's, null for none, and returns the one before, null for none. It must stay until it is replaced and
/// nobody uses it any more. Safe from several threads at once.
TEVTOOLS_API CUserInterface* XSetUserInterface(CUserInterface* userInterface) noexcept;
