#include "qt/settings/Transfer.h"
#include "qt/settings/SettingsWindow.h"
#include "settings/RegistryText.h"
#include "tests/qt/settings/Person.h"
#include "tests/qt/settings/SettingsTesting.h"
#include "tests/support/Eventually.h"
#include "threads/CCustomThread.h"

#include <QAction>
#include <QDir>
#include <QProgressDialog>
#include <QPushButton>
#include <QTimer>

#include <atomic>
#include <random>
#include <stdexcept>
#include <sys/stat.h>

// What comes from outside: files that are exported, imported, or bad.

namespace
{
using namespace tev::browser;
using namespace tev::browser::test;
using testing::ElementsAre;

class StillState : public TransferState
{
public:
    explicit StillState(int stepsUntilCancelled = -1) : m_left(stepsUntilCancelled) {}
    void SetProgress(int) override {}
    bool IsCancelled() const override { return m_left > 0 ? m_left-- == 0 : m_left == 0; }
    bool StartLastStep() override { return !IsCancelled(); }

private:
    mutable int m_left;
};

TEST(RegistryTransfer, ExportsAndImportsAKeyAsAWholeOrNotAtAll)
{
    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("out.reg"));
    const RegistryKey key(L"Software\\TransferTest");
    ASSERT_TRUE(key.Open().WriteSubKeyString(L"Below", L"text", std::wstring(700000, L'x').c_str()));
    const QString path = RegistrySource().GetPlaceText(key.GetPlace());
    for (int steps = 0; steps < 3; ++steps)
    {
        StillState cancelled(steps);
        EXPECT_EQ(QString(), ExportRegistryKey(path, file, cancelled));
        EXPECT_THAT(QDir(folder.path()).entryList(QDir::Files), ElementsAre()) << "cancelled after " << steps;
    }
    StillState state;
    EXPECT_EQ(QString(), ExportRegistryKey(path, file, state));
    EXPECT_NE(QString(), ExportRegistryKey(path + QStringLiteral("\\none"), file + u'2', state));
    EXPECT_NE(QString(), ExportRegistryKey(path, folder.filePath(QStringLiteral("no/folder")), state));
    EXPECT_THAT(QDir(folder.path()).entryList(QDir::Files), ElementsAre(u"out.reg"));
    key.Open().DeleteKey(L"Below", true);
    for (int steps = 0; steps < 5; ++steps) // the last time when all is read
    {
        StillState cancelled(steps);
        EXPECT_EQ(QString(), ImportRegistryText(file, cancelled));
        EXPECT_TRUE(key.Open().GetSubKeyString(L"Below", L"text", L"", false).IsEmpty()) << steps;
    }
    EXPECT_EQ(QString(), ImportRegistryText(file, state));
    EXPECT_EQ(700000, key.Open().GetSubKeyString(L"Below", L"text", L"", false).GetLength());
    QFile bad(file);
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly) &&
                bad.write("REGEDIT4\n[HKEY_CURRENT_USER\\Software\\TransferTest\\New]\nx\n") > 0);
    bad.close();
    EXPECT_TRUE(ImportRegistryText(file, state).startsWith(QStringLiteral("line 3: ")));
    EXPECT_THAT(TextsOf(*RegistrySource().ListNodes(key.GetPlace())), ElementsAre(u"Below"));
}

TEST(RegistryTransfer, LongWorkIsCancelledAndTheWindowWaitsForIt)
{
    QWidget parent;
    parent.show();
    bool wasCancelled = false;
    {
        Person person({[](QDialog& dialog) { QTest::mouseClick(dialog.findChild<QPushButton*>(), Qt::LeftButton); }},
                      true);
        EXPECT_TRUE(RunTransfer(&parent, QStringLiteral("work"), [&](TransferState& state) {
            wasCancelled = tev::test::Eventually([&] { return state.IsCancelled(); });
        }));
    }
    EXPECT_TRUE(wasCancelled);
    // The last step is not offered to be cancelled.
    std::atomic<bool> isSeen{false};
    QTimer look;
    look.callOnTimeout([&] {
        const QWidget* const dialog = QApplication::activeModalWidget();
        if (dialog != nullptr && dialog->isVisible() && !dialog->findChild<QPushButton*>()->isEnabled())
            isSeen = true;
    });
    look.start(5);
    EXPECT_TRUE(RunTransfer(&parent, QStringLiteral("last step"), [&](TransferState& state) {
        EXPECT_TRUE(state.StartLastStep());
        EXPECT_TRUE(tev::test::Eventually([&] { return isSeen.load(); }));
    }));
    EXPECT_FALSE(
        RunTransfer(&parent, QStringLiteral("failure"), [](TransferState&) { throw std::runtime_error("no"); }));
}

// The import waits for somebody to write into the pipe.
TEST(RegistryTransfer, AWindowThatIsToCloseClosesWhenWorkHasEnded)
{
    const QTemporaryDir folder;
    const QByteArray pipe = QFile::encodeName(folder.filePath(QStringLiteral("in.reg")));
    ASSERT_EQ(0, mkfifo(pipe.constData(), 0600));
    SettingsWindow window(std::make_unique<RegistrySource>());
    window.show();
    QAction& import = *window.findChild<QAction*>(QStringLiteral("import"));
    int step = 0;
    QTimer next;
    next.callOnTimeout([&] {
        if (CCustomThread::GetRunningThreadCount() == 0) // the person is still asked
            return;
        import.trigger();
        EXPECT_FALSE(window.close());
        EXPECT_TRUE(window.isVisible());
        if (++step < 2)
            return;
        next.stop();
        QFile(QFile::decodeName(pipe)).open(QIODevice::WriteOnly);
    });
    next.start(20);
    {
        Person person({Person::Choose(QFile::decodeName(pipe)), Person::Click(QMessageBox::Yes)});
        import.trigger();
    }
    EXPECT_EQ(2, step);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window.isVisible(); }, kPatience));
}

TEST(StoreTransfer, StoresAreCopiedIntoAFileAndTakenOverFromIt)
{
    const PreferenceFolder folder;
    const QString other = folder.m_folder.filePath(QStringLiteral("other.prefs"));
    ASSERT_TRUE(folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 7); }));
    CCustomData others;
    others.SetInt(1, 5);
    ASSERT_TRUE(others.SaveToPrefs(XFromQString(other), 3, 4) && others.SaveToPrefs(XFromQString(other), 1, 2));
    SettingsWindow window(std::make_unique<PreferenceSource>(folder.m_file));
    window.show();
    ASSERT_TRUE(window.GoTo({L"0000000100000002"}));
    const auto intIn = [](const QString& file, unsigned key1, unsigned key2) {
        CCustomData store;
        int number = -1;
        store.LoadFromPrefs(XFromQString(file), key1, key2, false);
        store.GetInt(1, number, -1);
        return number;
    };
    const auto trigger = [&](const char* action) {
        window.findChild<QAction*>(QString::fromLatin1(action))->trigger();
    };
    {
        Person person({Person::Choose(other), Person::Click(QMessageBox::Yes, QStringLiteral("1 2"))});
        trigger("export");
    }
    EXPECT_EQ(7, intIn(other, 1, 2));
    EXPECT_EQ(5, intIn(other, 3, 4)) << "other stores stay";
    ASSERT_TRUE(folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 8); }));
    {
        Person person({Person::Choose(other), Person::Click(QMessageBox::Yes, QStringLiteral("1 2"))});
        trigger("refresh");
        trigger("import");
    }
    EXPECT_EQ(7, intIn(folder.m_file, 1, 2));
    EXPECT_EQ(5, intIn(folder.m_file, 3, 4));
    trigger("undo");
    EXPECT_EQ(8, intIn(folder.m_file, 1, 2));
    EXPECT_EQ(-1, intIn(folder.m_file, 3, 4)) << "both at once";
}

TEST(SettingsBadInput, FilesOfTheFuzzersAndRandomDamageAreShown)
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("bad"));
    std::vector<QByteArray> inputs{QByteArray(1000, '\xff'), QByteArray(3, '\0')};
    for (const char* const corpus : {"Preferences", "CustomData"})
    {
        const QDir inputsOf(QStringLiteral(TEVTOOLS_SOURCE_DIR "/fuzz/corpus/") + QString::fromLatin1(corpus));
        for (const QFileInfo& input : inputsOf.entryInfoList(QDir::Files))
        {
            const QByteArray bytes = PreferenceFolder::BytesOf(input.filePath());
            inputs.push_back(bytes);
            inputs.push_back(QByteArray("\1\0\0\0\1\0\0\0\2\0\0\0", 12) + bytes); // as the store of a file
        }
    }
    ASSERT_GT(inputs.size(), 10U);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (std::size_t i = inputs.size(); i-- != 0;)
    {
        QByteArray flipped = inputs[i];
        for (int flips = 0; flips < 5 && !flipped.isEmpty(); ++flips)
            flipped[static_cast<qsizetype>(random() % static_cast<unsigned>(flipped.size()))] =
                static_cast<char>(random());
        inputs.push_back(flipped);
    }
    for (const QByteArray& input : inputs)
    {
        QFile written(file);
        ASSERT_TRUE(written.open(QIODevice::WriteOnly));
        written.write(input);
        written.close();
        LookAtAll(std::make_unique<PreferenceSource>(file));
        EXPECT_EQ(input, PreferenceFolder::BytesOf(file)) << "looking changes nothing";
    }
}

TEST(SettingsBadInput, DamagedDatabasesAreShownAsFarAsTheyCanBeRead)
{
    const QByteArray before = qgetenv("TEVTOOLS_REGISTRY");
    const QTemporaryDir folder;
    const auto use = [&](int number) {
        const QString path = folder.filePath(QStringLiteral("%1.db").arg(number));
        qputenv("TEVTOOLS_REGISTRY", QFile::encodeName(path));
        return path;
    };
    const QString good = use(0);
    {
        const RegistryKey key(L"Software\\DamageTest");
        for (int i = 0; i < 40; ++i)
            ASSERT_TRUE(
                key.Open().WriteSubKeyString(std::to_wstring(i % 7).c_str(), std::to_wstring(i).c_str(), L"some text"));
        const unsigned seed = std::random_device()();
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        for (int i = 1; i < 40; ++i)
        {
            const QString path = folder.filePath(QStringLiteral("%1.db").arg(i));
            for (const QString& part : {QString(), QStringLiteral("-wal")})
            {
                QByteArray bytes = i == 1 ? QByteArray(5000, '\x5a') : PreferenceFolder::BytesOf(good + part);
                for (int flips = 0; flips < i && !bytes.isEmpty(); ++flips)
                    bytes[static_cast<qsizetype>(random() % static_cast<unsigned>(bytes.size()))] =
                        static_cast<char>(random());
                QFile damaged(path + part);
                ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
                damaged.write(bytes);
            }
        }
    }
    for (int i = 1; i < 40; ++i)
    {
        use(i);
        LookAtAll(std::make_unique<RegistrySource>());
    }
    qputenv("TEVTOOLS_REGISTRY", before);
}
} // namespace
