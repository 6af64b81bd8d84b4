#include "qt/settings/EditHistory.h"

#include <algorithm>

namespace tev::browser
{
namespace
{
ValueEdit Inverse(const ValueEdit& edit)
{
    ValueEdit inverse{edit.m_place, {}};
    for (auto change = edit.m_changes.rbegin(); change != edit.m_changes.rend(); ++change)
        inverse.m_changes.push_back({change->m_id, change->m_after, change->m_before, false});
    return inverse;
}

NodeEdit Inverse(const NodeEdit& edit)
{
    return {edit.m_place, edit.m_after, edit.m_before, false};
}

Edits Inverse(const Edits& edits)
{
    Edits inverse;
    for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit)
        std::visit([&](const auto& made) { inverse.emplace_back(Inverse(made)); }, *edit);
    return inverse;
}

/// What replaced something unreadable cannot be undone.
bool CanBeUndone(const Edits& edits)
{
    return std::none_of(edits.begin(), edits.end(), [](const auto& edit) {
        if (const auto* const node = std::get_if<NodeEdit>(&edit))
            return node->m_isForced;
        const auto& changes = std::get<ValueEdit>(edit).m_changes;
        return std::any_of(changes.begin(), changes.end(),
                           [](const ValueChange& change) { return change.m_wasUnreadable; });
    });
}
Result MakeIn(SettingsSource& source, const Edits& edits)
{
    const auto apply = [&source](const auto& edit) { return source.Apply(edit); };
    for (std::size_t i = 0; i < edits.size(); ++i)
    {
        const Result result = std::visit(apply, edits[i]);
        if (result.m_outcome == Outcome::kDone)
            continue;
        const Edits made(edits.begin(), edits.begin() + static_cast<std::ptrdiff_t>(i));
        for (const auto& edit : Inverse(made))
            std::visit(apply, edit);
        return result;
    }
    return {};
}
} // namespace

class EditHistory::Command : public QUndoCommand
{
public:
    Command(const QString& text, Edits edits) : QUndoCommand(text), m_edits(std::move(edits)) {}

    const Edits& GetEdits() const { return m_edits; }
    void Drop() const { m_isDropped = true; }
    void undo() override { setObsolete(m_isDropped); }
    void redo() override { setObsolete(m_isDropped); }

private:
    Edits m_edits;
    mutable bool m_isDropped = false;
};

Result EditHistory::Make(const Edits& edits)
{
    Result result{Outcome::kFailed, {}};
    const auto make = [&](SettingsSource& source) { result = MakeIn(source, edits); };
    if (m_runner == nullptr)
        make(m_source);
    else if (!m_runner(make))
        return {Outcome::kCancelled, {}};
    return result;
}

Result EditHistory::Do(const QString& text, Edits edits)
{
    const Result result = Make(edits);
    if (result.m_outcome != Outcome::kDone)
        return result;
    if (CanBeUndone(edits))
        m_stack.push(new Command(text, std::move(edits)));
    else
        m_stack.clear();
    return result;
}

Result EditHistory::Undo()
{
    if (!m_stack.canUndo())
        return {};
    const auto* const command = static_cast<const Command*>(m_stack.command(m_stack.index() - 1));
    const Result result = Make(Inverse(command->GetEdits()));
    if (result.m_outcome == Outcome::kChanged)
        command->Drop();
    if (result.m_outcome == Outcome::kDone || result.m_outcome == Outcome::kChanged)
        m_stack.undo();
    return result;
}

Result EditHistory::Redo()
{
    if (!m_stack.canRedo())
        return {};
    const auto* const command = static_cast<const Command*>(m_stack.command(m_stack.index()));
    const Result result = Make(command->GetEdits());
    if (result.m_outcome == Outcome::kChanged)
        command->Drop();
    if (result.m_outcome == Outcome::kDone || result.m_outcome == Outcome::kChanged)
        m_stack.redo();
    return result;
}
} // namespace tev::browser
