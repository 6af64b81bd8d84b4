// Step 8: when the program crashes, a report is made, and the person is asked what becomes of it.
// usage: step8 [FOLDER] [crash]

#include "examples/tutorial/Model.h"

#include <cstdio>
#include <stdexcept>

namespace
{
/// A window would ask; this one says where the report is.
class CReportTeller : public CUserInterface
{
public:
    XReportAnswer AskAboutReport(const CXTString<wchar_t>& introduction, const std::vector<XReportFile>& files) override
    {
        std::printf("%s\n", CXTString<char>(introduction).GetConstBuffer());
        for (const XReportFile& file : files)
            std::printf("  %s\n", CXTString<char>(file.m_path.GetFileName()).GetConstBuffer());
        m_isAsked = true;
        return {}; // it stays where it is
    }

    bool m_isAsked = false;
};

int ReportEachCrash(CCrashHandler*)
{
    return 1;
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    XSetApplicationName(L"viewer");
    SetLogFile(L"viewer.log", xLogAppend, 0xFF);
    CReportTeller teller;
    XSetUserInterface(&teller);
    CrashInstall(ReportEachCrash, L"Viewer", L"1.0", xCrashReport);
    CrashThreadInstall(); // each thread of its own, at its start
    XSetCrashErrorOutput(true);

    const CPathString path = CPathString(argumentCount > 1 ? arguments[1] : ".") / L"pawn.obj";
    if (argumentCount > 2)
        throw std::runtime_error("the part has no material");
    CXArray<CXTString<wchar_t>> files;
    files.Add(path);
    CrashGenerateFilesErrorReport(files, nullptr, false); // of a file that gives trouble, without a crash

    CrashThreadUninstall();
    CrashUninstall();
    XSetUserInterface(nullptr);
    CloseLogFile();
    return teller.m_isAsked ? 0 : 1;
}
