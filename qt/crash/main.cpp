// tev-crash-dialog: shows the report of a program that has crashed, in which no window can be shown any more.

#include "qt/crash/ReportShow.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"

#include <QApplication>
#include <QTimer>
#include <QWidget>

namespace
{
bool HasWindow()
{
    for (const QWidget* const window : QApplication::topLevelWidgets())
    {
        if (window->isVisible())
            return true;
    }
    return false;
}
} // namespace

int main(int argc, char** argv)
{
    tev::EndWithoutDisplay();
    QApplication application(argc, argv);
    tev::ReportOfCrash report;
    if (!tev::ParseArguments(QCoreApplication::arguments(), report))
        return 2;
    tev::SetUpProgram(QStringLiteral("tev-crash-dialog"), XToQString(report.m_name));
    QTimer::singleShot(0, &application, [&report] {
        const bool isShown = tev::ShowReportOfCrash(report);
        if (!isShown || !HasWindow()) // else a notification is to be read first
            QCoreApplication::exit(isShown ? 0 : 1);
    });
    return QApplication::exec();
}
