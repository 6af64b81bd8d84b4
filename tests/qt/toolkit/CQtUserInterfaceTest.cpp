#include "qt/toolkit/CQtUserInterface.h"

#include "qt/toolkit/ElidedLabel.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"
#include "services/LogFile.h"
#include "tests/qt/support/Person.h"
#include "tests/qt/toolkit/OpenedLinks.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/TempFolder.h"
#include "text/Language.h"
#include "threads/CCustomThread.h"
#include "threads/ThreadRelations.h"
#include "ui/CLogInfo.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <future>
#include <set>

namespace
{
using namespace tev::test;
using Text = CXTString<wchar_t>;
using Severity = CUserInterface::Severity;

/// A worker that asks, and keeps the answer.
class Asker : public CCustomThread
{
public:
    Asker(CUserInterface& ui, Text question, std::atomic<int>& answer)
        : m_ui(ui), m_question(std::move(question)), m_answer(answer)
    {
    }

    Asker& Begin(unsigned flags = kBeginWithoutAutoDelete)
    {
        EXPECT_EQ(BeginThread(this, xThreadPriorityNormal, flags, 0), this);
        return *this;
    }

protected:
    bool Run() override
    {
        m_answer = m_ui.AskYesNo(m_question, false) ? 1 : 0;
        return true;
    }

private:
    CUserInterface& m_ui;
    const Text m_question;
    std::atomic<int>& m_answer;
};

using Act = std::function<void(QDialog&)>;

Act PressKey(Qt::Key key)
{
    return [key](QDialog& dialog) { QTest::keyClick(&dialog, key); };
}

Act PressButton(const char* text)
{
    return [text = QString::fromUtf8(text)](QDialog& dialog) { Press(dialog, text); };
}

/// As by the title bar of its window.
void CloseIt(QDialog& dialog)
{
    dialog.close();
}

/// The colours of a window's pixels.
std::set<QRgb> ColorsOf(QWidget& window)
{
    const QImage image = window.grab().toImage();
    std::set<QRgb> colors;
    for (int y = 0; y < image.height(); ++y)
    {
        for (int x = 0; x < image.width(); ++x)
            colors.insert(image.pixel(x, y));
    }
    return colors;
}

class QtUserInterface : public testing::Test
{
protected:
    QtUserInterface() { XSetLanguage(XLanguage::English); }
    ~QtUserInterface() override
    {
        XSetLanguage(m_before);
        tev::FollowLanguage();
    }

    /// Answers of `work`, run by another thread while the window thread handles events.
    template <class WORK>
    static auto OnWorker(WORK work)
    {
        decltype(work()) result{};
        InLoop([&] {
            auto answer = std::async(std::launch::async, work);
            EXPECT_TRUE(QTest::qWaitFor(
                [&answer] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                kWindowTimeMs));
            result = answer.get();
        });
        return result;
    }

    const XLanguage m_before = XGetLanguage();
    CQtUserInterface m_ui;
};

TEST_F(QtUserInterface, QuestionsOfWorkersAreAnsweredByKeysAndButtonsInBothLanguages)
{
    struct Case
    {
        XLanguage m_language;
        bool m_safeAnswer;
        Act m_act;
        bool m_answer;
    };
    const Case cases[] = {
        {XLanguage::English, false, PressButton("Yes"), true},
        {XLanguage::French, true, PressButton("Non"), false},
        {XLanguage::French, false, PressButton("Oui"), true},
        {XLanguage::English, false, PressKey(Qt::Key_Escape), false},
        {XLanguage::English, true, PressKey(Qt::Key_Escape), true},
        {XLanguage::English, true, PressKey(Qt::Key_Return), true},
        {XLanguage::English, false, PressKey(Qt::Key_Return), false},
        {XLanguage::English, true, CloseIt, true},
    };
    for (const Case& one : cases)
    {
        XSetLanguage(one.m_language);
        const Person person({{QStringLiteral("Replace it?"), [&one](QDialog& dialog) {
                                  ExpectSoundWindow(dialog);
                                  one.m_act(dialog);
                              }}});
        EXPECT_EQ(one.m_answer, OnWorker([&] { return m_ui.AskYesNo(L"Replace it?", one.m_safeAnswer); }));
    }
}

TEST_F(QtUserInterface, DialogsOfTheHostHaveTheLanguageOfTheLibrary)
{
    XSetLanguage(XLanguage::French);
    const CQtUserInterface ui;
    EXPECT_EQ(QStringLiteral("Annuler"), QCoreApplication::translate("QPlatformTheme", "Cancel"));
}

TEST_F(QtUserInterface, WhatThreadsAskIsShownOneAfterTheOther)
{
    InLoop([this] {
        std::vector<QString> shown;
        const Act take = [&shown](QDialog& dialog) {
            shown.push_back(TextOf(dialog));
            int open = 0;
            for (const QWidget* const window : QApplication::topLevelWidgets())
                open += window->isVisible() && qobject_cast<const QDialog*>(window) != nullptr;
            EXPECT_EQ(1, open);
            Press(dialog, QStringLiteral("Yes"));
        };
        const Person person({{{}, take}, {{}, take}, {{}, take}});
        std::atomic<int> answers[3] = {};
        Asker askers[] = {{m_ui, L"same", answers[0]}, {m_ui, L"same", answers[1]}, {m_ui, L"other", answers[2]}};
        for (Asker& asker : askers)
            asker.Begin();
        EXPECT_TRUE(person.WaitUntilDone());
        for (Asker& asker : askers)
            EXPECT_TRUE(asker.WaitForEnd(kWindowTimeMs));
        EXPECT_EQ(3, answers[0] + answers[1] + answers[2]);
        std::sort(shown.begin(), shown.end());
        EXPECT_EQ(std::vector<QString>({QStringLiteral("other"), QStringLiteral("same"), QStringLiteral("same")}),
                  shown);
    });
}

TEST_F(QtUserInterface, AnErrorIsShownWhileADialogIsOpen)
{
    const auto question = QStringLiteral("Go on?");
    const Person person({{question,
                          [this](QDialog& dialog) {
                              QTimer::singleShot(0, &dialog,
                                                 [this] { m_ui.ShowMessage(Severity::Error, L"disk full"); });
                          }},
                         {QStringLiteral("disk full"), PressButton("OK")},
                         {question, PressButton("Yes")}});
    EXPECT_TRUE(OnWorker([&] { return m_ui.AskYesNo(L"Go on?", false); }));
}

TEST_F(QtUserInterface, AWindowThreadThatWaitsInTheLibraryGoesOnAnswering)
{
    std::atomic<int> answers[2] = {};
    InLoop([&] {
        const Person person({{{}, PressButton("Yes")}, {{}, PressButton("Yes")}});
        {
            Asker waitedFor(m_ui, L"one", answers[0]);
            EXPECT_TRUE(waitedFor.Begin().WaitForEnd(kWindowTimeMs));
        }
        (new Asker(m_ui, L"two", answers[1]))->Begin(0);
        CCustomThread::WaitEndOfThreads(false);
    });
    EXPECT_EQ(1, answers[0]);
    EXPECT_EQ(1, answers[1]);
}

TEST_F(QtUserInterface, WhereNothingCanBeShownTextsAreLoggedAndAnswersAreSafe)
{
    const TempFolder folder;
    ASSERT_TRUE(SetLogFile(folder.WidePath("a.log").c_str(), xLogCreate, xLogMute)); // no header
    SetLogLevel(0xFF);
    EXPECT_TRUE(m_ui.AskYesNo(L"no loop", true));
    m_ui.SetPatience(300);
    InLoop([&] {
        // The window thread waits in a way that the library knows nothing of.
        EXPECT_TRUE(std::async(std::launch::async, [&] { return m_ui.AskYesNo(L"stuck", true); }).get());
        const CXSilentThread silent;
        EXPECT_FALSE(m_ui.AskYesNo(L"silent", false));
        CPathString path(L"proposed");
        EXPECT_FALSE(m_ui.AskForSavePath(L"*.zip", path) || m_ui.AskForPassword(L"a.zip", path));
        EXPECT_EQ(L"proposed", path);
    });
    EXPECT_EQ(0, ResultInChild([&] { return m_ui.AskYesNo(L"child", false) ? 1 : 0; }));
    CloseLogFile();
    const std::string bytes = folder.ReadFile("a.log");
    std::string log;
    for (std::size_t i = 2; i < bytes.size(); i += 2)
        log += bytes[i];
    EXPECT_EQ(0U, log.find("no loop\nstuck\nsilent\n")) << log;
}

TEST_F(QtUserInterface, TheDialogOfAnAbandonedCallIsClosed)
{
    m_ui.SetPatience(300);
    std::future<bool> answer;
    const Person person({{QStringLiteral("late?"), [&](QDialog& dialog) {
                              EXPECT_FALSE(answer.get()); // as long as this waits, no event is handled
                              EXPECT_TRUE(QTest::qWaitFor([&] { return !dialog.isVisible(); }, kWindowTimeMs));
                          }}});
    InLoop([&] {
        answer = std::async(std::launch::async, [&] { return m_ui.AskYesNo(L"late?", false); });
        EXPECT_TRUE(person.WaitUntilDone());
        EXPECT_TRUE(QTest::qWaitFor([] { return QApplication::activeModalWidget() == nullptr; }, kWindowTimeMs));
    });
}

TEST_F(QtUserInterface, WhatIsOpenWhenTheApplicationEndsIsAnsweredSafely)
{
    for (const bool isAsked : {true, false}) // windows are asked to close, or the loop just ends
    {
        std::atomic<int> answers[2] = {{-1}, {-1}};
        Asker first(m_ui, L"first", answers[0]);
        Asker second(m_ui, L"second", answers[1]);
        const Person person({{{}, [&](QDialog&) { isAsked ? QCoreApplication::quit() : QCoreApplication::exit(3); }}});
        QTimer::singleShot(0, &person, [&] {
            first.Begin();
            second.Begin();
        });
        QApplication::exec();
        EXPECT_TRUE(first.WaitForEnd(kWindowTimeMs) && second.WaitForEnd(kWindowTimeMs));
        EXPECT_EQ(0, answers[0]);
        EXPECT_EQ(0, answers[1]);
    }
    // It runs once more.
    const Person person({{{}, PressButton("Yes")}});
    EXPECT_TRUE(OnWorker([&] { return Eventually([&] { return m_ui.AskYesNo(L"again?", false); }); }));
}

TEST_F(QtUserInterface, LinesHaveTheColoursOfTheTheme)
{
    QFont font = QApplication::font();
    const QFont fontBefore = font;
    font.setStyleStrategy(QFont::NoAntialias);
    QApplication::setFont(font);
    XSetUserInterface(&m_ui);
    QWidget parent;
    CXArray<IoLogInfo> records;
    for (const unsigned level : {0U, 1U, 2U, 4U})
        records.Add({L"level", level});
    for (const bool isDark : {false, true})
    {
        tev::SetColorTheme(isDark ? tev::ColorTheme::Dark : tev::ColorTheme::Light);
        const Person person({{QStringLiteral("level\nlevel\nlevel\nlevel"), [&](QDialog& dialog) {
                                  ExpectSoundWindow(dialog);
                                  EXPECT_EQ(&parent, dialog.parentWidget());
                                  const std::set<QRgb> colors = ColorsOf(dialog);
                                  for (const unsigned level : {1U, 2U, 4U})
                                      EXPECT_EQ(1U, colors.count(tev::LevelColor(level, isDark).rgb()))
                                          << level << isDark;
                                  PressKey(Qt::Key_Escape)(dialog);
                              }}});
        InLoop([&] { CLogInfo(records, 0, &parent).DoModal(); });
    }
    tev::SetColorTheme(tev::ColorTheme::System);
    EXPECT_FALSE(XGetUserInterface().IsDarkTheme());
    XSetUserInterface(nullptr);
    QApplication::setFont(fontBefore);
}

TEST_F(QtUserInterface, APasswordIsTypedAndItsFileIsNamed)
{
    const Text path = Text(L"/data/") + Text(std::wstring(300, L'x')) + L"/a.zip";
    Text password = L"before";
    const auto ask = [&](const Act& act) {
        const Person person({{{}, act}});
        return OnWorker([&] { return m_ui.AskForPassword(path, password); });
    };
    EXPECT_FALSE(ask(PressKey(Qt::Key_Escape)));
    EXPECT_STREQ(L"before", password);
    EXPECT_TRUE(ask([&](QDialog& dialog) {
        ExpectSoundWindow(dialog);
        auto* const field = dialog.findChild<QLineEdit*>();
        EXPECT_EQ(field, dialog.focusWidget());
        EXPECT_FALSE(ButtonOf(dialog, QStringLiteral("OK"))->isEnabled());
        QTest::keyClicks(field, QStringLiteral("pss"));
        field->setCursorPosition(1);
        field->insert(QStringLiteral("\u00e4"));
        EXPECT_NE(field->text(), field->displayText());
        QTest::mouseClick(dialog.findChild<QCheckBox*>(), Qt::LeftButton, {}, QPoint(8, 8));
        EXPECT_EQ(field->text(), field->displayText());
        const auto* const name = dialog.findChild<tev::ElidedLabel*>();
        EXPECT_EQ(XToQString(path), name->toolTip());
        EXPECT_TRUE(name->text().startsWith(QStringLiteral("/data/")) &&
                    name->text().endsWith(QStringLiteral("/a.zip")));
        QTest::keyClick(field, Qt::Key_Return);
    }));
    EXPECT_STREQ(L"p\u00e4ss", password);
}

TEST_F(QtUserInterface, AFileToSaveIsChosen)
{
    const TempFolder folder;
    const CPathString proposed = folder.WidePath("Report a.zip").c_str();
    CPathString path = proposed;
    const auto ask = [&](const Act& act) {
        const Person person({{{}, act}});
        return OnWorker([&] { return m_ui.AskForSavePath(L"Zip files (*.zip)", path); });
    };
    XSetLanguage(XLanguage::French);
    EXPECT_FALSE(ask([](QDialog& dialog) { Press(dialog, QStringLiteral("Annuler")); }));
    EXPECT_EQ(proposed, path);
    EXPECT_TRUE(ask([](QDialog& dialog) {
        auto* const name = dialog.findChild<QLineEdit*>();
        EXPECT_EQ(QStringLiteral("Report a.zip"), name->text());
        name->setText(QStringLiteral("other"));
        QTest::keyClick(name, Qt::Key_Return);
    }));
    EXPECT_EQ(CPathString(folder.WidePath("other.zip").c_str()), path);
}

TEST_F(QtUserInterface, NotificationsWaitForNobodyAndOpenWhatIsHarmless)
{
    OpenedLinks links;
    for (const QString& scheme : {QStringLiteral("file"), QStringLiteral("https")})
        QDesktopServices::setUrlHandler(scheme, &links, "Open");
    struct Case
    {
        const wchar_t* m_link;
        const char* m_button;
        QString m_opened;
    };
    const Case cases[] = {{L"explore:/data/r/a.zip", "Open the folder", QStringLiteral("file:///data/r")},
                          {L"https://example.com/a", "Open", QStringLiteral("https://example.com/a")},
                          {L"file:///usr/bin/true", nullptr, {}},
                          {L"", nullptr, {}}};
    for (const Case& one : cases)
    {
        InLoop([&] {
            std::async(std::launch::async, [&] { m_ui.Notify(L"By hand", L"Please send it.", one.m_link); }).get();
            QDialog* shown = nullptr;
            ASSERT_TRUE(QTest::qWaitFor(
                [&shown] {
                    for (QWidget* const window : QApplication::topLevelWidgets())
                    {
                        if (window->isVisible() && window->windowTitle() == QStringLiteral("By hand"))
                            shown = qobject_cast<QDialog*>(window);
                    }
                    return shown != nullptr;
                },
                kWindowTimeMs));
            ExpectSoundWindow(*shown);
            EXPECT_EQ(nullptr, QApplication::activeModalWidget());
            links.m_opened.clear();
            EXPECT_EQ(one.m_button == nullptr ? 1 : 2, shown->findChildren<QPushButton*>().size()) << one.m_link;
            if (one.m_button != nullptr)
                PressButton(one.m_button)(*shown);
            EXPECT_EQ(one.m_opened, links.m_opened.join(u' '));
            Press(*shown, QStringLiteral("Close"));
        });
    }
    for (const QString& scheme : {QStringLiteral("file"), QStringLiteral("https")})
        QDesktopServices::unsetUrlHandler(scheme);
}

TEST_F(QtUserInterface, TabGoesThroughWhatCanBeUsed)
{
    using Names = std::vector<std::string>;
    std::vector<Names> orders;
    const auto look = [&](QDialog& dialog) {
        QTest::keyClicks(dialog.focusWidget(), QStringLiteral("x")); // without a password it cannot be accepted
        orders.push_back(TabOrder(dialog));
        dialog.reject();
    };
    Person person({{{}, look}, {{}, look}, {{}, look}});
    InLoop([&] {
        m_ui.ShowMessage(CUserInterface::Severity::Warning, L"full");
        m_ui.AskYesNo(L"Replace?", false);
        CXTString<wchar_t> password;
        m_ui.AskForPassword(L"a.zip", password);
    });
    EXPECT_EQ((std::vector<Names>{
                  {"OK", "full"}, {"No", "Replace?", "Yes"}, {"Password", "Show the password", "OK", "Cancel"}}),
              orders);
}
} // namespace
