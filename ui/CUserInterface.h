#pragma once

#include "services/CPathString.h"
#include "text/CXTString.h"
#include "ui/XReportFile.h"
#include "values/CRGBColor.h"

#include <vector>

// Message texts for the columns of a host's report dialog; loaded with CXTString::LoadString.

constexpr unsigned int xTextReportName = 0xE10A;
constexpr unsigned int xTextReportDescription = 0xE10B;
constexpr unsigned int xTextReportSize = 0xE10C;
constexpr unsigned int xTextReportType = 0xE10D;

/// The user's answer to a report.
struct XReportAnswer
{
    bool m_send = false;              ///< hand it to the mail program
    bool m_save = false;              ///< save a copy elsewhere
    CXTString<wchar_t> m_mailAddress; ///< of the user, may be empty
    CXTString<wchar_t> m_description; ///< what the user was doing
};

/// A line of text in a colour of a theme.
struct XColoredLine
{
    CXTString<wchar_t> m_text; ///< without a line end
    bool m_hasColor = false;   ///< else the default text colour
    CRGBColor m_color;
};

/// The interface through which the library shows messages to the user and asks questions. A host derives a class,
/// overrides what it can show, and installs it with XSetUserInterface. The default implementations, also used without a
/// host's class, write messages to the open log and answer questions so that nothing changes.
///
/// The library calls these functions from any thread and holds none of its locks meanwhile, except the one that
/// serializes crash reports. They must not throw.
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

    /// Shows a text and waits until the user has read it.
    virtual void ShowMessage(Severity severity, const CXTString<wchar_t>& text);
    /// Asks a question; `safeAnswer` is the answer that changes nothing.
    virtual bool AskYesNo(const CXTString<wchar_t>& question, bool safeAnswer);
    /// Shows what a report will contain, with an introduction, and asks what to do with it.
    virtual XReportAnswer AskAboutReport(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files);
    /// Asks where to save a file; `path` is the proposed name and receives the answer. False when the user cancels.
    virtual bool AskForSavePath(const CXTString<wchar_t>& filter, CPathString& path);
    /// Shows a notification without waiting. The link, which may be empty, is opened when the user clicks it.
    virtual void Notify(const CXTString<wchar_t>& title, const CXTString<wchar_t>& text,
                        const CXTString<wchar_t>& link);
    /// Shows lines, in a window owned by `parent` if that is not null, and waits until the user has read them.
    virtual void ShowLines(const std::vector<XColoredLine>& lines, void* parent);
    /// Whether the background of texts is dark.
    virtual bool IsDarkTheme();
    /// Asks for the password of a file. False, and `password` is left, when the user gives none.
    virtual bool AskForPassword(const CPathString& file, CXTString<wchar_t>& password);
    /// Whether a question would be shown now; by default always. What can wait, such as reports of an earlier run, is asked
    /// later where it is false (XOfferLeftReports).
    virtual bool CanAsk();
};

/// The host's user interface, or the default one. Safe from several threads at once.
TEVTOOLS_API CUserInterface& XGetUserInterface() noexcept;

/// Installs the host's, null for none, and returns the previous one, null for none. It must outlive its replacement and
/// all calls that use it. Safe from several threads at once.
TEVTOOLS_API CUserInterface* XSetUserInterface(CUserInterface* userInterface) noexcept;
