// What the person does with what is shown: edits, export and import, copies.

#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/settings/SettingsWindow.h"
#include "qt/settings/Transfer.h"
#include "qt/settings/ValueEditor.h"
#include "qt/settings/WindowShown.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"

#include <QClipboard>
#include <QFileDialog>
#include <QGuiApplication>
#include <QInputDialog>
#include <QMessageBox>
#include <QTableView>
#include <QTreeView>

#include <algorithm>
#include <atomic>
#include <utility>

namespace tev::browser
{
namespace
{
constexpr unsigned __int64 kLargestEdited = 1 << 20;

/// Names of values may look like HTML.
void ShowAsPlainText(QMessageBox& box, const QString& text, const QString& details)
{
    box.setTextFormat(Qt::PlainText);
    box.setText(text);
    box.setInformativeText(details);
}

QString GoneText()
{
    return XInLanguage(u"The value is no longer there.", u"La valeur n'est plus là.");
}

QString ReadingTitle()
{
    return XInLanguage(u"Read", u"Lire");
}
} // namespace

bool SettingsWindow::Ask(const QString& question, const QString& details)
{
    QMessageBox box(QMessageBox::Question, windowTitle(), {}, QMessageBox::Yes | QMessageBox::No, this);
    ShowAsPlainText(box, question, details);
    box.setDefaultButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

void SettingsWindow::Say(const QString& text, const QString& details)
{
    QMessageBox box(QMessageBox::Warning, windowTitle(), {}, QMessageBox::Ok, this);
    ShowAsPlainText(box, text, details);
    box.exec();
}

std::vector<int> SettingsWindow::ChosenRows() const
{
    std::vector<int> rows;
    for (const QModelIndex& index : m_table->selectionModel()->selectedRows())
        rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void SettingsWindow::Act(void (SettingsWindow::*slot)())
{
    if (!RaiseDialog() && !m_isTransferring)
        (this->*slot)();
}

bool SettingsWindow::RunOnThread(const QString& title, const std::function<void(TransferState& state)>& work)
{
    std::atomic<bool> isCancelled{false};
    m_isTransferring = true;
    const bool isDone = RunTransfer(this, title, [&](TransferState& state) {
        work(state);
        isCancelled.store(state.IsCancelled());
    });
    m_isTransferring = false;
    if (std::exchange(m_isClosing, false))
        QTimer::singleShot(0, this, &QWidget::close);
    return isDone && !isCancelled.load();
}

bool SettingsWindow::Run(const QString& title, bool takesLong,
                         const std::function<void(SettingsSource& source, TransferState& state)>& work)
{
    if (!takesLong)
    {
        RunHere([&](TransferState& state) { work(*m_shown->m_source, state); });
        return true;
    }
    const std::unique_ptr<SettingsSource> own = m_shown->m_source->ForThread();
    return RunOnThread(title, [&](TransferState& state) {
        own->SetState(&state);
        work(*own, state);
    });
}

namespace
{
/// What is there now becomes what the edits have seen. The values that it differs in; none where edits cannot follow it.
QStringList FollowChanges(SettingsSource& source, Edits& edits)
{
    source.Refresh();
    QStringList changes;
    for (auto& edit : edits)
    {
        auto* const values = std::get_if<ValueEdit>(&edit);
        if (values == nullptr)
            return {};
        for (ValueChange& change : values->m_changes)
        {
            const Reading reading = source.Read(values->m_place, change.m_id, kLargestEdited);
            if (reading.m_isThere && !reading.m_value)
                return {};
            if (reading.m_value == change.m_before)
                continue;
            changes << source.GetValueName(change.m_id) + QStringLiteral(" = ") +
                           (reading.m_value ? ValueLine(source, *reading.m_value)
                                            : XInLanguage(u"(deleted)", u"(supprimé)"));
            change.m_before = reading.m_value;
            change.m_wasUnreadable = false;
        }
    }
    return changes;
}
} // namespace

bool SettingsWindow::AskToOverwrite(Edits& edits)
{
    QStringList changes;
    const bool isRead = Run(ReadingTitle(), m_shown->m_source->TakesLong(),
                            [&](SettingsSource& source, TransferState&) { changes = FollowChanges(source, edits); });
    return isRead && !changes.isEmpty() &&
           Ask(XInLanguage(u"Another program has changed this meanwhile. Overwrite its change?",
                           u"Un autre programme a modifié ceci entre-temps. Écraser sa modification ?"),
               changes.join(u'\n'));
}

bool SettingsWindow::Make(const QString& text, Edits edits)
{
    SettingsSource& source = *m_shown->m_source;
    for (;;)
    {
        const Result result = m_shown->m_history.Do(text, edits);
        const bool isDamaged = result.m_outcome == Outcome::kDamaged;
        if (result.m_outcome == Outcome::kDone)
        {
            Refresh();
            return true;
        }
        if (isDamaged &&
            Ask(XInLanguage(u"Parts of the file are damaged. Saving drops them, and keeps a copy of the damaged "
                            u"file. Save?",
                            u"Des parties du fichier sont endommagées. L'enregistrement les supprime et garde "
                            u"une copie du fichier endommagé. Enregistrer ?"),
                source.GetFile({}) + QStringLiteral(".damaged")))
            source.PermitRepair();
        else if (isDamaged || result.m_outcome == Outcome::kCancelled)
            break;
        else if (result.m_outcome == Outcome::kChanged && AskToOverwrite(edits))
            continue;
        else
        {
            Say(result.m_outcome == Outcome::kChanged
                    ? XInLanguage(u"Another program has changed this meanwhile. Nothing was changed.",
                                  u"Un autre programme a modifié ceci entre-temps. Rien n'a été modifié.")
                    : XInLanguage(u"The change cannot be saved.", u"La modification ne peut pas être enregistrée."),
                result.m_reason);
            break;
        }
    }
    Refresh();
    return false;
}

void SettingsWindow::TakeBack(Result (EditHistory::*step)(), const QString& refused)
{
    Result result = (m_shown->m_history.*step)();
    if (result.m_outcome == Outcome::kChanged)
        Say(refused, XInLanguage(u"The value is no longer what the edit has made of it.",
                                 u"La valeur n'est plus celle que la modification avait laissée."));
    else if (result.m_outcome == Outcome::kFailed)
        Say(XInLanguage(u"The change cannot be saved.", u"La modification ne peut pas être enregistrée."),
            result.m_reason);
    Refresh();
}

void SettingsWindow::Undo()
{
    TakeBack(&EditHistory::Undo, XInLanguage(u"This cannot be undone.", u"Ceci ne peut pas être annulé."));
}

void SettingsWindow::Redo()
{
    TakeBack(&EditHistory::Redo, XInLanguage(u"This cannot be redone.", u"Ceci ne peut pas être rétabli."));
}

/// Of a value that is to be made under a name that may be taken already.
bool SettingsWindow::AskToReplace(ValueChange& change)
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    Reading reading;
    if (!Run(ReadingTitle(), source.TakesLong(),
             [&](SettingsSource& own, TransferState&) { reading = own.Read(place, change.m_id, kLargestEdited); }))
        return false;
    if (!reading.m_isThere)
        return true;
    const QString name = source.GetValueName(change.m_id);
    if (!reading.m_value)
    {
        Say(XInLanguage(u"There is a value of this name already.", u"Il y a déjà une valeur de ce nom."), name);
        return false;
    }
    change.m_before = reading.m_value;
    return Ask(XInLanguage(u"There is a value of this name already. Replace it?",
                           u"Il y a déjà une valeur de ce nom. La remplacer ?"),
               name + QStringLiteral(" = ") + ValueLine(source, *reading.m_value));
}

void SettingsWindow::NewValue()
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    ValueEditor editor(source, this);
    if (editor.exec() != QDialog::Accepted)
        return;
    ValueEdit edit{place, {{editor.GetId(), {}, editor.GetValue(), false}}};
    if (AskToReplace(edit.m_changes[0]) && Make(XInLanguage(u"new value", u"nouvelle valeur"), {edit}))
        GoTo(place, editor.GetId());
}

void SettingsWindow::EditValue()
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    const int row = m_table->currentIndex().row();
    if (row < 0)
        return;
    const std::wstring id = m_shown->m_values.IdOf(row);
    const Reading reading = source.Read(place, id, kLargestEdited);
    if (!reading.m_value)
    {
        Say(!reading.m_isThere          ? GoneText()
            : reading.m_fault.isEmpty() ? XInLanguage(u"The value is too large to be edited here.",
                                                      u"La valeur est trop grande pour être modifiée ici.")
                                        : reading.m_fault);
        return Refresh();
    }
    const bool isReadOnly = !source.WhyReadOnly(place).isEmpty() || !reading.m_fault.isEmpty();
    ValueEditor editor(source, m_shown->m_values.data(m_shown->m_values.index(row, 0), Qt::DisplayRole).toString(),
                       *reading.m_value, isReadOnly, this);
    if (editor.exec() != QDialog::Accepted || editor.GetValue() == *reading.m_value)
        return;
    Make(XInLanguage(u"edit", u"modification"), {ValueEdit{place, {{id, reading.m_value, editor.GetValue(), false}}}});
}

void SettingsWindow::RenameValue()
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    const int row = m_table->currentIndex().row();
    if (row < 0)
        return;
    const std::wstring id = m_shown->m_values.IdOf(row);
    Reading reading;
    if (!Run(ReadingTitle(), source.TakesLong(),
             [&](SettingsSource& own, TransferState&) { reading = own.Read(place, id, ~0ULL); }))
        return;
    if (!reading.m_value)
        return Say(reading.m_isThere ? XInLanguage(u"The value cannot be read.", u"La valeur est illisible.")
                                     : GoneText(),
                   reading.m_fault);
    const QString before = source.GetValueName(id);
    bool isGiven = false;
    const QString name =
        QInputDialog::getText(this, XInLanguage(u"Rename value", u"Renommer la valeur"),
                              XInLanguage(u"New name:", u"Nouveau nom :"), QLineEdit::Normal, before, &isGiven);
    if (!isGiven || name == before)
        return;
    const std::optional<std::wstring> newId = source.ParseValueId(name);
    if (!newId)
        return Say(XInLanguage(u"The name must be a number of 32 bits or four letters.",
                               u"Le nom doit être un nombre de 32 bits ou quatre lettres."));
    // The registry does not tell the cases of letters apart.
    const bool isSameName = dynamic_cast<RegistrySource*>(&source) != nullptr &&
                            XFromQString(name).CompareNoCase(XFromQString(before)) == 0;
    ValueEdit edit{place, {{id, reading.m_value, {}, false}, {*newId, {}, reading.m_value, false}}};
    if (*newId != id && (isSameName || AskToReplace(edit.m_changes[1])) &&
        Make(XInLanguage(u"rename", u"renommage"), {edit}))
        GoTo(place, newId);
}

void SettingsWindow::Delete()
{
    if (m_tree->hasFocus())
        DeleteNode();
    else
        DeleteValues();
}

void SettingsWindow::DeleteValues()
{
    ValueEdit edit{ChosenPlace(), {}};
    std::vector<std::wstring> ids;
    for (const int row : ChosenRows())
        ids.push_back(m_shown->m_values.IdOf(row));
    bool isReadable = true;
    const auto read = [&](SettingsSource& source, TransferState& state) {
        for (const std::wstring& id : ids)
        {
            if (state.IsCancelled())
                return;
            const Reading reading = source.Read(edit.m_place, id, ~0ULL);
            const bool isUnreadable = reading.m_isThere && !reading.m_value;
            isReadable = isReadable && !isUnreadable;
            if (reading.m_isThere)
                edit.m_changes.push_back({id, reading.m_value, {}, isUnreadable});
        }
    };
    if (!Run(ReadingTitle(), m_shown->m_source->TakesLong(), read))
        return;
    if (edit.m_changes.empty() ||
        (!isReadable && !Ask(XInLanguage(u"What is damaged cannot be brought back. Delete it?",
                                         u"Ce qui est endommagé ne peut pas être rétabli. Supprimer ?"))))
        return;
    Make(XInLanguage(u"deletion", u"suppression"), {std::move(edit)});
}

void SettingsWindow::DeleteNode()
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    if (!source.IsNode(place))
        return Say(XInLanguage(u"This cannot be deleted here.", u"Ceci ne peut pas être supprimé ici."),
                   source.GetPlaceText(place));
    NodeEdit edit{place, {}, {}, false};
    QString reason;
    if (!Run(ReadingTitle(), source.TakesLong(), [&](SettingsSource& own, TransferState&) {
            edit.m_before = own.Snapshot(place, reason); // what the person agrees to
        }))
        return;
    edit.m_isForced = !edit.m_before;
    if (!Ask(XInLanguage(u"Delete this with all that is in it?", u"Supprimer ceci avec tout son contenu ?"),
             source.GetPlaceText(place)))
        return;
    if (edit.m_isForced &&
        !Ask(XInLanguage(u"It cannot be read as a whole, so that deleting it cannot be undone. Delete it?",
                         u"L'ensemble est illisible : la suppression ne pourra pas être annulée. Supprimer ?"),
             reason))
        return;
    Make(XInLanguage(u"deletion", u"suppression"), {std::move(edit)});
}

void SettingsWindow::NewNode()
{
    SettingsSource& source = *m_shown->m_source;
    Place place = source.CanHaveNodes(ChosenPlace()) ? ChosenPlace() : Place();
    const bool isStore = place.empty();
    bool isGiven = false;
    const QString name = QInputDialog::getText(
        this, isStore ? XInLanguage(u"New store", u"Nouveau magasin") : XInLanguage(u"New key", u"Nouvelle clé"),
        isStore ? XInLanguage(u"Its two keys, numbers or four letters each:",
                              u"Ses deux clés, des nombres ou quatre lettres :")
                : XInLanguage(u"Name:", u"Nom :"),
        QLineEdit::Normal, {}, &isGiven);
    if (!isGiven)
        return;
    const std::optional<std::wstring> id = source.ParseNodeId(name);
    if (!id)
        return Say(XInLanguage(u"This is not a name that can be given.", u"Ce nom ne peut pas être donné."), name);
    place.push_back(*id);
    if (source.HasNode(place))
    {
        GoTo(place);
        return Say(isStore
                       ? XInLanguage(u"There is a store of these keys already.", u"Il y a déjà un magasin de ces clés.")
                       : XInLanguage(u"There is a key of this name already.", u"Il y a déjà une clé de ce nom."),
                   name);
    }
    if (Make(isStore ? XInLanguage(u"new store", u"nouveau magasin") : XInLanguage(u"new key", u"nouvelle clé"),
             {NodeEdit{place, {}, source.EmptySnapshot(place), false}}))
        GoTo(place);
}

void SettingsWindow::Copy()
{
    QStringList lines;
    if (!m_tree->hasFocus())
    {
        for (const int row : ChosenRows())
            lines << m_shown->m_values.LineOf(row);
    }
    if (lines.isEmpty())
        lines << m_shown->m_source->GetPlaceText(ChosenPlace());
    QGuiApplication::clipboard()->setText(lines.join(u'\n'));
}

void SettingsWindow::OpenFile()
{
    const QString file =
        QFileDialog::getOpenFileName(this, XInLanguage(u"Open preference file", u"Ouvrir un fichier de préférences"));
    if (!file.isEmpty())
        SetSource(std::make_unique<PreferenceSource>(file));
}

void SettingsWindow::OpenRegistry()
{
    SetSource(std::make_unique<RegistrySource>());
}

void SettingsWindow::Export()
{
    const Place place = ChosenPlace();
    if (place.empty())
        return Say(
            XInLanguage(u"Choose what is to be exported first.", u"Choisissez d'abord ce qui doit être exporté."));
    if (dynamic_cast<PreferenceSource*>(m_shown->m_source.get()) != nullptr)
        return ExportStore({place.front()});
    const QString file =
        QFileDialog::getSaveFileName(this, XInLanguage(u"Export", u"Exporter"), {}, QStringLiteral("*.reg"));
    if (file.isEmpty())
        return;
    const QString key = m_shown->m_source->GetPlaceText(place);
    QString reason;
    bool isEnded = false;
    RunOnThread(XInLanguage(u"Export", u"Exporter"), [&](TransferState& state) {
        reason = ExportRegistryKey(key, file, state);
        isEnded = true;
    });
    if (!isEnded || !reason.isEmpty())
        Say(XInLanguage(u"The export has failed.", u"L'exportation a échoué."), reason);
}

/// Puts the store into another preference file.
void SettingsWindow::ExportStore(const Place& place)
{
    QFileDialog dialog(this, XInLanguage(u"Copy the store into a preference file",
                                         u"Copier le magasin dans un fichier de préférences"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setOption(QFileDialog::DontConfirmOverwrite); // other stores of the file stay
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QString file = dialog.selectedFiles().value(0);
    const bool takesLong = m_shown->m_source->TakesLong() || PreferenceSource(file).TakesLong();
    const std::unique_ptr<SettingsSource> target = PreferenceSource(file).ForThread();
    QString reason;
    std::optional<Bytes> store;
    std::optional<Bytes> there;
    if (!Run(ReadingTitle(), takesLong, [&](SettingsSource& source, TransferState& state) {
            store = source.Snapshot(place, reason);
            target->SetState(&state);
            QString none;
            there = target->Snapshot(place, none);
            target->SetState(nullptr);
        }))
        return;
    if (there && !Ask(XInLanguage(u"The file has a store of these keys. Replace it?",
                                  u"Le fichier a un magasin de ces clés. Le remplacer ?"),
                      m_shown->m_source->GetPlaceText(place)))
        return;
    Result result{Outcome::kFailed, reason};
    const auto save = [&](SettingsSource&, TransferState& state) {
        result = state.StartLastStep() ? target->Apply(NodeEdit{place, there, store, false})
                                       : Result{Outcome::kCancelled, {}};
    };
    if (store)
        Run(XInLanguage(u"Export", u"Exporter"), takesLong, save);
    if (result.m_outcome != Outcome::kDone && result.m_outcome != Outcome::kCancelled)
        Say(XInLanguage(u"The export has failed.", u"L'exportation a échoué."), result.m_reason);
}

void SettingsWindow::Import()
{
    const QString file = QFileDialog::getOpenFileName(this, XInLanguage(u"Import", u"Importer"));
    if (file.isEmpty())
        return;
    if (dynamic_cast<PreferenceSource*>(m_shown->m_source.get()) != nullptr)
        ImportStores(file);
    else
        ImportRegistry(file);
}

void SettingsWindow::ImportRegistry(const QString& file)
{
    if (!Ask(XInLanguage(u"Take over the settings of this file? This cannot be undone.",
                         u"Reprendre les réglages de ce fichier ? Ceci ne pourra pas être annulé."),
             file))
        return;
    QString reason;
    bool isEnded = false;
    RunOnThread(XInLanguage(u"Import", u"Importer"), [&](TransferState& state) {
        reason = ImportRegistryText(file, state);
        isEnded = true;
    });
    Refresh();
    if (!isEnded || !reason.isEmpty())
        Say(XInLanguage(u"The import has failed; nothing was changed.",
                        u"L'importation a échoué ; rien n'a été modifié."),
            reason);
}

/// All sound stores of another preference file, in the places of those of the same keys.
void SettingsWindow::ImportStores(const QString& file)
{
    const bool takesLong = m_shown->m_source->TakesLong() || PreferenceSource(file).TakesLong();
    const std::unique_ptr<SettingsSource> from = PreferenceSource(file).ForThread();
    Edits edits;
    QStringList replaced;
    const auto compare = [&](SettingsSource& source, TransferState& state) {
        Item item;
        QString reason;
        from->SetState(&state);
        for (const std::unique_ptr<Lister> stores = from->ListNodes({}); !state.IsCancelled() && stores->Next(item);)
        {
            const Place place{item.m_id};
            std::optional<Bytes> store = item.m_fault.isEmpty() ? from->Snapshot(place, reason) : std::nullopt;
            std::optional<Bytes> there = source.Snapshot(place, reason);
            if (!store || store == there)
                continue;
            if (there)
                replaced << source.GetPlaceText(place);
            edits.emplace_back(NodeEdit{place, std::move(there), std::move(store), false});
        }
        from->SetState(nullptr);
    };
    if (!Run(ReadingTitle(), takesLong, compare))
        return;
    if (edits.empty())
        return Say(XInLanguage(u"The file has no stores that differ.", u"Le fichier n'a pas de magasins différents."),
                   from->GetFault());
    if (replaced.isEmpty() ||
        Ask(XInLanguage(u"Replace these stores?", u"Remplacer ces magasins ?"), replaced.join(u'\n')))
        Make(XInLanguage(u"import", u"importation"), std::move(edits));
}
} // namespace tev::browser
