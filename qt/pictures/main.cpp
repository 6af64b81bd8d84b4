// Makes the pictures of the documents: of the windows of a program, or of one of the library's dialogs.
//
// usage: tevtools_pictures PICTURE COMMAND [ARGUMENT]...
//        tevtools_pictures --show message|question|password|lines, each also as dark-...

#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/Theme.h"
#include "ui/CLogInfo.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QThread>
#include <QTimer>

namespace
{
constexpr int kLongestMs = 30000;
constexpr int kBetweenLooksMs = 100;
constexpr int kSettlingMs = 2000;

/// The part of the screen that is not its background.
QImage WithoutBackground(const QImage& screen)
{
    const QRgb background = screen.pixel(screen.width() - 1, screen.height() - 1);
    QRect used;
    for (int y = 0; y < screen.height(); ++y)
    {
        for (int x = 0; x < screen.width(); ++x)
        {
            if (screen.pixel(x, y) != background)
                used |= QRect(x, y, 1, 1);
        }
    }
    return used.isEmpty() ? QImage() : screen.copy(used);
}

/// What is on the screen when it no longer changes, but for a cursor that blinks; null when nothing comes.
QImage Settled()
{
    QElapsedTimer time;
    time.start();
    QElapsedTimer shown;
    for (QImage last; time.elapsed() < kLongestMs;)
    {
        QThread::msleep(kBetweenLooksMs);
        const QImage now = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        if (WithoutBackground(now).isNull())
            continue;
        if (!shown.isValid())
            shown.start();
        if (now == last && shown.elapsed() >= kSettlingMs)
            return WithoutBackground(now);
        last = now;
    }
    return {};
}

int MakePicture(const QStringList& arguments)
{
    QProcess program;
    program.setProcessChannelMode(QProcess::ForwardedChannels);
    program.start(arguments[1], arguments.mid(2));
    const bool isSaved = program.waitForStarted() && Settled().save(arguments[0]);
    program.kill(); // it has nothing to save
    program.waitForFinished();
    return isSaved ? 0 : 1;
}

void ShowDialog(QString kind)
{
    const bool isDark = kind.startsWith(QStringLiteral("dark-"));
    if (isDark)
        tev::SetColorTheme(tev::ColorTheme::Dark);
    kind.remove(QStringLiteral("dark-"));
    CQtUserInterface windows;
    if (kind == QStringLiteral("message"))
        return windows.ShowMessage(CUserInterface::Severity::Warning, L"The disk is nearly full. The model was saved.");
    if (kind == QStringLiteral("question"))
        return static_cast<void>(windows.AskYesNo(L"Replace the model \u201cbridge.obj\u201d?", false));
    if (kind == QStringLiteral("password"))
    {
        CXTString<wchar_t> password;
        return static_cast<void>(
            windows.AskForPassword(L"/home/anna/projects/2026/bridge over the river/deliveries/bridge.zip", password));
    }
    CUserInterface* const before = XSetUserInterface(&windows);
    CXArray<IoLogInfo> records;
    records.Add({L"bridge.obj", 0});
    records.Add({L"12,806 vertices, 25,600 faces", IoLogInfo::kInformation});
    records.Add({L"line 17: two vertices at one place", IoLogInfo::kWarning});
    records.Add({L"line 20,311: no such material: \u201csteel\u201d", IoLogInfo::kError});
    CLogInfo(records, 0, nullptr).DoModal();
    XSetUserInterface(before);
}
} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() < 2)
        return 2;
    if (arguments[0] != QStringLiteral("--show"))
        return MakePicture(arguments);
    tev::SetUpProgram(QStringLiteral("modeller"), QStringLiteral("Modeller"));
    QTimer::singleShot(0, &application, [&arguments] {
        ShowDialog(arguments[1]);
        QCoreApplication::quit();
    });
    return QApplication::exec();
}
