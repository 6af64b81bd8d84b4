#include "examples/host/window/HostWindow.h"
#include "examples/host/window/CrashWays.h"
#include "examples/host/window/Viewport.h"
#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/QtText.h"
#include "tests/qt/host/HostTesting.h"
#include "tests/qt/support/Person.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/Sanitized.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProcess>
#include <QTest>
#include <algorithm>
#include <atomic>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace host
{
namespace
{
constexpr int kTimeMs = 60000; ///< after which a test gives up

class HostWindowTest : public HostTest
{
protected:
    CPathString PreferencePath() const { return m_folder / L"host.prefs"; }
    std::unique_ptr<HostWindow> NewWindow(const PlugIns& plugIns) const
    {
        auto window = std::make_unique<HostWindow>(PreferencePath(), plugIns);
        window->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get(), kTimeMs));
        return window;
    }
    std::unique_ptr<HostWindow> NewWindow() const { return NewWindow(m_plugIns); }

    /// A model that takes a while to read.
    CPathString LargeModel() const
    {
        std::string text;
        for (int i = 0; i < 300'000; ++i)
            text += "v " + std::to_string(i) + " 0.125 17\nf -1 -1 -1\n";
        return Write(L"large.obj", text);
    }

    PlugIns m_plugIns{fs::path(HOST_PLUGIN_DIR)};
};

void WaitUntilOpened(const HostWindow& window)
{
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window.IsLoading(); }, kTimeMs));
}

void OpenAndWait(HostWindow& window, const CPathString& path)
{
    window.Open(path);
    WaitUntilOpened(window);
}

/// As a person does with the keyboard: opens the menu and chooses the entry.
void Choose(const HostWindow& window, const QString& menuTitle, const QString& entry)
{
    for (QAction* const top : window.menuBar()->actions())
    {
        if (top->text() != menuTitle)
            continue;
        QMenu* const menu = top->menu();
        menu->popup(window.mapToGlobal(QPoint(10, 10)));
        ASSERT_TRUE(QTest::qWaitForWindowExposed(menu, kTimeMs));
        for (QAction* const action : menu->actions())
        {
            if (action->text() != entry)
                continue;
            QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(action).center());
            return;
        }
    }
    FAIL() << "no entry " << entry.toStdString();
}

QString NoticeOf(const HostWindow& window)
{
    for (const QLabel* const label : window.centralWidget()->findChildren<QLabel*>())
    {
        if (label->isVisible())
            return label->text();
    }
    return {};
}

std::size_t TrianglesOf(const HostWindow& window)
{
    return window.GetScene().m_shapes.empty() ? 0 : window.GetScene().m_shapes[0]->MakeMesh()->m_triangles.size();
}
} // namespace

TEST_F(HostWindowTest, OpensAModelAndShowsIt)
{
    const std::unique_ptr<HostWindow> window = NewWindow();
    auto* const viewport = window->findChild<Viewport*>();
    const QImage before = viewport->grab().toImage();
    OpenAndWait(*window, Sample(L"archives/pawn.zip"));
    EXPECT_GT(TrianglesOf(*window), 100u);
    const QImage shown = viewport->grab().toImage();
    EXPECT_NE(before, shown);
    QTest::mousePress(viewport, Qt::LeftButton, {}, QPoint(100, 50));
    QTest::mouseMove(viewport, QPoint(140, 50));
    QTest::mouseRelease(viewport, Qt::LeftButton, {}, QPoint(140, 50));
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::fabs(viewport->GetView().m_yaw - 1.0F) < 1e-3F; }, kTimeMs));
    QTest::keyClick(viewport, Qt::Key_Plus);
    EXPECT_FLOAT_EQ(1.2F, viewport->GetView().m_zoom);
    EXPECT_NE(shown, viewport->grab().toImage());
}

TEST_F(HostWindowTest, WhatCannotBeOpenedIsToldAndLeavesTheScene)
{
    const std::unique_ptr<HostWindow> window = NewWindow();
    OpenAndWait(*window, Sample(L"pawn.obj"));
    const std::size_t before = TrianglesOf(*window);
    const std::pair<CPathString, const char16_t*> rows[] = {
        {Write(L"bad.obj", "v 1 2 3\nf 1 2 3\n"), u"line 2"},
        {Write(L"bad.tevscene", "no scene"), u"cannot be opened"},
        {Write(L"bad.zip", "PK\3\4 no archive"), u"cannot be opened"},
        {m_folder / L"gone.obj", u"cannot be opened"},
        {Write(L"text.txt", "x"), u"neither"},
    };
    for (const auto& [path, said] : rows)
    {
        OpenAndWait(*window, path);
        const QString name = XToQString(path.GetFileName());
        EXPECT_TRUE(NoticeOf(*window).contains(said) && NoticeOf(*window).contains(name))
            << NoticeOf(*window).toStdString();
        EXPECT_EQ(before, TrianglesOf(*window));
    }
}

TEST_F(HostWindowTest, OpeningEndsWhenItIsCancelledAndWhenTheWindowCloses)
{
    const CPathString path = LargeModel();
    std::unique_ptr<HostWindow> window = NewWindow();
    window->Open(path);
    QAbstractButton* const cancel = tev::test::ButtonOf(*window, QStringLiteral("Cancel"));
    ASSERT_TRUE(cancel != nullptr && cancel->isVisible());
    QTest::mouseClick(cancel, Qt::LeftButton);
    EXPECT_FALSE(window->IsLoading());
    EXPECT_EQ(0u, TrianglesOf(*window));
    EXPECT_FALSE(cancel->isVisible());
    EXPECT_EQ(QString(), NoticeOf(*window)) << "who cancels knows it";
    window->Open(path);
    window->Open(Sample(L"pawn.obj"));
    WaitUntilOpened(*window);
    EXPECT_NE(600'000u, TrianglesOf(*window)) << "the latest counts";
    window->Open(path);
    window->close();
    EXPECT_FALSE(window->IsLoading());
    window->Open(path);
    window.reset();
    EXPECT_EQ(0u, CCustomThread::GetRunningThreadCount());
}

TEST_F(HostWindowTest, ADialogEndsWithTheWindow)
{
    for (const char16_t* const entry : {u"&Open\u2026", u"&Save scene\u2026"})
    {
        const std::unique_ptr<HostWindow> window = NewWindow();
        const tev::test::Person person({{{}, [&](QDialog&) { window->close(); }}});
        Choose(*window, QStringLiteral("&File"), QString::fromUtf16(entry));
        EXPECT_EQ(nullptr, QApplication::activeModalWidget());
        EXPECT_FALSE(window->isVisible() || window->IsLoading());
    }
}

TEST_F(HostWindowTest, ItsTextsFitInBothLanguages)
{
    const CPathString bad = Write(L"bad.obj", "v 1 2 3\nf 1 2 3\n");
    for (const XLanguage language : {XLanguage::English, XLanguage::French})
    {
        for (const bool isLong : {false, true})
        {
            XSetLanguage(language);
            XLengthenTexts(isLong);
            const std::unique_ptr<HostWindow> window = NewWindow();
            OpenAndWait(*window, bad);
            Choose(*window, XInLanguage(u"&Insert", u"&Insertion"), QStringLiteral("example.Torus"));
            tev::test::ButtonOf(*window, XInLanguage(u"Load again", u"Recharger"))->show();
            QTest::qWait(0);
            tev::test::ExpectSoundWindow(*window);
        }
    }
    XLengthenTexts(false);
    XSetLanguage(XLanguage::English);
}

TEST_F(HostWindowTest, OpensWhatIsDroppedOnIt)
{
    const std::unique_ptr<HostWindow> window = NewWindow();
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(XToQString(Sample(L"pawn.obj")))});
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.get(), &drop);
    EXPECT_TRUE(QTest::qWaitFor([&] { return TrianglesOf(*window) > 100u; }, kTimeMs));
}

TEST_F(HostWindowTest, OffersToLoadAChangedFileAgain)
{
    const CPathString path = Write(L"a.obj", "v 1 1 1\nv 2 1 1\nv 2 2 1\nf 1 2 3\n");
    const std::unique_ptr<HostWindow> window = NewWindow();
    OpenAndWait(*window, path);
    Write(L"b.obj", "another file");
    QAbstractButton* const reload = tev::test::ButtonOf(*window, QStringLiteral("Load again"));
    ASSERT_NE(nullptr, reload);
    EXPECT_FALSE(reload->isVisible());
    Write(L"new.obj", "v 1 1 1\nv 2 1 1\nv 2 2 1\nf 1 2 3\nf 3 2 1\n");
    fs::rename(fs::path(m_folder / L"new.obj"), fs::path(path)); // as programs save
    ASSERT_TRUE(QTest::qWaitFor([&] { return reload->isVisible(); }, kTimeMs));
    QTest::mouseClick(reload, Qt::LeftButton);
    WaitUntilOpened(*window);
    EXPECT_EQ(2u, TrianglesOf(*window));
    EXPECT_FALSE(reload->isVisible());

    // While it is read, and another file that it names.
    const CPathString large = LargeModel();
    window->Open(large);
    Write(L"new.obj", "mtllib a.mtl\nv 1 1 1\nv 2 1 1\nv 2 2 1\nusemtl a\nf 1 2 3\n");
    const CPathString materials = Write(L"a.mtl", "newmtl a\nKd 1 0 0\n");
    ASSERT_TRUE(window->IsLoading());
    fs::rename(fs::path(m_folder / L"new.obj"), fs::path(large));
    WaitUntilOpened(*window);
    EXPECT_TRUE(reload->isVisible());
    OpenAndWait(*window, large);
    EXPECT_EQ(1u, TrianglesOf(*window));
    EXPECT_FALSE(reload->isVisible());
    Write(L"a.mtl", "newmtl a\nKd 0 1 0.5\n");
    EXPECT_TRUE(QTest::qWaitFor([&] { return reload->isVisible(); }, kTimeMs));
}

TEST_F(HostWindowTest, AsksBeforeChangesAreLost)
{
    using Step = tev::test::Person::Step;
    const auto answer = [](QMessageBox::StandardButton button) {
        return Step{{}, [button](QDialog& dialog) {
                        auto* const box = qobject_cast<QMessageBox*>(&dialog);
                        ASSERT_NE(nullptr, box);
                        QTest::mouseClick(box->button(button), Qt::LeftButton);
                    }};
    };
    const std::unique_ptr<HostWindow> window = NewWindow();
    const CPathString path = m_folder / L"a.tevscene";
    Choose(*window, QStringLiteral("&Insert"), QStringLiteral("example.Torus"));
    {
        const tev::test::Person person({answer(QMessageBox::Cancel), answer(QMessageBox::Cancel)});
        EXPECT_FALSE(window->close());
        window->Open(Sample(L"pawn.obj"));
        EXPECT_FALSE(window->IsLoading());
    }
    {
        const tev::test::Person person({answer(QMessageBox::Save), Step{{}, [&](QDialog& dialog) {
                                                                            dialog.findChild<QLineEdit*>()->setText(
                                                                                XToQString(path));
                                                                            dialog.accept();
                                                                        }}});
        OpenAndWait(*window, Sample(L"pawn.obj"));
    }
    EXPECT_EQ(1u, LoadScene(path)->m_shapes.size());
    EXPECT_GT(TrianglesOf(*window), 100u);
    OpenAndWait(*window, path);
    window->findChild<QListWidget*>()->setCurrentRow(0);
    window->findChildren<QDoubleSpinBox*>()[0]->stepUp();
    const tev::test::Person person({answer(QMessageBox::Discard)});
    EXPECT_TRUE(window->close());
}

TEST_F(HostWindowTest, TwoCopiesShareTheirSettings)
{
    std::unique_ptr<HostWindow> one = NewWindow();
    const std::unique_ptr<HostWindow> other = NewWindow();
    const CPathString path = Write(L"a.obj", "v 1 1 1\n");
    OpenAndWait(*one, path);
    OpenAndWait(*other, Sample(L"pawn.obj"));
    EXPECT_THAT(Preferences(PreferencePath()).GetRecentFiles(), testing::ElementsAre(Sample(L"pawn.obj"), path));
    OpenAndWait(*other, path);
    EXPECT_THAT(Preferences(PreferencePath()).GetRecentFiles(), testing::ElementsAre(path, Sample(L"pawn.obj")));
    Choose(*one, QStringLiteral("&View"), QStringLiteral("As &wires"));
    EXPECT_TRUE(one->findChild<Viewport*>()->GetView().m_asWires);
    one->resize(777, 555);
    ASSERT_TRUE(QTest::qWaitFor([&] { return one->size() == QSize(777, 555); }, kTimeMs));
    one->close();
    one = NewWindow();
    EXPECT_TRUE(one->findChild<Viewport*>()->GetView().m_asWires);
    EXPECT_EQ(QSize(777, 555), one->size());
}

TEST_F(HostWindowTest, ShapesOfPlugInsAreEditedSavedAndKept)
{
    const CPathString path = m_folder / L"a.tevscene";
    std::unique_ptr<HostWindow> window = NewWindow();
    Choose(*window, QStringLiteral("&Insert"), QStringLiteral("example.Torus"));
    const auto segments = window->findChildren<QDoubleSpinBox*>();
    ASSERT_EQ(3, segments.size());
    segments[2]->setFocus();
    segments[2]->selectAll();
    QTest::keyClicks(segments[2], QStringLiteral("5"));
    QTest::keyClick(segments[2], Qt::Key_Return);
    EXPECT_EQ(50u, TrianglesOf(*window));
    window->Save(path);
    EXPECT_EQ(QString(), NoticeOf(*window));
    window = NewWindow();
    OpenAndWait(*window, path);
    EXPECT_EQ(50u, TrianglesOf(*window));

    const PlugIns none;
    window.reset();
    m_plugIns = none;
    window = NewWindow(none);
    OpenAndWait(*window, path);
    EXPECT_TRUE(NoticeOf(*window).endsWith(QStringLiteral(": example.Torus"))) << NoticeOf(*window).toStdString();
    window->Save(path);
    window.reset();
    m_plugIns = PlugIns(fs::path(HOST_PLUGIN_DIR));
    window = NewWindow();
    OpenAndWait(*window, path);
    EXPECT_EQ(50u, TrianglesOf(*window));
}

TEST_F(HostWindowTest, AsksBeforeItLosesWhatANewerPlugInSaved)
{
    class Answerer : public CUserInterface
    {
    public:
        bool AskYesNo(const CXTString<wchar_t>&, bool) override { return ++m_asked == 2; }
        int m_asked = 0;
    } answerer;
    CUserInterface* const before = XSetUserInterface(&answerer);
    const CPathString path = m_folder / L"a.tevscene";
    const CPathString target = m_folder / L"b.tevscene";
    m_plugIns = PlugIns(fs::path(HOST_NEWER_PLUGIN_DIR));
    std::unique_ptr<HostWindow> window = NewWindow();
    Choose(*window, QStringLiteral("&Insert"), QStringLiteral("example.Torus"));
    window->Save(path);
    window.reset();
    m_plugIns = PlugIns(); // two plug-ins with one class
    m_plugIns = PlugIns(fs::path(HOST_PLUGIN_DIR));
    window = NewWindow();
    OpenAndWait(*window, path);
    window->Save(target);
    EXPECT_EQ(0, answerer.m_asked) << "nothing is lost";
    fs::remove(fs::path(target));
    window->findChild<QListWidget*>()->setCurrentRow(0);
    window->findChildren<QDoubleSpinBox*>()[0]->stepUp();
    window->Save(target);
    EXPECT_FALSE(fileExists(target)) << "the answer was no";
    window->Save(target);
    EXPECT_TRUE(fileExists(target));
    window->Save(target);
    EXPECT_EQ(2, answerer.m_asked) << "it is lost already";
    XSetUserInterface(before);
}

TEST_F(HostWindowTest, WorkersOfPlugInsTellThePersonAndEndBeforeTheirPlugIns)
{
    class Listener : public CUserInterface
    {
    public:
        void Notify(const CXTString<wchar_t>&, const CXTString<wchar_t>& text, const CXTString<wchar_t>&) override
        {
            m_isRight = text == L"The surface is 0.5.";
            m_isTold = true;
        }
        std::atomic<bool> m_isRight{false};
        std::atomic<bool> m_isTold{false};
    } listener;
    CUserInterface* const before = XSetUserInterface(&listener);
    {
        const std::unique_ptr<HostWindow> window = NewWindow();
        OpenAndWait(*window, Write(L"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"));
        Choose(*window, QStringLiteral("&Tools"), QStringLiteral("Measure the surface"));
        EXPECT_TRUE(QTest::qWaitFor([&] { return listener.m_isTold.load(); }, kTimeMs));
        EXPECT_TRUE(listener.m_isRight);
        for (int i = 0; i < 20; ++i)
            Choose(*window, QStringLiteral("&Tools"), QStringLiteral("Measure the surface"));
    }
    CCustomThread::WaitEndOfThreads(false);
    m_plugIns = PlugIns();
    XSetUserInterface(before);
}

namespace
{
/// Of the files whose names begin so; wide text without its zeros.
std::string TextIn(const CPathString& folder, const std::string& start)
{
    std::string text;
    for (const auto& entry : fs::directory_iterator(fs::path(folder)))
    {
        std::ifstream file(entry.path(), std::ios::binary);
        if (entry.path().filename().string().find(start) == 0)
            text.append(std::istreambuf_iterator<char>(file), {});
    }
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    return text;
}

/// A program in the place of the one that shows crashes: it writes what it is told to show.
void WriteRecorder(const CPathString& folder)
{
    const fs::path recorder(folder / L"recorder");
    std::ofstream(recorder) << "#!/bin/sh\nprintf '%s\\n' \"$@\" >\"$0.$$\"\nmv \"$0.$$\" \"${0%/*}/shown.$$\"\n";
    fs::permissions(recorder, fs::perms::owner_all);
}

void ExpectShown(const CPathString& folder, int count)
{
    const auto shown = [&] {
        const std::string text = TextIn(folder, "shown.");
        int found = 0;
        for (std::size_t at = 0; (at = text.find(".zip\n--application\nHost\n--version\n1.0\n", at)) != text.npos; ++at)
            ++found;
        return found;
    };
    EXPECT_TRUE(QTest::qWaitFor([&] { return shown() >= count; }, kTimeMs));
}

/// In a process of its own, whose only thread besides is the reporter.
void CrashByMenu(const CPathString& folder, const CPathString& preferences, const PlugIns& plugIns, const QString& menu,
                 const QString& entry)
{
    XSetApplicationName(L"host");
    SetLogFile(folder / L"host.log", xLogCreate, 0xFF);
    CrashInstall(nullptr, L"Host", L"1.0", xCrashReport);
    CrashThreadInstall();
    XSetCrashErrorOutput(true);
    CQtUserInterface userInterface;
    XSetUserInterface(&userInterface);
    HostWindow window(preferences, plugIns);
    window.show();
    OpenAndWait(window, CPathString(fs::path(TEVTOOLS_SOURCE_DIR) / "examples/data/pawn.obj"));
    if (entry == u"While loading")
        window.Save(folder / L"a.tevscene"); // and loads that
    Choose(window, menu, entry);
    static_cast<void>(QTest::qWaitFor([&] { return !NoticeOf(window).isEmpty(); }, kTimeMs));
    std::fprintf(stderr, "goes on: %s\n", NoticeOf(window).toUtf8().constData());
    std::_Exit(0);
}
} // namespace

TEST_F(HostWindowTest, EachWayToCrashMakesAReportThatIsShown)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const CPathString home(std::getenv("HOME")); // a child has its own m_folder
    WriteRecorder(home);
    const tev::test::EnvironmentVariable dialog("TEVTOOLS_CRASH_DIALOG", fs::path(home / L"recorder").c_str());
    std::vector<std::tuple<QString, QString, bool>> rows;
    for (int i = 0; i < kCrashWayCount; ++i)
    {
        const CrashWay& way = kCrashWays[i];
        if (!way.m_isReportedBySanitizers || !tev::test::kIsSanitized)
            rows.emplace_back(QStringLiteral("&Crash"), XInLanguage(way.m_english, way.m_french), way.m_ends);
    }
    if (!tev::test::kIsSanitized)
    {
        rows.emplace_back(QStringLiteral("&Crash"), QStringLiteral("While loading"), true);
        rows.emplace_back(QStringLiteral("&Tools"), QStringLiteral("Crash in a plug-in"), true);
    }
    int count = 0;
    for (const auto& [menu, entry, ends] : rows)
    {
        SCOPED_TRACE(entry.toStdString());
        EXPECT_EXIT(CrashByMenu(m_folder, PreferencePath(), m_plugIns, menu, entry),
                    testing::ExitedWithCode(ends ? 1 : 0), ends ? "DebugReport.*\\.zip" : "goes on: [A-Za-z]");
        count += ends ? 1 : 0;
    }
    ExpectShown(home, count);
}

namespace
{
/// A copy of the program, with its data in the folder, where it works; or else in one that is deleted.
class Program : public QProcess
{
public:
    Program(const CPathString& folder, const QStringList& arguments, bool isNowhere = false)
    {
        setWorkingDirectory(XToQString(folder));
        if (isNowhere)
            setChildProcessModifier([] {
                if (mkdir("nowhere", 0700) != 0 || chdir("nowhere") != 0 || rmdir("../nowhere") != 0)
                    _exit(1);
            });
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TEVTOOLS_USER_DATA"), XToQString(folder));
        environment.insert(QStringLiteral("TEVTOOLS_COMMON_DATA"), XToQString(folder));
        environment.insert(QStringLiteral("TEVTOOLS_CRASH_DIALOG"), XToQString(folder / L"recorder"));
        setProcessEnvironment(environment);
        start(QStringLiteral(HOST_PROGRAM), arguments);
        EXPECT_TRUE(waitForStarted(kTimeMs));
    }
    ~Program() override
    {
        kill();
        waitForFinished(kTimeMs);
    }
};
} // namespace

TEST_F(HostWindowTest, TheCommandLineIsChecked)
{
    const std::tuple<QString, int, const char*> rows[] = {{QStringLiteral("--help"), 0, "--plug-ins <folder>"},
                                                          {QStringLiteral("--nonsense"), 1, "nonsense"}};
    for (const auto& [argument, code, said] : rows)
    {
        Program program(m_folder, {argument});
        ASSERT_TRUE(program.waitForFinished(kTimeMs));
        EXPECT_EQ(code, program.exitCode());
        EXPECT_TRUE((code == 0 ? program.readAllStandardOutput() : program.readAllStandardError()).contains(said));
    }
}

TEST_F(HostWindowTest, RunningCopiesShareTheirSettingsAndACrashIsShown)
{
    WriteRecorder(m_folder);
    const CPathString own = Write(L"a.obj", "v 1 1 1\n");
    Program one(m_folder, {QStringLiteral("a.obj")});
    Program other(m_folder, {XToQString(Sample(L"pawn.obj"))});
    Program missing(m_folder, {QStringLiteral("gone.obj")}, true);
    const auto isRemembered = [&] { return Preferences(PreferencePath()).GetRecentFiles().size() == 2; };
    EXPECT_TRUE(QTest::qWaitFor(isRemembered, kTimeMs));
    EXPECT_THAT(Preferences(PreferencePath()).GetRecentFiles(),
                testing::UnorderedElementsAre(own, Sample(L"pawn.obj")));
    const auto isInLog = [&] { return TextIn(m_folder, "host").find("gone.obj: ") != std::string::npos; };
    EXPECT_TRUE(QTest::qWaitFor(isInLog, kTimeMs)) << TextIn(m_folder, "host");

    ::kill(static_cast<pid_t>(one.processId()), SIGTERM); // one of the conditions that are reported
    ASSERT_TRUE(one.waitForFinished(kTimeMs));
    EXPECT_EQ(1, one.exitCode());
    ExpectShown(m_folder, 1);
}
} // namespace host
