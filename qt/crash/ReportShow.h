#pragma once

#include "services/CPathString.h"

#include <QStringList>

namespace tev
{
/// What the program is started with.
struct ReportOfCrash
{
    CPathString m_archive;
    CXTString<wchar_t> m_name; ///< of the application that crashed
    CXTString<wchar_t> m_version;
    CXTString<wchar_t> m_support;  ///< the address of technical support
    CXTString<wchar_t> m_language; ///< "fr" for French
};

/// The options (none of which is one of Qt itself) --application, --version, --support, --language with their values, and the path of the archive. False for other
/// arguments.
bool ParseArguments(const QStringList& arguments, ReportOfCrash& report);

/// Shows the report to the person and does what the answer is, in an event loop. An archive that was mailed is deleted; all
/// others stay. False when there is no report at the path.
bool ShowReportOfCrash(const ReportOfCrash& report);
} // namespace tev
