#include "qt/crash/ReportShow.h"

#include "crash/CCrashHandler.h"
#include "objects/CXException.h"
#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/QtText.h"
#include "services/ApplicationName.h"
#include "services/Paths.h"
#include "text/Language.h"
#include "zip/CMiniZip.h"

#include <QDir>
#include <QHash>

#include <algorithm>

namespace
{
using Text = CXTString<wchar_t>;

/// Answers about reports as the handler of the application that crashed would have.
class Reporter : public CCrashHandler
{
public:
    explicit Reporter(const tev::ReportOfCrash& report)
        : CCrashHandler(nullptr, report.m_name, report.m_version, xCrashReport | xCrashNoCallback)
    {
    }
    using CCrashHandler::GenerateErrorReport;
};

/// The files of the report in a folder of their own, until the end of the object.
class UnpackedReport
{
public:
    explicit UnpackedReport(const CPathString& archive) : m_folder(fileCreateTemporaryFolder(L"Report"))
    {
        m_isUnpacked = m_zip.ExtractZip(archive, m_folder, false);
    }
    ~UnpackedReport() { QDir(XToQString(m_folder)).removeRecursively(); }
    UnpackedReport(const UnpackedReport&) = delete;
    UnpackedReport& operator=(const UnpackedReport&) = delete;

    bool IsUnpacked() const noexcept { return m_isUnpacked; }

    /// The dump first.
    std::vector<XReportFile> Files() const
    {
        std::vector<XReportFile> files;
        const QDir folder(XToQString(m_folder));
        for (const QString& name : folder.entryList(QDir::Files | QDir::Hidden, QDir::Name))
        {
            const bool isDump = name.endsWith(QStringLiteral(".dmp"));
            const QString about = isDump ? XInLanguage(u"Memory dump", u"Vidage mémoire") : QString();
            const XReportFile file = {XFromQString(folder.filePath(name)), XFromQString(about)};
            files.insert(isDump ? files.begin() : files.end(), file);
        }
        return files;
    }

private:
    const CPathString m_folder;
    CMiniZip m_zip;
    bool m_isUnpacked = false;
};

bool OfferReport(const tev::ReportOfCrash& report)
{
    const UnpackedReport unpacked(report.m_archive);
    if (!unpacked.IsUnpacked())
        return false;
    CQtUserInterface windows;
    XSetCrashDialog(false); // a crash of this program is not shown by another one
    CUserInterface* const before = XSetUserInterface(&windows);
    {
        Reporter reporter(report);
        if (reporter.GenerateErrorReport(report.m_archive, unpacked.Files()))
            QFile::remove(XToQString(report.m_archive));
    }
    XSetUserInterface(before);
    return true;
}
} // namespace

namespace tev
{
bool ParseArguments(const QStringList& arguments, ReportOfCrash& report)
{
    const QHash<QString, Text ReportOfCrash::*> options = {{QStringLiteral("--application"), &ReportOfCrash::m_name},
                                                           {QStringLiteral("--version"), &ReportOfCrash::m_version},
                                                           {QStringLiteral("--support"), &ReportOfCrash::m_support},
                                                           {QStringLiteral("--language"), &ReportOfCrash::m_language}};
    for (qsizetype i = 1; i < arguments.size(); ++i)
    {
        const auto option = options.find(arguments[i]);
        if (option == options.end())
        {
            if (!report.m_archive.IsEmpty() || arguments[i].startsWith(u'-'))
                return false;
            report.m_archive = XFromQString(arguments[i]);
        }
        else if (++i < arguments.size())
            report.*option.value() = XFromQString(arguments[i]);
        else
            return false;
    }
    return !report.m_archive.IsEmpty();
}

bool ShowReportOfCrash(const ReportOfCrash& report)
{
    if (!report.m_language.IsEmpty())
        XSetLanguage(report.m_language == L"fr" ? XLanguage::French : XLanguage::English);
    XSetSupportAddress(report.m_support);
    try
    {
        if (!report.m_name.IsEmpty())
            XSetApplicationName(report.m_name);
        return OfferReport(report);
    }
    catch (CXException* exception)
    {
        exception->Delete();
        return false;
    }
}
} // namespace tev
