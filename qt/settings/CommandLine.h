#pragma once

#include <QString>
#include <QStringList>

namespace tev::browser
{
/// What the command line asks for: a text to print and the exit code, or a preference file or key to open.
struct CommandLine
{
    bool m_isOver = false;
    int m_exitCode = 0;
    QString m_text;
    QString m_target; ///< empty for the registry
    bool m_isKey = false;
};
CommandLine ParseCommandLine(const QStringList& arguments);
/// Why it cannot be opened; empty where it can.
QString CheckTarget(const CommandLine& line);
} // namespace tev::browser
