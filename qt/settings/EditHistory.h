#pragma once

#include "qt/settings/SettingsSource.h"

#include <QUndoStack>

#include <functional>
#include <variant>

namespace tev::browser
{
/// Edits in their order, all of which are made or none.
using Edits = std::vector<std::variant<ValueEdit, NodeEdit>>;

/// Makes edits, and keeps them for undo and redo. Each of these is an edit itself: it is refused when what is there is no longer
/// what the one before it has made, and then it is dropped, because it can never be made again.
class EditHistory
{
public:
    /// Has a source do some work, on any thread, and waits for it; false when it was cancelled before.
    using Runner = std::function<bool(const std::function<void(SettingsSource&)>& work)>;

    explicit EditHistory(SettingsSource& source) : m_source(source) {}
    /// Who makes the edits from now on, instead of the source itself.
    void SetRunner(Runner runner) { m_runner = std::move(runner); }
    ~EditHistory() { m_stack.disconnect(); } // who listens may be gone already
    EditHistory(const EditHistory&) = delete;
    EditHistory& operator=(const EditHistory&) = delete;

    Result Do(const QString& text, Edits edits);
    Result Undo();
    Result Redo();
    /// For its texts and signals; commands of it are undone and redone by this class only.
    QUndoStack& GetStack() { return m_stack; }

private:
    class Command;

    Result Make(const Edits& edits);

    SettingsSource& m_source;
    Runner m_runner;
    QUndoStack m_stack;
};
} // namespace tev::browser
