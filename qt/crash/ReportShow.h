#pragma once

#include "crash/CCrashHandler.h"

#include <QStringList>

namespace tev
{
/// What the program is started with: what the handler of the application that crashed had.
struct ReportOfCrash
{
    CPathString m_archive;
    CXTString<wchar_t> m_name; ///< of the application that crashed
    CXTString<wchar_t> m_version;
    CXTString<wchar_t> m_support;  ///< the address of technical support
    CXTString<wchar_t> m_language; ///< "fr" for French
    CXTString<wchar_t> m_product;  ///< the application's name in file names
    CPathString m_log;             ///< the name of the log in the archive
    unsigned m_flags = xCrashReport;
    std::vector<XReportFile> m_files; ///< those of the application, where it had them
};

/// The path of the archive and options with their values, none of which is one of Qt itself. False for other arguments.
bool ParseArguments(const QStringList& arguments, ReportOfCrash& report);

/// Shows the report to the person and does what the answer is, in an event loop. An archive that was mailed is deleted; all
/// others stay. False when there is no report at the path.
bool ShowReportOfCrash(const ReportOfCrash& report);
} // namespace tev
