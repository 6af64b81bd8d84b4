// Installs the crash handler, and then crashes in the requested way; without one it makes reports without a crash.
// Crash reports are written to the folder of the application's common data, those without a crash to the current one.
// usage: crash [exception | overflow | segment-violation [worker]]

#include "TevTools.h"

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{
// Volatile, so that the compiler cannot remove the crash.
int* volatile g_nowhere = nullptr;

[[gnu::noinline]] void WriteNowhere()
{
    *g_nowhere = 1;
}

[[gnu::noinline]] int RecurseForEver(volatile int* above)
{
    volatile int here[256] = {};
    here[0] = *above;
    return here[0] == 1 ? 0 : RecurseForEver(here) + here[0];
}

void Crash(const std::string& way)
{
    volatile int start = 0;
    if (way == "exception")
        throw std::runtime_error("the part has no material");
    if (way == "overflow")
        start = RecurseForEver(&start);
    WriteNowhere();
}

// A worker thread installs its hooks at its start.
void CrashOnWorker(const std::string& way)
{
    std::thread worker([&way]() noexcept {
        CrashThreadInstall();
        Crash(way);
        CrashThreadUninstall();
    });
    worker.join();
}

// Decides whether a report is made.
int ReportEachCrash(CCrashHandler*)
{
    return 1;
}

// A host shows the report to the user. This one saves each in the current folder.
class KeepReports : public CUserInterface
{
public:
    XReportAnswer AskAboutReport(const CXTString<wchar_t>&, const std::vector<XReportFile>& files) override
    {
        std::cout << "a report with up to " << files.size() << " files\n";
        XReportAnswer answer;
        answer.m_save = true;
        return answer;
    }
    bool AskForSavePath(const CXTString<wchar_t>&, CPathString& path) override
    {
        path = CrashGetHandler()->GetMode() == xCrashReport ? L"crash-report.zip" : L"files-report.zip";
        return true;
    }
};

bool MakeReports(const char* folder)
{
    KeepReports host;
    XSetUserInterface(&host);
    CrashGenerateErrorReport(nullptr, false);
    CXArray<CXTString<wchar_t>> files;
    files.Add(CPathString(folder) / L"pawn.obj");
    CrashGenerateFilesErrorReport(files, nullptr, true);
    XSetUserInterface(nullptr);
    return fileIsFile(L"crash-report.zip") && fileIsFile(L"files-report.zip");
}
} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string way = argumentCount > 1 ? arguments[1] : "";
    SetLogFile(L"crash.log", xLogCreate, 0xFF);
    WriteToLogFile(L"about to crash\n");
    CrashInstall(ReportEachCrash, L"Crash", L"1.0", xCrashReport);
    XSetCrashErrorOutput(true); // where the report is

    if (way == "exception" || way == "overflow" || way == "segment-violation")
        argumentCount > 2 ? CrashOnWorker(way) : Crash(way);
    const bool hasReports = MakeReports(way.c_str());
    CrashUninstall();
    CloseLogFile();
    return hasReports ? 0 : 1;
}
