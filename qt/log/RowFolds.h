#pragma once

#include <cstdint>
#include <map>

/// Which rows are folded away, and the numbers of those that are shown. One thread at a time.
class RowFolds
{
public:
    /// Hides the rows from `first` up to `end`, which is not hidden. Folds within are forgotten.
    void Hide(std::uint64_t first, std::uint64_t end);
    /// Shows what is hidden behind a row. False where nothing is.
    bool ShowBehind(std::uint64_t row) { return m_hidden.erase(row + 1) != 0; }
    /// Shows a row that may be hidden.
    void Reveal(std::uint64_t row);
    void Clear() { m_hidden.clear(); }

    bool HidesBehind(std::uint64_t row) const { return m_hidden.count(row + 1) != 0; }
    /// The number of a row among the shown ones; that of the row in front of its fold for a hidden one.
    std::uint64_t ToShown(std::uint64_t row) const;
    std::uint64_t ToRow(std::uint64_t shown) const;
    /// The first hidden row behind a shown one; the highest number where there is none.
    std::uint64_t NextHidden(std::uint64_t row) const;
    /// How many of so many rows are shown.
    std::uint64_t CountShown(std::uint64_t rows) const;

private:
    std::map<std::uint64_t, std::uint64_t> m_hidden; // the first row and the end; none touches another
};
