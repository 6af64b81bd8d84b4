#include "qt/settings/SettingsWindow.h"
#include "qt/settings/CommandLine.h"
#include "settings/RegistryText.h"
#include "tests/qt/settings/Person.h"
#include "tests/qt/settings/SettingsTesting.h"
#include "tests/qt/support/Windows.h"
#include "tests/support/System.h"
#include "text/Language.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QLineEdit>
#include <QMainWindow>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>
#include <QTest>
#include <QTreeView>

#include <functional>
#include <random>

namespace
{
using namespace tev::browser;
using namespace tev::browser::test;
using testing::ElementsAre;

class SettingsWindowTest : public testing::Test
{
protected:
    void Open(std::unique_ptr<SettingsSource> source)
    {
        m_window = std::make_unique<SettingsWindow>(std::move(source));
        m_window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_window.get(), kPatience));
        Person::Activate();
        m_tree = m_window->findChild<QTreeView*>();
        m_table = m_window->findChild<QTableView*>();
    }
    void OpenStore()
    {
        ASSERT_TRUE(m_folder.Save(1, 2, [](CCustomData& store) {
            store.SetInt(1, 7);
            store.SetString(2, L"Roof");
            store.SetBool(3, 1);
        }));
        Open(std::make_unique<PreferenceSource>(m_folder.m_file));
        ASSERT_TRUE(WaitFor([this] { return m_tree->currentIndex().isValid(); })) << "the one store is chosen";
        ASSERT_THAT(Lines(), ElementsAre(u"1\tint\t4\t7", u"2\ttext\t10\tRoof", u"3\tbool\t4\ttrue"));
    }
    static bool WaitFor(const std::function<bool()>& condition) { return QTest::qWaitFor(condition, kPatience); }
    QStringList Lines() const
    {
        QStringList lines;
        for (int row = 0; row < m_table->model()->rowCount(); ++row)
            lines << static_cast<ValueModel*>(m_table->model())->LineOf(row);
        return lines;
    }
    void Choose(int row)
    {
        m_table->setFocus();
        m_table->setCurrentIndex(m_table->model()->index(row, 0));
    }
    void Press(const QKeySequence& keys, QWidget* in = nullptr)
    {
        QTest::keySequence(in != nullptr ? in : m_window.get(), keys);
    }
    QAction* Action(const char* name) const { return m_window->findChild<QAction*>(QString::fromLatin1(name)); }

    PreferenceFolder m_folder;
    std::unique_ptr<SettingsWindow> m_window;
    QTreeView* m_tree = nullptr;
    QTableView* m_table = nullptr;
};

TEST_F(SettingsWindowTest, ValuesAreEditedDeletedRenamedAndMadeByKeyboardAndUndone)
{
    OpenStore();
    Choose(0);
    {
        Person person({Person::Type(QStringLiteral("42"))});
        QTest::keyClick(m_table, Qt::Key_Return);
    }
    EXPECT_EQ(QStringLiteral("1\tint\t4\t42"), Lines().value(0));
    Choose(1);
    {
        Person person({Person::Type(QStringLiteral("9"))});
        QTest::keyClick(m_table, Qt::Key_F2);
    }
    EXPECT_THAT(Lines(), ElementsAre(u"1\tint\t4\t42", u"3\tbool\t4\ttrue", u"9\ttext\t10\tRoof"));
    m_table->selectAll();
    QTest::keyClick(m_table, Qt::Key_Delete);
    EXPECT_THAT(Lines(), ElementsAre());
    {
        Person person({[](QDialog& dialog) {
            QTest::keyClicks(dialog.focusWidget(), QStringLiteral("PAGE"));
            dialog.findChild<QComboBox*>()->setCurrentText(QStringLiteral("text"));
            dialog.findChild<QPlainTextEdit*>()->setPlainText(QStringLiteral("two\nlines"));
            dialog.accept();
        }});
        QTest::keyClick(m_table, Qt::Key_Insert);
    }
    EXPECT_THAT(Lines(), ElementsAre(QStringLiteral("'PAGE'\ttext\t20\ttwo\u21B5lines")));
    CXTString<wchar_t> text;
    EXPECT_TRUE(m_folder.Load(1, 2).GetString(0x50414745, text, L""));
    EXPECT_STREQ(L"two\nlines", text);
    for (int i = 0; i < 4; ++i)
        Press(QKeySequence::Undo);
    EXPECT_THAT(Lines(), ElementsAre(u"1\tint\t4\t7", u"2\ttext\t10\tRoof", u"3\tbool\t4\ttrue"));
    EXPECT_FALSE(Action("undo")->isEnabled());
    Press(QKeySequence::Redo);
    EXPECT_EQ(QStringLiteral("1\tint\t4\t42"), Lines().value(0));
}

TEST_F(SettingsWindowTest, WhatIsNotEditedIsNotChanged)
{
    const std::vector<unsigned char> odd = {0, 0xD8, 0, 0, 'a', 0, 0x0D, 0, 0, 0};
    ASSERT_TRUE(m_folder.Save(1, 2, [](CCustomData& store) {
        const unsigned char chunk[] = {1,   0, 0,    0, 10, 0,   0, 0,    'C', 'I', 'N',
                                       'U', 0, 0xD8, 0, 0,  'a', 0, 0x0D, 0,   0,   0};
        ASSERT_TRUE(store.SetData(chunk, sizeof chunk));
    }));
    const QByteArray before = m_folder.Bytes();
    Open(std::make_unique<PreferenceSource>(m_folder.m_file));
    ASSERT_TRUE(m_window->GoTo({L"0000000100000002"}, L"00000001"));
    m_table->setFocus();
    {
        Person person({[](QDialog& dialog) { dialog.accept(); }});
        QTest::keyClick(m_table, Qt::Key_Return);
    }
    EXPECT_EQ(before, m_folder.Bytes());
    {
        Person person({[](QDialog& dialog) {
            auto* const text = dialog.findChild<QPlainTextEdit*>();
            EXPECT_EQ(QStringLiteral("\\ud800\\u0000a\\u000d"), text->toPlainText());
            text->moveCursor(QTextCursor::End);
            QTest::keyClicks(text, QStringLiteral("b\\"));
            EXPECT_FALSE(dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->isEnabled())
                << "half an escape";
            QTest::keyClicks(text, QStringLiteral("\\"));
            dialog.accept();
        }});
        QTest::keyClick(m_table, Qt::Key_Return);
    }
    std::vector<unsigned char> expected(odd.begin(), odd.end() - 2);
    expected.insert(expected.end(), {'b', 0, '\\', 0, 0, 0});
    const CCustomData store = m_folder.Load(1, 2);
    unsigned size = 0;
    const auto* const bytes = static_cast<const unsigned char*>(store.GetCustomPtr(1, size));
    EXPECT_EQ(expected, std::vector<unsigned char>(bytes, bytes + size));
}

TEST_F(SettingsWindowTest, ChangesOfOtherProgramsAppearAndArePreserved)
{
    OpenStore();
    Choose(1);
    ASSERT_TRUE(m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 8); }));
    ASSERT_TRUE(m_folder.Save(3, 4, [](CCustomData& store) { store.SetInt(1, 1); }));
    EXPECT_TRUE(WaitFor([this] { return m_tree->model()->rowCount() == 2 && Lines().value(0) == u"1\tint\t4\t8"; }));
    EXPECT_EQ(1, m_table->currentIndex().row()) << "what is chosen stays chosen";
    // Another program is faster than the person in the editor, who first keeps its change and then does not.
    for (const bool overwrites : {false, true})
    {
        Choose(0);
        Person person({[&](QDialog& dialog) {
                           m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 9); });
                           Person::Type(QStringLiteral("5"))(dialog);
                       },
                       Person::Click(overwrites ? QMessageBox::Yes : QMessageBox::No, QStringLiteral("1 = 9")),
                       Person::Click(QMessageBox::Ok)});
        if (overwrites)
        {
            m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 8); });
            ASSERT_TRUE(WaitFor([this] { return Lines().value(0) == u"1\tint\t4\t8"; }));
        }
        QTest::keyClick(m_table, Qt::Key_Return);
        int number = 0;
        EXPECT_TRUE(m_folder.Load(1, 2).GetInt(1, number, 0));
        EXPECT_EQ(overwrites ? 5 : 9, number);
        if (overwrites)
        {
            m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 6); });
            Person::Activate();
            Press(QKeySequence::Undo); // is refused
            EXPECT_TRUE(m_folder.Load(1, 2).GetInt(1, number, 0));
            EXPECT_EQ(6, number);
        }
    }
}

TEST_F(SettingsWindowTest, ChangesOfAFileBehindALinkAppear)
{
    ASSERT_TRUE(m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 7); }));
    const QTemporaryDir links;
    const QString link = links.filePath(QStringLiteral("link.prefs"));
    ASSERT_TRUE(QFile::link(m_folder.m_file, link));
    Open(std::make_unique<PreferenceSource>(link));
    ASSERT_TRUE(WaitFor([this] { return Lines().value(0) == u"1\tint\t4\t7"; }));
    ASSERT_TRUE(m_folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 8); }));
    EXPECT_TRUE(WaitFor([this] { return Lines().value(0) == u"1\tint\t4\t8"; }));
}

TEST_F(SettingsWindowTest, ANameThatIsTakenIsNoChangeOfAnotherProgram)
{
    OpenStore();
    const auto makeValue = [this](QMessageBox::StandardButton answer) {
        Person person({[](QDialog& dialog) {
                           QTest::keyClicks(dialog.focusWidget(), QStringLiteral("2"));
                           dialog.findChild<QComboBox*>()->setCurrentText(QStringLiteral("text"));
                           dialog.findChild<QPlainTextEdit*>()->setPlainText(QStringLiteral("Wall"));
                           dialog.accept();
                       },
                       Person::Click(answer, QStringLiteral("of this name already. Replace it?\n2 = Roof"))});
        QTest::keyClick(m_table, Qt::Key_Insert);
    };
    m_table->setFocus();
    makeValue(QMessageBox::No);
    EXPECT_EQ(QStringLiteral("2\ttext\t10\tRoof"), Lines().value(1));
    makeValue(QMessageBox::Yes);
    EXPECT_EQ(QStringLiteral("2\ttext\t10\tWall"), Lines().value(1));
    Choose(0);
    {
        Person person({Person::Type(QStringLiteral("3")), Person::Click(QMessageBox::Yes, QStringLiteral("3 = true"))});
        QTest::keyClick(m_table, Qt::Key_F2);
    }
    EXPECT_THAT(Lines(), ElementsAre(u"2\ttext\t10\tWall", u"3\tint\t4\t7"));
    Press(QKeySequence::Undo);
    Press(QKeySequence::Undo);
    EXPECT_THAT(Lines(), ElementsAre(u"1\tint\t4\t7", u"2\ttext\t10\tRoof", u"3\tbool\t4\ttrue"));
    {
        Person person({Person::Type(QStringLiteral("1 2")),
                       Person::Click(QMessageBox::Ok, QStringLiteral("a store of these keys already"))});
        Action("newNode")->trigger();
    }

    const RegistryKey key(L"Software\\TakenTest");
    key.Open().WriteKeyInt(L"page", 5);
    Open(std::make_unique<RegistrySource>());
    ASSERT_TRUE(m_window->GoTo(key.GetPlace()) && WaitFor([this] { return Lines().size() == 1; }));
    Choose(0);
    {
        Person person({Person::Type(QStringLiteral("PAGE"))});
        QTest::keyClick(m_table, Qt::Key_F2);
    }
    EXPECT_THAT(Lines(), ElementsAre(u"PAGE\tint\t4\t5")) << "it is the same name";
    Choose(0);
    key.Open().DeleteValue(L"", L"PAGE");
    Person person({Person::Click(QMessageBox::Ok, QStringLiteral("no longer there"))});
    QTest::keyClick(m_table, Qt::Key_Return);
}

TEST_F(SettingsWindowTest, ShowsTheRegistryAndItsChangesAndSearchesIt)
{
    const RegistryKey key(L"Software\\WindowTest");
    key.Open().WriteSubKeyString(L"Deep\\Deeper", L"Colour", L"azure <b>blue</b>");
    Open(std::make_unique<RegistrySource>());
    ASSERT_TRUE(m_window->GoTo(key.GetPlace()));
    EXPECT_THAT(Lines(), ElementsAre());
    key.Open().WriteKeyInt(L"new", 5);
    EXPECT_TRUE(WaitFor([this] { return Lines() == QStringList(QStringLiteral("new\tint\t4\t5")); }));
    Press(QKeySequence::Find);
    auto* const find = qobject_cast<QLineEdit*>(QApplication::focusWidget());
    ASSERT_NE(nullptr, find);
    QTest::keyClicks(find, QStringLiteral("AZURE"));
    EXPECT_TRUE(
        WaitFor([this] { return Lines() == QStringList(QStringLiteral("Colour\tstring\t36\tazure <b>blue</b>")); }));
    EXPECT_EQ(0, m_table->currentIndex().row());
    Press(QKeySequence(Qt::Key_Escape), find);
    EXPECT_FALSE(find->isVisible());
    Choose(0);
    Press(QKeySequence::Copy);
    EXPECT_TRUE(QApplication::clipboard()->text().contains(u'\t'));
}

TEST_F(SettingsWindowTest, ManyKeysStayFluid)
{
    const RegistryKey key(L"Software\\ManyTest");
    constexpr int kKeys = 6000;
    std::wstring text = L"REGEDIT4\n";
    for (int i = 0; i < kKeys; ++i)
        text += L"[HKEY_CURRENT_USER\\Software\\ManyTest\\key" + std::to_wstring(i) + L"]\n";
    XRegistryImport result;
    ASSERT_TRUE(XImportRegistry(text.c_str(), result));
    Open(std::make_unique<RegistrySource>());
    ASSERT_TRUE(m_window->GoTo(key.GetPlace()));
    const QModelIndex many = m_tree->currentIndex();
    m_tree->expand(many);
    EXPECT_LT(m_tree->model()->rowCount(many), kKeys) << "the window does not wait for all";
    int slices = 0;
    EXPECT_TRUE(WaitFor([&] { return ++slices > 0 && m_tree->model()->rowCount(many) == kKeys; }));
    EXPECT_GT(slices, 5) << "events are handled meanwhile";
    key.Open().DeleteKey(L"key7", true);
    EXPECT_TRUE(WaitFor([&] { return m_tree->model()->rowCount(many) == kKeys - 1; }));
    EXPECT_TRUE(m_tree->isExpanded(many));
}

TEST_F(SettingsWindowTest, DamageIsMarkedAndRepairedOnlyOnRequest)
{
    for (const unsigned store : {2U, 1U})
        ASSERT_TRUE(m_folder.Save(store, 7, [&](CCustomData& values) { values.SetInt(1, 1); }));
    QByteArray bytes = m_folder.Bytes();
    bytes[4 + 52 + 8] = 'x';
    m_folder.Write(bytes);
    Open(std::make_unique<PreferenceSource>(m_folder.m_file));
    ASSERT_TRUE(m_window->GoTo({L"@56"}));
    EXPECT_FALSE(m_tree->currentIndex().data(Qt::DecorationRole).isNull());
    EXPECT_TRUE(m_tree->currentIndex().data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("damaged")));
    EXPECT_FALSE(Action("newValue")->isEnabled());
    ASSERT_TRUE(m_window->GoTo({L"0000000100000007"}, L"00000001"));
    m_table->setFocus();
    const auto edit = [this](QMessageBox::StandardButton answer) {
        Person person({Person::Type(QStringLiteral("3")), Person::Click(answer, QStringLiteral(".damaged"))});
        QTest::keyClick(m_table, Qt::Key_Return);
    };
    edit(QMessageBox::No);
    EXPECT_EQ(bytes, m_folder.Bytes());
    edit(QMessageBox::Yes);
    EXPECT_EQ(bytes, PreferenceFolder::BytesOf(m_folder.m_file + QStringLiteral(".damaged")));
    int number = 0;
    EXPECT_TRUE(m_folder.Load(1, 7).GetInt(1, number, 0));
    EXPECT_EQ(3, number);
}

TEST_F(SettingsWindowTest, TextsFitAndControlsHaveNamesInEachLanguage)
{
    tev::test::InEachLanguage([this] {
        OpenStore();
        Press(QKeySequence::Find);
        tev::test::ExpectSoundWindow(*m_window);
        Choose(1);
        Person person({[](QDialog& dialog) {
            tev::test::ExpectSoundWindow(dialog);
            dialog.reject();
        }});
        QTest::keyClick(m_table, Qt::Key_Return);
    });
}

TEST_F(SettingsWindowTest, TabGoesThroughAllControls)
{
    OpenStore();
    Press(QKeySequence::Find);
    m_tree->setFocus();
    EXPECT_THAT(tev::test::TabOrder(*m_window),
                ElementsAre("Keys and stores", "Values", "Find", "Previous match", "Next match"));
    Choose(1);
    Person person({[](QDialog& dialog) {
        EXPECT_THAT(tev::test::TabOrder(dialog),
                    ElementsAre("Value", "Special characters as \\uXXXX", "OK", "Cancel", "Name"));
        dialog.reject();
    }});
    QTest::keyClick(m_table, Qt::Key_Return);
}

TEST_F(SettingsWindowTest, KeepsItsPlace)
{
    const CXTString<wchar_t> file = XFromQString(m_folder.m_folder.filePath(QStringLiteral("place.pref")));
    QSize size;
    QList<int> division;
    for (const bool isAgain : {false, true})
    {
        SettingsWindow window(std::make_unique<RegistrySource>(), file);
        window.show();
        auto* const splitter = window.findChild<QSplitter*>();
        if (isAgain)
        {
            EXPECT_EQ(size, window.size());
            EXPECT_EQ(division, splitter->sizes());
        }
        window.resize(window.size() - QSize(150, 100));
        splitter->setSizes({200, window.width() - 200});
        size = window.size();
        division = splitter->sizes();
        window.close();
    }
}

TEST_F(SettingsWindowTest, AKeyIsDeletedOnlyAsThePersonHasSeenIt)
{
    const RegistryKey key(L"Software\\DeleteTest");
    key.Open().WriteSubKeyString(L"Deep", L"Colour", L"blue");
    Open(std::make_unique<RegistrySource>());
    for (const bool isChanged : {true, false})
    {
        ASSERT_TRUE(m_window->GoTo(key.GetPlace()));
        m_tree->setFocus();
        std::vector<Person::Answer> answers{[&](QDialog& dialog) {
            if (isChanged)
                key.Open().WriteSubKeyString(L"Deep", L"Colour", L"green");
            Person::Click(QMessageBox::Yes)(dialog);
        }};
        if (isChanged)
            answers.push_back(Person::Click(QMessageBox::Ok, QStringLiteral("Nothing was changed")));
        Person person(answers);
        QTest::keyClick(m_tree, Qt::Key_Delete);
        EXPECT_EQ(isChanged, key.Open().GetSubKeyString(L"Deep", L"Colour", L"", false) == L"green");
    }
}

TEST_F(SettingsWindowTest, OneDialogIsOpenAtATime)
{
    OpenStore();
    Choose(0);
    Person person({[this](QDialog& dialog) {
        int others = 0;
        QTimer look;
        look.callOnTimeout([&] {
            auto* const other = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            others += other == &dialog ? 0 : 1;
            if (other != nullptr && other != &dialog)
                other->reject();
        });
        look.start(0);
        for (const char* const action :
             {"openFile", "openRegistry", "export", "import", "newNode", "newValue", "editValue", "rename", "delete"})
            Action(action)->trigger();
        EXPECT_EQ(0, others);
        EXPECT_THAT(Lines(), ElementsAre(u"1\tint\t4\t7", u"2\ttext\t10\tRoof", u"3\tbool\t4\ttrue"));
        dialog.reject();
    }});
    QTest::keyClick(m_table, Qt::Key_Return);
}

// A search and lists that are read end with the window.
TEST_F(SettingsWindowTest, ClosesWhileItReads)
{
    const RegistryKey key(L"Software\\CloseTest");
    std::wstring text = L"REGEDIT4\n";
    for (int i = 0; i < 3000; ++i)
        text += L"[HKEY_CURRENT_USER\\Software\\CloseTest\\key" + std::to_wstring(i) + L"]\n";
    XRegistryImport result;
    ASSERT_TRUE(XImportRegistry(text.c_str(), result));
    Open(std::make_unique<RegistrySource>());
    ASSERT_TRUE(m_window->GoTo(key.GetPlace()));
    m_tree->expand(m_tree->currentIndex());
    Press(QKeySequence::Find);
    QTest::keyClicks(QApplication::focusWidget(), QStringLiteral("absent"));
    EXPECT_TRUE(static_cast<NodeModel*>(m_tree->model())->IsLoading());
    EXPECT_TRUE(m_window->close());
    m_window.reset();
}

TEST_F(SettingsWindowTest, TextsFitAtTwiceTheScaleToo)
{
    QProcess again;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"), QStringLiteral("2"));
    again.setProcessEnvironment(environment);
    again.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=*.TextsFitAndControls*")});
    ASSERT_TRUE(again.waitForFinished(kPatience * 3));
    EXPECT_EQ(0, again.exitCode()) << again.readAll().toStdString();
}

TEST_F(SettingsWindowTest, WhatMayNotBeWrittenIsShownReadOnly)
{
    OpenStore();
    const uid_t user = getuid();
    ASSERT_EQ(0, chmod(QFile::encodeName(m_folder.m_folder.path()).constData(), 0555));
    ASSERT_TRUE(user != 0 || setreuid(65534, static_cast<uid_t>(-1)) == 0);
    Press(QKeySequence::Refresh);
    Choose(0);
    for (const char* const action : {"newValue", "rename", "delete"})
        EXPECT_FALSE(Action(action)->isEnabled()) << action;
    EXPECT_FALSE(Action("newNode")->isEnabled());
    {
        Person person({[](QDialog& dialog) {
            EXPECT_TRUE(dialog.findChild<QLineEdit*>()->isReadOnly());
            EXPECT_EQ(nullptr, dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok));
            dialog.reject();
        }});
        QTest::keyClick(m_table, Qt::Key_Return);
    }
    ASSERT_TRUE(user != 0 || setreuid(0, static_cast<uid_t>(-1)) == 0);
    ASSERT_EQ(0, chmod(QFile::encodeName(m_folder.m_folder.path()).constData(), 0755));
    Press(QKeySequence::Refresh);
    EXPECT_TRUE(Action("delete")->isEnabled());
}

TEST(SettingsCommandLine, SaysWhatIsOpenedAndTheExitCode)
{
    const QTemporaryDir folder;
    const QString missing = folder.filePath(QStringLiteral("none"));
    const struct
    {
        QStringList m_words;
        int m_exitCode; // -1: goes on
        bool m_isKey;
        bool m_opens;
    } cases[] = {
        {{QStringLiteral("--help")}, 0, false, true},
        {{QStringLiteral("--version")}, 0, false, true},
        {{QStringLiteral("--wrong")}, 2, false, true},
        {{QStringLiteral("a"), QStringLiteral("b")}, 2, false, true},
        {{QString()}, 2, false, true},
        {{}, -1, false, true},
        {{missing}, -1, false, false},
        {{QStringLiteral("--"), QStringLiteral("--wrong")}, -1, false, false},
        {{folder.path()}, -1, false, false},
        {{QStringLiteral("HKEY_CURRENT_USER")}, -1, true, true},
        {{QStringLiteral("HKEY_USERS\\none\\such")}, -1, true, false},
    };
    for (const auto& row : cases)
    {
        SCOPED_TRACE(row.m_words.join(u' ').toStdString());
        const CommandLine line = ParseCommandLine(row.m_words);
        EXPECT_EQ(row.m_exitCode, line.m_isOver ? line.m_exitCode : -1);
        EXPECT_EQ(line.m_isOver, !line.m_text.isEmpty());
        if (line.m_isOver)
            continue;
        EXPECT_EQ(row.m_isKey, line.m_isKey);
        EXPECT_EQ(row.m_opens, CheckTarget(line).isEmpty());
    }
}

} // namespace
