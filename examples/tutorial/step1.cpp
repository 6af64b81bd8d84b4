// Step 1: a program that starts, tells its log so, and ends.

#include <TevTools.h>

int main()
{
    InitFerngateApplication();
    XSetApplicationName(L"viewer");
    SetLogFile(L"viewer.log", xLogCreate, 0xFF);
    WriteToLogFile(L"started, up to %u threads in a loop\n", OMPGetMaxThreadCount());
    CloseLogFile();
}
