#include "qt/toolkit/ReportDialog.h"

#include "crash/CCrashHandler.h"
#include "qt/toolkit/CQtUserInterface.h"
#include "qt/toolkit/QtText.h"
#include "services/LogFile.h"
#include "services/Paths.h"
#include "tests/qt/support/Person.h"
#include "tests/support/System.h"
#include "tests/support/TempFolder.h"
#include "text/Language.h"

#include <QHeaderView>
#include <QLineEdit>
#include <QTableWidget>

namespace
{
using namespace tev::test;

class ReportDialogs : public testing::Test
{
protected:
    ReportDialogs() { XSetLanguage(XLanguage::English); }
    ~ReportDialogs() override { XSetLanguage(m_before); }

    XReportFile File(const char* name, const std::string& bytes) const
    {
        std::ofstream(m_folder.Path(name), std::ios::binary) << bytes;
        return {m_folder.WidePath(name).c_str(), L"about it"};
    }

    const XLanguage m_before = XGetLanguage();
    const TempFolder m_folder;
};

QString Cell(const QTableWidget& table, int row, int column)
{
    return table.item(row, column)->text();
}

QString LookInside(QDialog& dialog, int row)
{
    auto* const table = dialog.findChild<QTableWidget*>();
    while (table->currentRow() < row)
        QTest::keyClick(table, Qt::Key_Down);
    for (const QPlainTextEdit* const view : dialog.findChildren<QPlainTextEdit*>())
    {
        if (view->accessibleName() == QStringLiteral("Content of the file"))
            return view->toPlainText();
    }
    return {};
}

TEST_F(ReportDialogs, EachFileIsShownWithALookInside)
{
    std::string wide("\xFF\xFE", 2);
    for (const char c : std::string("r\xE9sum\xE9"))
        wide += {c, '\0'};
    std::vector<XReportFile> files = {File("a.log", wide), File("b.bin", std::string("\x00\x01Tev\xFF", 6)),
                                      File("c.txt", std::string(200000, 'x') + "\xC3\xA9"), File("huge.txt", "start")};
    std::filesystem::resize_file(m_folder.Path("huge.txt"), 1ULL << 30);
    ASSERT_EQ(0, mkfifo(m_folder.Path("pipe").c_str(), 0600));
    files.push_back({m_folder.WidePath("pipe").c_str(), L""});
    files.push_back({m_folder.WidePath("missing.txt").c_str(), L""});
    tev::ReportDialog dialog(L"It happened.", files, nullptr);
    dialog.show();
    const auto& table = *dialog.findChild<QTableWidget*>();
    EXPECT_EQ(QStringLiteral("Description"), table.horizontalHeaderItem(1)->text());
    struct Row
    {
        const char* m_name;
        const char* m_size;
        const char* m_type;
    };
    const Row rows[] = {{"a.log", "14 bytes", "LOG"},           {"b.bin", "6 bytes", "BIN"},
                        {"c.txt", "195.3 KiB", "TXT"},          {"huge.txt", "left out: too large", "TXT"},
                        {"pipe", "left out: not readable", ""}, {"missing.txt", "left out: not readable", "TXT"}};
    ASSERT_EQ(6, table.rowCount());
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(QString::fromUtf8(rows[i].m_name), Cell(table, i, 0));
        EXPECT_EQ(QString::fromUtf8(rows[i].m_size), Cell(table, i, 2));
        EXPECT_EQ(QString::fromUtf8(rows[i].m_type), Cell(table, i, 3));
        EXPECT_EQ(XToQString(files[static_cast<std::size_t>(i)].m_path), table.item(i, 0)->toolTip());
    }
    EXPECT_EQ(QStringLiteral("about it"), Cell(table, 0, 1));
    EXPECT_EQ(QStringLiteral("r\u00e9sum\u00e9"), LookInside(dialog, 0));
    EXPECT_EQ(QStringLiteral("00000000  00 01 54 65 76 ff                                ..Tev.\n"),
              LookInside(dialog, 1));
    EXPECT_TRUE(LookInside(dialog, 2) ==
                QString(131072, u'x') + QStringLiteral("\n[The first 128.0 KiB of 195.3 KiB]"));
    EXPECT_TRUE(LookInside(dialog, 3).endsWith(QStringLiteral("\n[The first 8.0 KiB of 1.0 GiB]")));
    EXPECT_EQ(QStringLiteral("This file cannot be read."), LookInside(dialog, 4));
}

TEST_F(ReportDialogs, TheAnswerIsWhatThePersonEntered)
{
    struct Case
    {
        const char* m_button;
        bool m_send;
        bool m_save;
    };
    const Case cases[] = {{"Mail…", true, false}, {"Save…", false, true}, {"Don't send", false, false}};
    for (const Case& one : cases)
    {
        tev::ReportDialog dialog(L"It happened.", {}, nullptr);
        dialog.show();
        QTest::keyClicks(dialog.focusWidget(), QStringLiteral("drawing"));
        auto* const address = dialog.findChild<QLineEdit*>();
        QTest::keyClick(dialog.focusWidget(), Qt::Key_Tab);
        EXPECT_EQ(address, dialog.focusWidget());
        QTest::keyClicks(address, QStringLiteral("me@example.com "));
        QTest::keyClick(address, Qt::Key_Return);
        EXPECT_TRUE(dialog.isVisible()) << "Enter in a field decides nothing";
        Press(dialog, QString::fromUtf8(one.m_button));
        EXPECT_FALSE(dialog.isVisible());
        const XReportAnswer& answer = dialog.Answer();
        EXPECT_EQ(one.m_send, answer.m_send);
        EXPECT_EQ(one.m_save, answer.m_save);
        const bool isTaken = one.m_send || one.m_save;
        EXPECT_STREQ(isTaken ? L"drawing" : L"", answer.m_description);
        EXPECT_STREQ(isTaken ? L"me@example.com" : L"", answer.m_mailAddress);
    }
}

TEST_F(ReportDialogs, NothingIsCutOffInAnyLanguage)
{
    InEachLanguage([this] {
        tev::ReportDialog dialog(CXTString<wchar_t>(std::wstring(900, L'w')), {File("a.log", "text")}, nullptr);
        dialog.show();
        ExpectSoundWindow(dialog);
    });
    tev::ReportDialog dialog(L"It happened.", {File("a.log", "text")}, nullptr);
    dialog.show();
    EXPECT_THAT(TabOrder(dialog),
                testing::ElementsAre("What were you doing?", "Your mail address", "Mail…", "Save…", "Don't send",
                                     "It happened.", "Files of the report", "Content of the file"));
}

TEST_F(ReportDialogs, WhatEarlierRunsLeftIsLookedAtOnceTheLoopRuns)
{
    CQtUserInterface ui;
    XSetUserInterface(&ui);
    CrashInstall(nullptr, L"Modeller", L"2.5", xCrashReport);
    EXPECT_FALSE(ui.CanAsk());
    const std::filesystem::path left(GetCommonApplicationDataPath() / L"DebugReport.zip.1");
    std::filesystem::create_directories(left); // as a process that was ended leaves it
    InLoop([&] {
        EXPECT_TRUE(ui.CanAsk());
        EXPECT_TRUE(QTest::qWaitFor([&] { return !std::filesystem::exists(left); }, kWindowTimeMs));
    });
    CrashUninstall();
    XSetUserInterface(nullptr);
}

TEST_F(ReportDialogs, AReportOfTheRunningProcessIsShownAndSaved)
{
    CQtUserInterface ui;
    XSetUserInterface(&ui);
    CrashInstall(nullptr, L"Modeller", L"2.5", xCrashReport);
    const QString target = QString::fromStdString(m_folder.Path("kept.zip").string());
    const Person person({{{},
                          [](QDialog& dialog) {
                              const auto& table = *dialog.findChild<QTableWidget*>();
                              EXPECT_THAT(TextOf(dialog).toStdString(), testing::HasSubstr("Modeller version 2.5"));
                              int dumps = 0;
                              for (int row = 0; row < table.rowCount(); ++row)
                              {
                                  if (Cell(table, row, 3) != QStringLiteral("DMP"))
                                      continue;
                                  ++dumps;
                                  EXPECT_THAT(LookInside(dialog, row).toStdString(),
                                              testing::ContainsRegex("thread [0-9]+, this one:\n  0  "));
                              }
                              EXPECT_EQ(1, dumps);
                              Press(dialog, QStringLiteral("Save…"));
                          }},
                         {{}, [&target](QDialog& dialog) {
                              auto* const name = dialog.findChild<QLineEdit*>();
                              name->setText(target);
                              QTest::keyClick(name, Qt::Key_Return);
                          }}});
    InLoop([] { CrashGenerateErrorReport(nullptr, true); });
    CrashUninstall();
    XSetUserInterface(nullptr);
    EXPECT_TRUE(std::filesystem::exists(m_folder.Path("kept.zip")));
}
} // namespace
