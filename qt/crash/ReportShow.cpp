#include "qt/crash/ReportShow.h"

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
        : CCrashHandler(nullptr, report.m_name, report.m_version, report.m_flags | xCrashNoCallback)
    {
    }
    bool AskAbout(const tev::ReportOfCrash& report)
    {
        return GetMode() == xCrashReport ? GenerateErrorReport(report.m_archive, report.m_files)
                                         : GenerateFilesErrorReport(report.m_archive, &report.m_files);
    }
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
    std::vector<XReportFile> Files(const tev::ReportOfCrash& report) const
    {
        std::vector<XReportFile> files;
        const QString product = XToQString(report.m_product);
        const bool isCrash = (report.m_flags & 0xFF) == xCrashReport;
        const QDir folder(XToQString(m_folder));
        for (const QString& name : folder.entryList(QDir::Files | QDir::Hidden, QDir::Name))
        {
            const bool isDump = isCrash && (product.isEmpty() ? name.endsWith(QStringLiteral(".dmp"))
                                                              : name == product + QStringLiteral(".dmp"));
            const QString about = isDump ? XInLanguage(u"Memory dump", u"Vidage mémoire")
                                  : isCrash && name == product + QStringLiteral(".txt")
                                      ? XInLanguage(u"Details of the error", u"Détails de l'erreur")
                                  : name == XToQString(report.m_log) ? XInLanguage(u"Error log", u"Journal d'erreur")
                                                                     : QString();
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

/// Shows what is in the archive in the place of the files that were packed, which may have changed since.
class ReportWindows : public CQtUserInterface
{
public:
    explicit ReportWindows(std::vector<XReportFile> files) : m_files(std::move(files)) {}
    XReportAnswer AskAboutReport(const Text& introduction, const std::vector<XReportFile>&) override
    {
        return CQtUserInterface::AskAboutReport(introduction, m_files);
    }

private:
    const std::vector<XReportFile> m_files;
};

bool OfferReport(const tev::ReportOfCrash& report)
{
    const UnpackedReport unpacked(report.m_archive);
    if (!unpacked.IsUnpacked())
        return false;
    ReportWindows windows(unpacked.Files(report));
    XSetCrashDialog(false); // a crash of this program is not shown by another one
    CUserInterface* const before = XSetUserInterface(&windows);
    {
        Reporter reporter(report);
        if (reporter.AskAbout(report))
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
                                                           {QStringLiteral("--language"), &ReportOfCrash::m_language},
                                                           {QStringLiteral("--product"), &ReportOfCrash::m_product}};
    bool isRight = true;
    for (qsizetype i = 1; isRight && i < arguments.size(); ++i)
    {
        const QString& word = arguments[i];
        if (!word.startsWith(u'-'))
        {
            isRight = report.m_archive.IsEmpty();
            report.m_archive = XFromQString(word);
            continue;
        }
        if (++i == arguments.size())
            return false;
        const Text value = XFromQString(arguments[i]);
        if (const auto option = options.find(word); option != options.end())
            report.*option.value() = value;
        else if (word == u"--log")
            report.m_log = value;
        else if (word == u"--file")
            report.m_files.push_back({value, {}});
        else if (word == u"--flags")
            report.m_flags = arguments[i].toUInt(&isRight);
        else
            return false;
    }
    return isRight && !report.m_archive.IsEmpty();
}

bool ShowReportOfCrash(const ReportOfCrash& report)
{
    if (!report.m_language.IsEmpty())
        XSetLanguage(report.m_language == L"fr" ? XLanguage::French : XLanguage::English);
    XSetSupportAddress(report.m_support);
    try
    {
        const Text& name = report.m_product.IsEmpty() ? report.m_name : report.m_product;
        if (!name.IsEmpty())
            XSetApplicationName(name);
        return OfferReport(report);
    }
    catch (CXException* exception)
    {
        exception->Delete();
        return false;
    }
}
} // namespace tev
