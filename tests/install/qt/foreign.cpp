#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/QtText.h"

// Without an application of Qt there are no windows, and a question gets the answer that changes nothing.
int main()
{
    CQtUserInterface ui;
    XSetUserInterface(&ui);
    const bool isSafe = XGetUserInterface().AskYesNo(L"Replace it?", true) && XToQString(L"a") == QStringLiteral("a");
    XSetUserInterface(nullptr);
    return isSafe ? 0 : 1;
}
