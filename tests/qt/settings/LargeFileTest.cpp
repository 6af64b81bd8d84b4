#include "tests/qt/settings/Person.h"
#include "tests/qt/settings/SettingsTesting.h"
#include "tests/support/Eventually.h"
#include "threads/CCustomThread.h"

#include <QAction>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <limits>

// Files that are read in the background.

namespace
{
using namespace tev::browser;
using namespace tev::browser::test;
using testing::ElementsAre;

constexpr __int64 kNoSize = -1; ///< no file is so small that it is read at once
constexpr __int64 kAnySize = std::numeric_limits<__int64>::max();
const Place kLargeStore{L"0000000100000002"};
const Place kStoreWithin{L"0000000100000002", L"00000003"};

void FillLarge(const PreferenceFolder& folder, const std::vector<char>& large = {})
{
    CCustomData within;
    within.SetInt(9, 4);
    ASSERT_TRUE(folder.Save(1, 2, [&](CCustomData& store) {
        store.SetInt(1, 7);
        store.SetString(2, L"Roof");
        store.SetCustomData(3, within);
        if (!large.empty())
            store.SetBinary(4, large.data(), static_cast<unsigned>(large.size()));
    }));
}

std::unique_ptr<Lister> WaitedFor(std::unique_ptr<Lister> list)
{
    EXPECT_TRUE(tev::test::Eventually([&] { return list->IsReady(); }));
    return list;
}

bool ThreadsHaveEnded()
{
    return tev::test::Eventually([] { return CCustomThread::GetRunningThreadCount() == 0; });
}

/// Bytes that this thread has read.
qint64 BytesRead()
{
    const QList<QByteArray> lines = PreferenceFolder::BytesOf(QStringLiteral("/proc/thread-self/io")).split('\n');
    return lines.value(0).startsWith("rchar: ") ? lines.value(0).mid(7).toLongLong() : -1;
}

TEST(LargeFile, IsListedAndReadLikeASmallOne)
{
    const PreferenceFolder folder;
    FillLarge(folder);
    folder.Write(folder.Bytes() + "behind");
    {
        PreferenceSource small(folder.m_file, kAnySize);
        PreferenceSource large(folder.m_file, kNoSize);
        EXPECT_TRUE(large.TakesLong() && !small.TakesLong());
        const auto stores = WaitedFor(large.ListNodes({}));
        EXPECT_EQ(TextsOf(*small.ListNodes({})), TextsOf(*stores));
        EXPECT_EQ(small.GetFault(), stores->Fault());
        EXPECT_EQ(small.GetFault(), large.GetFault());
        Item damaged;
        for (const auto list = small.ListNodes({}); list->Next(damaged);)
            continue;
        for (const Place& place : {kLargeStore, kStoreWithin, Place{damaged.m_id}, Place{L"none"}})
        {
            EXPECT_EQ(TextsOf(*small.ListNodes(place)), TextsOf(*WaitedFor(large.ListNodes(place))));
            const auto values = WaitedFor(large.ListValues(place));
            EXPECT_EQ(small.WhyReadOnly(place), large.WhyReadOnly(place));
            Item item;
            for (const auto list = small.ListValues(place); list->Next(item);)
            {
                Item same;
                ASSERT_TRUE(values->Next(same) && same.m_id == item.m_id && same.m_text == item.m_text);
                EXPECT_EQ(small.Read(place, item.m_id, 100).m_value, large.Read(place, item.m_id, 100).m_value);
            }
            EXPECT_FALSE(values->Next(item));
        }
        // What was read stays until it is read anew.
        const auto values = WaitedFor(large.ListValues(kLargeStore));
        FillLarge(folder, std::vector<char>(10));
        large.Refresh();
        EXPECT_FALSE(large.Read(kLargeStore, L"00000004", 100).m_isThere);
        const auto again = WaitedFor(large.ListValues(kLargeStore));
        EXPECT_TRUE(large.Read(kLargeStore, L"00000004", 100).m_isThere);
    }
    PreferenceSource missing(folder.m_folder.filePath(QStringLiteral("none")), kNoSize);
    EXPECT_FALSE(WaitedFor(missing.ListNodes({}))->Fault().isEmpty() && missing.GetFault().isEmpty());
    EXPECT_TRUE(ThreadsHaveEnded());
}

TEST(LargeFile, IsNotReadOnceItIsCancelledOrNobodyWaits)
{
    const PreferenceFolder folder;
    FillLarge(folder, std::vector<char>(1 << 20));
    auto source = std::make_unique<PreferenceSource>(folder.m_file, kNoSize);
    EXPECT_TRUE(tev::test::Eventually([&] {
        const auto list = source->ListValues(kLargeStore);
        source->CancelReading();
        const QStringList texts =
            TextsOf(*WaitedFor(list->IsReady() ? source->ListNodes(kStoreWithin) : source->ListNodes({})));
        EXPECT_TRUE(tev::test::Eventually([&] { return list->IsReady(); }));
        Item item;
        return list->IsGivenUp() && !list->Next(item) && !list->Fault().isEmpty();
    }));
    EXPECT_THAT(TextsOf(*WaitedFor(source->ListValues(kLargeStore))), ElementsAre(u"1", u"2", u"3", u"4"));
    EXPECT_TRUE(tev::test::Eventually([&] { return source->GetReadProgress() == std::nullopt; }));
    const auto list = source->ListValues(kLargeStore);
    source.reset();
    EXPECT_TRUE(tev::test::Eventually([&] { return list->IsReady(); })) << "without its source, too";
    EXPECT_TRUE(ThreadsHaveEnded());
}

// The thread of the window reads less than a file's size, whatever the person does with it.
TEST(LargeFile, IsShownAndEditedByAWindowThatDoesNotReadIt)
{
    if (BytesRead() < 0)
        GTEST_SKIP() << "the system does not count what a thread reads";
    const PreferenceFolder folder;
    FillLarge(folder, std::vector<char>(6 << 20));
    SettingsWindow window(std::make_unique<PreferenceSource>(folder.m_file));
    window.show();
    const auto* const tree = window.findChild<QTreeView*>();
    auto* const table = window.findChild<QTableView*>();
    const auto waitForLines = [&](const QStringList& expected) {
        const auto* const values = static_cast<ValueModel*>(table->model());
        QStringList lines;
        const bool isSo = QTest::qWaitFor(
            [&] {
                lines.clear();
                for (int row = 0; row < values->rowCount(); ++row)
                    lines << values->LineOf(row);
                return lines == expected;
            },
            kPatience);
        EXPECT_TRUE(isSo) << lines.join(u'\n').toStdString();
    };
    const auto trigger = [&](const char* action) {
        Person::Activate();
        window.findChild<QAction*>(QString::fromLatin1(action))->trigger();
    };
    const QString number = QStringLiteral("1\tint\t4\t%1");
    const QString text = QStringLiteral("2\ttext\t10\tRoof");
    const qint64 before = BytesRead();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return tree->currentIndex().isValid() && table->model()->rowCount() == 4; }, kPatience));
    const auto* const values = static_cast<ValueModel*>(table->model());
    const QStringList rest{values->LineOf(2), values->LineOf(3)};
    EXPECT_THAT(rest.join(u'\n').toStdString(), testing::HasSubstr("(too large to be shown here)"));
    waitForLines(QStringList{number.arg(7), text} + rest);
    table->setFocus();
    table->setCurrentIndex(table->model()->index(0, 0));
    {
        Person person({Person::Type(QStringLiteral("42"))});
        QTest::keyClick(table, Qt::Key_Return);
    }
    waitForLines(QStringList{number.arg(42), text} + rest);
    const qint64 ownBefore = BytesRead();
    ASSERT_TRUE(folder.Save(1, 2, [](CCustomData& store) { store.SetInt(1, 8); })); // another program
    const qint64 ofOthers = BytesRead() - ownBefore;
    waitForLines(QStringList{number.arg(8), text} + rest);
    table->setCurrentIndex(table->model()->index(1, 0));
    trigger("delete");
    waitForLines(QStringList{number.arg(8)} + rest);
    trigger("undo");
    waitForLines(QStringList{number.arg(8), text} + rest);
    {
        Person person({Person::Type(QStringLiteral("PAGE"))});
        table->setCurrentIndex(table->model()->index(1, 0));
        trigger("rename");
    }
    waitForLines(QStringList{number.arg(8)} + rest + QStringList{QStringLiteral("'PAGE'\ttext\t10\tRoof")});
    EXPECT_TRUE(QTest::qWaitFor([&] { return table->currentIndex().row() == 3; }, kPatience))
        << "what was renamed is chosen";
    {
        Person person({Person::Click(QMessageBox::Yes)});
        window.findChild<QTreeView*>()->setFocus();
        trigger("delete");
    }
    EXPECT_TRUE(QTest::qWaitFor([&] { return tree->model()->rowCount() == 0; }, kPatience));
    trigger("undo");
    EXPECT_TRUE(QTest::qWaitFor([&] { return tree->model()->rowCount() == 1; }, kPatience));
    EXPECT_LT(BytesRead() - before - ofOthers, 6 << 20);
    window.close();
    EXPECT_TRUE(ThreadsHaveEnded());
}

/// Holds what it lists back until it is told.
class HeldSource : public PreferenceSource
{
public:
    using PreferenceSource::PreferenceSource;

    struct Gate
    {
        bool m_isOpen = false;
        bool m_isGivenUp = false;
    };
    const std::shared_ptr<Gate> m_gate = std::make_shared<Gate>();

    std::unique_ptr<Lister> ListNodes(const Place& place) override { return Held(PreferenceSource::ListNodes(place)); }
    std::unique_ptr<Lister> ListValues(const Place& place) override
    {
        return Held(PreferenceSource::ListValues(place));
    }
    std::optional<int> GetReadProgress() const override { return m_gate->m_isOpen ? std::nullopt : std::optional(40); }
    void CancelReading() override { m_gate->m_isOpen = m_gate->m_isGivenUp = true; }

private:
    class HeldLister : public Lister
    {
    public:
        HeldLister(std::unique_ptr<Lister> list, std::shared_ptr<Gate> gate)
            : m_list(std::move(list)), m_gate(std::move(gate))
        {
        }
        bool IsReady() const override { return m_gate->m_isOpen; }
        bool IsGivenUp() const override { return m_gate->m_isGivenUp; }
        bool Next(Item& item) override
        {
            if (m_gate->m_isGivenUp)
                m_fault = QStringLiteral("given up");
            return !m_gate->m_isGivenUp && m_list->Next(item);
        }

    private:
        const std::unique_ptr<Lister> m_list;
        const std::shared_ptr<Gate> m_gate;
    };
    std::unique_ptr<Lister> Held(std::unique_ptr<Lister> list) const
    {
        return std::make_unique<HeldLister>(std::move(list), m_gate);
    }
};

TEST(LargeFile, ReadingShowsItsProgressAndIsCancelledAndBegunAgain)
{
    const PreferenceFolder folder;
    FillLarge(folder);
    auto source = std::make_unique<HeldSource>(folder.m_file, kAnySize);
    const std::shared_ptr<HeldSource::Gate> gate = source->m_gate;
    SettingsWindow window(std::move(source));
    window.show();
    auto* const progress = window.findChild<QProgressBar*>();
    const auto* const tree = window.findChild<QTreeView*>();
    const auto waitForRows = [&](int rows) {
        EXPECT_TRUE(
            QTest::qWaitFor([&] { return !progress->isVisible() && tree->model()->rowCount() == rows; }, kPatience));
    };
    EXPECT_TRUE(QTest::qWaitFor([&] { return progress->isVisible() && progress->value() == 40; }, kPatience));
    // Whatever the person does meanwhile, nothing is there yet.
    for (const char* const action : {"undo", "redo", "editValue", "rename", "delete", "copy", "find", "findNext"})
        window.findChild<QAction*>(QString::fromLatin1(action))->trigger();
    EXPECT_EQ(0, tree->model()->rowCount());
    QTest::mouseClick(progress->parentWidget()->findChild<QPushButton*>(), Qt::LeftButton);
    waitForRows(0);
    const QLabel* notice = nullptr;
    for (const QLabel* const label : window.findChildren<QLabel*>())
        notice = label->accessibleName() == u"Notice" ? label : notice;
    EXPECT_TRUE(QTest::qWaitFor([&] { return notice->text().contains(QStringLiteral("given up")); }, kPatience));
    const auto refresh = [&](bool isOpen, bool isGivenUp) {
        *gate = {isOpen, isGivenUp};
        window.findChild<QAction*>(QStringLiteral("refresh"))->trigger();
    };
    refresh(true, false);
    waitForRows(1);
    // What is shown stays where reading it again is given up.
    refresh(false, false);
    *gate = {true, true};
    waitForRows(1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !static_cast<NodeModel*>(tree->model())->IsLoading(); }, kPatience));
    EXPECT_EQ(1, tree->model()->rowCount());
    // It closes while it reads.
    refresh(false, false);
    EXPECT_TRUE(window.close());
}

TEST(LargeFile, ClosesWhileItReads)
{
    const PreferenceFolder folder;
    FillLarge(folder, std::vector<char>(1 << 20));
    for (int i = 0; i < 20; ++i)
    {
        SettingsWindow window(std::make_unique<PreferenceSource>(folder.m_file, kNoSize));
        window.show();
        for (int events = 0; events < i; ++events)
            QApplication::processEvents();
        EXPECT_TRUE(window.close());
    }
    EXPECT_TRUE(ThreadsHaveEnded());
}
} // namespace
