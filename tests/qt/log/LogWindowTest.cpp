#include "qt/log/LogWindow.h"

#include "qt/log/ColorDialog.h"
#include "qt/log/LogView.h"
#include "qt/log/PatternField.h"
#include "qt/toolkit/QtText.h"
#include "settings/CCustomData.h"
#include "tests/qt/log/LogFiles.h"
#include "tests/qt/support/Windows.h"
#include "text/Language.h"

#include <gmock/gmock.h>

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QProcess>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>
#include <QUrl>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace
{
struct ShownWindow
{
    explicit ShownWindow(const LogFolder& folder) : m_window(CXTString<wchar_t>(folder.Path("settings.pref").wstring()))
    {
        m_window.show();
        m_window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&m_window));
    }
    bool WaitFor(const std::function<bool()>& condition) { return QTest::qWaitFor(condition, kDeadline); }
    // Waits until the view shows these lines.
    bool WaitForTexts(const std::vector<std::string>& texts)
    {
        return WaitFor([&] { return TextsOf(m_window.GetView().GetVisibleRows()) == texts; });
    }
    bool WaitForRow(std::uint64_t row)
    {
        return WaitFor([&] { return m_window.GetView().CurrentRow() == row; });
    }

    LogWindow m_window;
};

std::string ManyLines(int count, const std::string& text)
{
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += text + " " + std::to_string(i) + "\n";
    return bytes;
}
} // namespace

TEST(LogWindow, ShowsWhatIsWrittenAndWhatHappens)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.Open(folder.Write("a.log", "one\n"));
    EXPECT_EQ(std::vector<std::string>{"one"}, TextsOf(shown.m_window.GetView().GetVisibleRows())); // at once
    EXPECT_THAT(shown.m_window.windowTitle().toStdString(), HasSubstr("a.log"));
    folder.Append("a.log", "two\n");
    EXPECT_TRUE(shown.WaitForTexts({"one", "two"}));
    folder.Write("a.log", "");
    EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetEventText().contains(QStringLiteral("was cut")); }));
    EXPECT_TRUE(shown.WaitForTexts({}));
    std::filesystem::remove(folder.Path("a.log"));
    EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetEventText().contains(QStringLiteral("was deleted")); }));
    folder.Write("a.log", "new\n");
    EXPECT_TRUE(shown.WaitForTexts({"new"}));
}

TEST(LogWindow, FiltersByWhatIsTyped)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.Open(folder.Write("a.log", "error 1\nfine\nERROR 2\n[L1] x\n[L3] y\n"));
    QTest::keyClick(&shown.m_window, Qt::Key_L, Qt::ControlModifier);
    QLineEdit& edit = shown.m_window.GetFilter().GetEdit();
    ASSERT_TRUE(shown.WaitFor([&] { return edit.hasFocus(); }));
    QTest::keyClicks(&edit, QStringLiteral("error"));
    EXPECT_TRUE(shown.WaitForTexts({"error 1", "ERROR 2"})); // without a further key
    QTest::keyClick(&edit, Qt::Key_Escape);
    EXPECT_TRUE(shown.WaitForTexts({"error 1", "fine", "ERROR 2", "[L1] x", "[L3] y"}));
    EXPECT_TRUE(shown.m_window.GetView().hasFocus());
    QTest::keyClick(&shown.m_window.GetFilter().GetKind(), Qt::Key_End); // the prefix
    QTest::keyClicks(&edit, QStringLiteral("l2"));
    QTest::keyClick(&edit, Qt::Key_Return);
    EXPECT_TRUE(shown.WaitForTexts({"[L1] x"}));
}

TEST(LogWindow, GoesFromMatchToMatchAndAround)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.Open(folder.Write("a.log", ManyLines(300, "line")));
    QTest::keyClick(&shown.m_window, Qt::Key_F, Qt::ControlModifier);
    QLineEdit& edit = shown.m_window.GetFind().GetEdit();
    ASSERT_TRUE(shown.WaitFor([&] { return edit.hasFocus(); }));
    QTest::keyClicks(&edit, QStringLiteral("line 20"));
    EXPECT_TRUE(shown.WaitForRow(20)); // while typing
    QTest::keyClick(&edit, Qt::Key_Return);
    EXPECT_TRUE(shown.WaitForRow(200));
    QTest::keyClick(&shown.m_window, Qt::Key_F3, Qt::ShiftModifier);
    QTest::keyClick(&shown.m_window, Qt::Key_F3, Qt::ShiftModifier);
    EXPECT_TRUE(shown.WaitForRow(209)); // the last one is before the first
    QTest::keyClick(&shown.m_window, Qt::Key_F3);
    EXPECT_TRUE(shown.WaitForRow(20));
    QTest::keyClick(&edit, Qt::Key_Escape);
    EXPECT_TRUE(edit.text().isEmpty());
    EXPECT_TRUE(shown.m_window.GetView().hasFocus());
}

TEST(LogWindow, BeginsAtALineAndKeepsItWhenTheFilterChanges)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.Open(folder.Write("a.log", ManyLines(200000, "some line of the log")), 150001);
    EXPECT_TRUE(shown.WaitForRow(150000));
    QTest::keyClicks(&shown.m_window.GetFilter().GetEdit(), QStringLiteral("0"));
    EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetDocument().GetStatus().m_isFiltered; }));
    EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetView().CurrentLine() == 150000; }));
    EXPECT_NE(150000U, shown.m_window.GetView().CurrentRow());
}

TEST(LogWindow, OpensWhatIsDropped)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.FindAction("encoding2")->trigger();
    const QUrl file = QUrl::fromLocalFile(XToQString(folder.Write("a b.log", "dropped\n")));
    const QUrl remote(QStringLiteral("http://localhost/a.log"));
    for (const QList<QUrl>& urls : {QList<QUrl>(), {remote}, {file, remote}})
    {
        QMimeData data;
        data.setUrls(urls);
        QDragEnterEvent enter(QPoint(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&shown.m_window, &enter);
        EXPECT_EQ(urls.size() == 2, enter.isAccepted());
        QDropEvent drop(QPointF(50, 50), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(&shown.m_window, &drop);
    }
    EXPECT_TRUE(shown.WaitForTexts({"dropped"}));
    EXPECT_TRUE(shown.m_window.FindAction("encoding0")->isChecked()); // detected anew for each file
}

TEST(LogWindow, KeepsItsSettings)
{
    const LogFolder folder;
    const CXTString<wchar_t> settings(folder.Path("settings.pref").wstring());
    const CXTString<wchar_t> path = folder.Write("a.log", "one\n");
    const std::vector<ColorRule> rules = {
        {{PatternKind::Wildcard, QStringLiteral("\u00e9*"), true}, RuleColor::Custom, 0xFF123456}};
    {
        ShownWindow shown(folder);
        shown.m_window.Open(path);
        shown.m_window.FindAction("follow")->trigger();
        shown.m_window.FindAction("theme2")->trigger();
        shown.m_window.FindAction("numbers")->trigger();
        shown.m_window.resize(800, 500);
        // Another window opens another file and changes colours and font meanwhile.
        LogSettings other = LogSettings::Load(settings);
        other.AddRecent(L"/tmp/other.log");
        other.m_rules = rules;
        other.m_fontSize = 20;
        EXPECT_TRUE(other.Save(settings, LogSettings()));
        shown.m_window.close();
    }
    LogSettings loaded = LogSettings::Load(settings);
    EXPECT_TRUE(loaded.m_isFollowing);
    EXPECT_EQ(tev::ColorTheme::Dark, loaded.m_theme);
    EXPECT_FALSE(loaded.m_hasLineNumbers);
    EXPECT_EQ(QSize(800, 500), ShownWindow(folder).m_window.size());
    EXPECT_EQ(rules, loaded.m_rules);
    EXPECT_EQ(20, loaded.m_fontSize);
    EXPECT_THAT(loaded.m_recent, ElementsAre(CXTString<wchar_t>(L"/tmp/other.log"), path));
    loaded.m_rules.clear();
    ASSERT_TRUE(loaded.Save(settings, LogSettings()));
    EXPECT_TRUE(LogSettings::Load(settings).m_rules.empty());
    folder.Write("settings.pref", "damaged");
    EXPECT_EQ(LogColors::DefaultRules(), LogSettings::Load(settings).m_rules);
    tev::SetColorTheme(tev::ColorTheme::System);
}

TEST(ColorDialog, ChangesTheRules)
{
    ColorDialog dialog(LogColors::DefaultRules());
    dialog.show();
    auto& list = *dialog.findChild<QListWidget*>();
    auto& pattern = *dialog.findChild<PatternField*>();
    const auto press = [&](const char16_t* text) {
        for (QPushButton* const button : dialog.findChildren<QPushButton*>())
        {
            if (button->text() == QStringView(text))
                return QTest::mouseClick(button, Qt::LeftButton);
        }
        FAIL();
    };
    press(u"&Remove");
    press(u"&Add");
    QTest::keyClicks(&pattern.GetEdit(), QStringLiteral("mesh"));
    press(u"Move &Up");
    press(u"Move &Up");
    press(u"&Add"); // without a text it is left out
    std::vector<std::string> texts;
    for (const ColorRule& rule : dialog.GetRules())
        texts.push_back(rule.m_pattern.m_text.toStdString());
    EXPECT_THAT(texts, ElementsAre("erreur", "mesh", "warning", "avertissement"));
    EXPECT_EQ(5, list.count());
    list.setCurrentRow(1);
    EXPECT_EQ(QStringLiteral("mesh"), pattern.GetPattern().m_text);
}

TEST(LogWindow, CanBeReadByAll)
{
    const LogFolder folder;
    tev::test::InEachLanguage([&] {
        ShownWindow shown(folder);
        shown.m_window.Open(folder.Write("a.log", "one\n"));
        shown.m_window.FindAction("find")->trigger();
        tev::test::ExpectSoundWindow(shown.m_window);
        ColorDialog dialog(LogColors::DefaultRules());
        dialog.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
        tev::test::ExpectSoundWindow(dialog);
    });
    ShownWindow shown(folder);
    shown.m_window.FindAction("find")->trigger();
    shown.m_window.GetView().setFocus();
    EXPECT_THAT(tev::test::TabOrder(shown.m_window),
                ElementsAre("Lines of the log", "Filter", "Filter, kind", "Filter, Match case", "Find", "Find, kind",
                            "Find, Match case", "Previous", "Next", "Close"));
    ColorDialog dialog(LogColors::DefaultRules());
    dialog.show();
    dialog.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
    EXPECT_THAT(tev::test::TabOrder(dialog),
                ElementsAre("Patterns", "Add", "Remove", "Move Down", "Pattern", "Pattern, kind", "Pattern, Match case",
                            "Colour", "OK", "Cancel"));
}

TEST(LogWindow, OneDialogIsOpenAtATime)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    const char* const actions[] = {"open", "line", "colors", "quit"};
    int opened = 0;
    int others = 0;
    const QWidget* dialog = nullptr;
    QTimer look;
    look.callOnTimeout([&] {
        auto* const top = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (top == nullptr || !top->isVisible())
            return;
        others += dialog != nullptr ? 1 : 0;
        if (dialog == nullptr)
        {
            dialog = top;
            ++opened;
            for (const char* const action : actions)
                shown.m_window.FindAction(action)->trigger();
        }
        top->reject();
        dialog = nullptr;
    });
    look.start(5);
    for (const char* const action : {"open", "line", "colors"})
        shown.m_window.FindAction(action)->trigger();
    EXPECT_EQ(3, opened);
    EXPECT_EQ(0, others);
    EXPECT_TRUE(shown.m_window.isVisible());
}

TEST(LogWindow, CanBeReadAtTwiceTheScaleToo)
{
    QProcess again;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"), QStringLiteral("2"));
    again.setProcessEnvironment(environment);
    again.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=*.CanBeReadByAll")});
    ASSERT_TRUE(again.waitForFinished(kDeadline));
    EXPECT_EQ(0, again.exitCode()) << again.readAll().toStdString();
}

// A file of 1 TiB is not counted and searched soon.
TEST(LogWindow, ClosesWhileItCounts)
{
    const LogFolder folder;
    const CXTString<wchar_t> path = folder.Write("a.log", "one\n");
    std::filesystem::resize_file(folder.Path("a.log"), std::uintmax_t{1} << 40);
    ShownWindow shown(folder);
    shown.m_window.Open(path);
    shown.m_window.GetDocument().SetSearch({PatternKind::Text, QStringLiteral("one"), false});
    EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetDocument().GetStatus().m_matches.m_scannedTo != 0; }));
    EXPECT_FALSE(shown.m_window.GetDocument().IsIdle());
    EXPECT_TRUE(shown.m_window.close());
}

TEST(LogWindow, SaysWhatHappensWhileADialogIsOpen)
{
    const LogFolder folder;
    ShownWindow shown(folder);
    shown.m_window.Open(folder.Write("a.log", "one\n"));
    int dialogs = 0;
    QTimer::singleShot(0, [&] {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(nullptr, dialog);
        std::filesystem::remove(folder.Path("a.log"));
        EXPECT_TRUE(shown.WaitFor([&] { return shown.m_window.GetEventText().contains(QStringLiteral("deleted")); }));
        ++dialogs;
        dialog->reject();
    });
    QTest::keyClick(&shown.m_window, Qt::Key_G, Qt::ControlModifier);
    EXPECT_EQ(1, dialogs);
    EXPECT_TRUE(shown.WaitForTexts({"one"}));
}

TEST(TevLog, AnswersOnTheCommandLine)
{
    const QString program = QCoreApplication::applicationDirPath() + QStringLiteral("/tev-log");
    const auto runProgram = [](const QString& started, const QStringList& arguments) {
        QProcess process;
        process.start(started, arguments);
        EXPECT_TRUE(process.waitForFinished(kDeadline));
        return std::make_pair(
            process.exitCode(),
            QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError()).toStdString());
    };
    const auto run = [&](const QStringList& arguments) { return runProgram(program, arguments); };
    EXPECT_THAT(run({QStringLiteral("--help")}), testing::Pair(0, HasSubstr("usage: tev-log [FILE]")));
    EXPECT_THAT(run({QStringLiteral("--version")}), testing::Pair(0, HasSubstr("tev-log 0.")));
    for (const QStringList& wrong :
         {QStringList{QStringLiteral("--lines")}, QStringList{QStringLiteral("--line"), QStringLiteral("0")},
          QStringList{QStringLiteral("a"), QStringLiteral("b")}})
        EXPECT_THAT(run(wrong), testing::Pair(2, HasSubstr("wrong argument")));
    const LogFolder folder;
    std::filesystem::create_directory(folder.Path("d"));
    const QStringList script = {QStringLiteral("-c"), QStringLiteral("cd \"$0\" && rmdir \"$0\" && exec \"$1\" x"),
                                QString::fromStdString(folder.Path("d").string()), program};
    EXPECT_THAT(runProgram(QStringLiteral("sh"), script), testing::Pair(1, HasSubstr("tev-log: the current folder")));
}
