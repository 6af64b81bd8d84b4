#include "qt/log/LogView.h"

#include "qt/log/MatchScrollBar.h"
#include "qt/toolkit/Theme.h"
#include "tests/qt/log/LogFiles.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QClipboard>
#include <QScrollBar>

#include <random>
#include <set>

using testing::ElementsAre;

namespace
{
struct ShownView
{
    explicit ShownView(const CXTString<wchar_t>& path) : m_view(m_document)
    {
        m_document.Open(path);
        m_view.resize(700, m_view.fontMetrics().height() * 10 + 40);
        m_view.show();
        m_view.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&m_view));
        m_view.setFocus();
        Settle();
    }
    void Settle()
    {
        EXPECT_TRUE(WaitUntilIdle(m_document));
        m_view.Refresh(m_document.GetStatus());
    }
    void Keys(std::initializer_list<Qt::Key> keys, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        for (const Qt::Key key : keys)
            QTest::keyClick(&m_view, key, modifiers);
    }
    QString Copied()
    {
        QApplication::clipboard()->clear();
        QTest::keyClick(&m_view, Qt::Key_C, Qt::ControlModifier);
        return QApplication::clipboard()->text();
    }
    std::vector<std::uint64_t> Lines() const
    {
        std::vector<std::uint64_t> lines;
        for (const LogRow& row : m_view.GetVisibleRows())
            lines.push_back(row.m_line);
        return lines;
    }
    QPoint RowPoint(int index, int x = 200) const
    {
        return {x, m_view.fontMetrics().height() * index + m_view.fontMetrics().height() / 2};
    }
    // Whether the drawn row has a pixel of about this colour.
    bool Has(int index, const QColor& color)
    {
        const QImage image = m_view.viewport()->grab().toImage();
        const int height = m_view.fontMetrics().height();
        for (int y = index * height; y < (index + 1) * height; ++y)
        {
            for (int x = 0; x < image.width(); ++x)
            {
                const QColor pixel = image.pixelColor(x, y);
                if (std::abs(pixel.red() - color.red()) + std::abs(pixel.green() - color.green()) +
                        std::abs(pixel.blue() - color.blue()) <
                    24)
                    return true;
            }
        }
        return false;
    }

    LogDocument m_document;
    LogView m_view;
};

std::string Numbered(int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += "line " + std::to_string(i) + "\n";
    return bytes;
}
} // namespace

TEST(RowFolds, AgreeWithAListOfRows)
{
    std::mt19937 random(5);
    RowFolds folds;
    std::map<std::uint64_t, std::uint64_t> model; // folds that are not within others
    constexpr std::uint64_t kRows = 60;
    const auto isHidden = [&](std::uint64_t row) {
        return std::any_of(model.begin(), model.end(),
                           [&](const auto& fold) { return row >= fold.first && row < fold.second; });
    };
    for (int round = 0; round < 3000; ++round)
    {
        const std::uint64_t row = random() % kRows;
        if (random() % 2 == 0 && !isHidden(row))
        {
            // Folds of an indented text lie within each other or apart.
            std::uint64_t end = std::min<std::uint64_t>(kRows, row + 2 + random() % 12);
            for (const auto& [first, last] : model)
                end = first > row && first < end ? std::max(end, last) : end;
            folds.Hide(row + 1, end);
            for (auto fold = model.begin(); fold != model.end();)
                fold = fold->first > row && fold->first < end ? model.erase(fold) : std::next(fold);
            if (row + 1 < end)
                model[row + 1] = end;
        }
        else if (random() % 2 == 0)
            EXPECT_EQ(model.erase(row + 1) != 0, folds.ShowBehind(row));
        else
        {
            folds.Reveal(row);
            for (auto fold = model.begin(); fold != model.end();)
                fold = row >= fold->first && row < fold->second ? model.erase(fold) : std::next(fold);
        }
        std::uint64_t shown = 0;
        for (std::uint64_t i = 0; i < kRows; ++i)
        {
            ASSERT_EQ(isHidden(i) ? shown - 1 : shown, folds.ToShown(i)) << round;
            if (isHidden(i))
                continue;
            ASSERT_EQ(i, folds.ToRow(shown)) << round;
            ++shown;
        }
        ASSERT_EQ(shown, folds.CountShown(kRows));
    }
}

TEST(LogView, MovesSelectsAndCopiesByKeyboardAndMouse)
{
    const LogFolder folder;
    ShownView shown(folder.Write("a.log", Numbered(1200)));
    shown.Keys({Qt::Key_Down, Qt::Key_Down});
    EXPECT_EQ(2U, shown.m_view.CurrentRow());
    EXPECT_EQ(QStringLiteral("line 2"), shown.m_view.accessibleDescription());
    shown.Keys({Qt::Key_Down, Qt::Key_Down}, Qt::ShiftModifier);
    EXPECT_EQ(QStringLiteral("line 2\nline 3\nline 4\n"), shown.Copied());
    shown.Keys({Qt::Key_End});
    EXPECT_EQ(1199U, shown.m_view.CurrentRow());
    EXPECT_EQ(shown.m_view.verticalScrollBar()->maximum(), shown.m_view.verticalScrollBar()->value());
    shown.Keys({Qt::Key_PageUp});
    EXPECT_GT(1199U, shown.m_view.CurrentRow());
    shown.Keys({Qt::Key_Home});
    QTest::mouseClick(shown.m_view.viewport(), Qt::LeftButton, {}, shown.RowPoint(3));
    QTest::mouseClick(shown.m_view.viewport(), Qt::LeftButton, Qt::ShiftModifier, shown.RowPoint(1));
    EXPECT_EQ(QStringLiteral("line 1\nline 2\nline 3\n"), shown.Copied());
    QTest::mousePress(shown.m_view.viewport(), Qt::LeftButton, {}, shown.RowPoint(5));
    QTest::mouseMove(shown.m_view.viewport(), shown.RowPoint(6));
    QTest::mouseRelease(shown.m_view.viewport(), Qt::LeftButton, {}, shown.RowPoint(6));
    EXPECT_EQ(QStringLiteral("line 5\nline 6\n"), shown.Copied());
    shown.Keys({Qt::Key_A}, Qt::ControlModifier);
    EXPECT_EQ(Numbered(1200), shown.Copied().toStdString());
}

TEST(LogView, FollowsTheEndUntilAPersonGoesUp)
{
    const LogFolder folder;
    ShownView shown(folder.Write("a.log", Numbered(100)));
    shown.m_view.SetFollowing(true);
    folder.Append("a.log", "more\n");
    shown.Settle();
    EXPECT_EQ(100U, shown.m_view.CurrentRow());
    EXPECT_EQ(QStringLiteral("more"), shown.m_view.GetVisibleRows().back().m_text);
    shown.Keys({Qt::Key_Up});
    EXPECT_FALSE(shown.m_view.IsFollowing());
    folder.Append("a.log", "still more\n");
    shown.Settle();
    EXPECT_EQ(99U, shown.m_view.CurrentRow());
}

TEST(LogView, FoldsWhatIsIndented)
{
    const LogFolder folder;
    ShownView shown(folder.Write("a.log", "a\n\tb\n\t\tc\n\n\td\ne\n\tf\n"));
    EXPECT_THAT(shown.Lines(), ElementsAre(0, 1, 2, 3, 4, 5, 6));
    shown.Keys({Qt::Key_Down, Qt::Key_Minus});
    shown.Settle();
    EXPECT_THAT(shown.Lines(), ElementsAre(0, 1, 4, 5, 6)); // with the empty line
    shown.Keys({Qt::Key_Down});
    EXPECT_EQ(4U, shown.m_view.CurrentLine());
    // The mark in front of the first line.
    const LogView& view = shown.m_view;
    const int gutter = view.fontMetrics().horizontalAdvance(QStringLiteral("999")) + 6;
    QTest::mouseClick(view.viewport(), Qt::LeftButton, {},
                      shown.RowPoint(0, gutter + view.fontMetrics().averageCharWidth()));
    shown.Settle();
    EXPECT_THAT(shown.Lines(), ElementsAre(0, 5, 6));
    shown.m_view.GoToRow(2); // what is searched for comes into sight
    EXPECT_THAT(shown.Lines(), ElementsAre(0, 1, 2, 3, 4, 5, 6));
    EXPECT_EQ(2U, shown.m_view.CurrentRow());
}

TEST(LogView, ColoursLinesInBothThemes)
{
    const LogFolder folder;
    ShownView shown(folder.Write("a.log", "plain\nError \u2588\n[4711 L1] \u2588\nmine \u2588\nfound\n"));
    shown.m_view.SetColors(
        LogColors({{{PatternKind::Text, QStringLiteral("error"), false}, RuleColor::Error},
                   {{PatternKind::Start, QStringLiteral("mine"), false}, RuleColor::Custom, 0xFF00A000}}));
    shown.m_document.SetSearch({PatternKind::Text, QStringLiteral("found"), false});
    for (const tev::ColorTheme theme : {tev::ColorTheme::Light, tev::ColorTheme::Dark})
    {
        tev::SetColorTheme(theme);
        shown.Settle();
        const bool isDark = theme == tev::ColorTheme::Dark;
        ASSERT_TRUE(QTest::qWaitFor([&] { return tev::IsDark(shown.m_view.palette()) == isDark; }, kDeadline));
        const QColor error = tev::LevelColor(4, isDark);
        const QColor warning = tev::LevelColor(2, isDark);
        EXPECT_TRUE(shown.Has(1, error));
        EXPECT_TRUE(shown.Has(2, warning)); // by its prefix
        EXPECT_TRUE(shown.Has(4, LogColors::MatchBackground(shown.m_view.palette())));
        EXPECT_FALSE(shown.Has(1, warning));
        EXPECT_FALSE(shown.Has(3, LogColors::MatchBackground(shown.m_view.palette())));
        EXPECT_TRUE(shown.Has(3, LogColors::ColorOf(shown.m_view.GetColors().GetRules()[1], shown.m_view.palette())));
        EXPECT_TRUE(shown.Has(3, shown.m_view.palette().color(QPalette::Base)));
    }
    tev::SetColorTheme(tev::ColorTheme::System);
}

TEST(LogView, MarksMatchesInTheScrollBarAmongTheRowsThatAreShown)
{
    const LogFolder folder;
    std::string lines = "first\n";
    for (int i = 1; i < 1000; ++i)
        lines += (i < 800 ? "\tline " : "line ") + std::to_string(i) + '\n';
    ShownView shown(folder.Write("a.log", lines));
    shown.m_document.SetSearch({PatternKind::Text, QStringLiteral("line 90"), false}); // 90 and 900 to 909
    const auto expectMarks = [&](const std::vector<std::size_t>& rows, std::size_t count) {
        shown.Settle();
        const std::vector<bool>& marks = shown.m_view.GetMatchScrollBar().GetMarks();
        ASSERT_LT(20U, marks.size());
        std::vector<bool> expected(marks.size());
        for (const std::size_t row : rows)
            expected[row * marks.size() / count] = true;
        EXPECT_EQ(expected, marks) << count;
    };
    expectMarks({90, 900, 901, 902, 903, 904, 905, 906, 907, 908, 909}, 1000);
    shown.Keys({Qt::Key_Home, Qt::Key_Minus}); // of what is hidden the mark is at its fold
    expectMarks({0, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110}, 201);
    shown.Keys({Qt::Key_Plus});
    expectMarks({90, 900, 901, 902, 903, 904, 905, 906, 907, 908, 909}, 1000);
    shown.m_document.SetFilter({PatternKind::Text, QStringLiteral("9"), false}, 0);
    shown.Settle();
    const auto rows = static_cast<std::size_t>(shown.m_document.GetStatus().m_rows.m_hits);
    const auto rowOf = [&](std::uint64_t line) { return static_cast<std::size_t>(shown.m_document.RowOfLine(line)); };
    expectMarks({rowOf(90), rowOf(900), rowOf(902), rowOf(904), rowOf(906), rowOf(909)}, rows);
}

TEST(LogView, TakesAnyBytes)
{
    const LogFolder folder;
    std::mt19937 random(3);
    for (int round = 0; round < 10; ++round)
    {
        std::string bytes;
        for (int i = 0; i < 20000; ++i)
            bytes += static_cast<char>(random() % 256);
        ShownView shown(folder.Write("a.log", bytes));
        shown.Keys({Qt::Key_PageDown, Qt::Key_Right, Qt::Key_Space, Qt::Key_End, Qt::Key_PageUp, Qt::Key_Plus});
        shown.Settle();
        shown.m_view.grab();
        EXPECT_FALSE(shown.m_view.GetVisibleRows().empty());
    }
}
