#pragma once

#include "qt/settings/EditHistory.h"
#include "qt/settings/FileWatch.h"
#include "qt/settings/Finder.h"
#include "qt/settings/NodeModel.h"
#include "qt/settings/ValueModel.h"
#include "text/CXTString.h"

#include <QMainWindow>

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QSplitter;
class QTableView;
class QTreeView;

namespace tev
{
class ElidedLabel;
}

namespace tev::browser
{
/// The browser: the nodes of a source on the left, the values of the chosen one on the right.
class SettingsWindow : public QMainWindow
{
    Q_OBJECT
public:
    /// Keeps where it is, and how it is divided, in a preference file, where one is given.
    explicit SettingsWindow(std::unique_ptr<SettingsSource> source, CXTString<wchar_t> placeFile = {});
    ~SettingsWindow() override;

    void SetSource(std::unique_ptr<SettingsSource> source);
    /// Chooses a node, and a value of it; false where it is not there.
    bool GoTo(const Place& place, const std::optional<std::wstring>& id = {});

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct Shown;

    void LoadWindowPlace();
    void SaveWindowPlace() const;

    void BuildReadBar();
    void BuildMenus();
    void BuildEditMenu();
    void BuildViews();
    QWidget* BuildFindBar();
    QAction* AddAction(QMenu* menu, const char* name, const QString& text, const QKeySequence& keys,
                       void (SettingsWindow::*slot)());
    void ShowState();
    void ChooseNode();
    void ShowReading();
    void ShowLoaded();
    void Poll();

    /// Does what an action stands for, unless something else is being asked or done: then that comes to the front.
    void Act(void (SettingsWindow::*slot)());
    /// Has a source of the same settings do some work. What takes long runs on a thread, while the person can do nothing but
    /// cancel it. False when it was cancelled, or has failed.
    bool Run(const QString& title, bool takesLong,
             const std::function<void(SettingsSource& source, TransferState& state)>& work);
    bool RunOnThread(const QString& title, const std::function<void(TransferState& state)>& work);

    // What actions do.
    void OpenFile();
    void OpenRegistry();
    void Export();
    void Import();
    void Refresh();
    void Undo();
    void Redo();
    void NewValue();
    void NewNode();
    void EditValue();
    void RenameValue();
    void Delete();
    void Copy();
    void ShowFind();
    void FindNext();
    void FindPrevious();

    void StartFind();
    void ShowMatches();
    void GoToMatch(std::ptrdiff_t step);
    void ExportStore(const Place& place);
    void ImportStores(const QString& file);
    void ImportRegistry(const QString& file);
    void DeleteNode();
    void DeleteValues();
    std::vector<int> ChosenRows() const;
    Place ChosenPlace() const;

    /// Makes edits, and asks where another program was faster.
    bool Make(const QString& text, Edits edits);
    bool AskToOverwrite(Edits& edits);
    void TakeBack(Result (EditHistory::*step)(), const QString& refused);
    bool AskToReplace(ValueChange& change);
    bool Ask(const QString& question, const QString& details = {});
    void Say(const QString& text, const QString& details = {});

    std::unique_ptr<Shown> m_shown;
    FileWatch m_watch;
    QTimer m_poll;
    ElidedLabel* m_path = nullptr;
    QLabel* m_notice = nullptr;
    QTreeView* m_tree = nullptr;
    QTableView* m_table = nullptr;
    QSplitter* m_splitter = nullptr;
    QWidget* m_findBar = nullptr;
    QLineEdit* m_findText = nullptr;
    QLabel* m_findState = nullptr;
    QAction* m_undo = nullptr;
    QAction* m_redo = nullptr;
    std::vector<QAction*> m_changes; ///< actions that change values of the chosen node
    QAction* m_newNode = nullptr;
    QWidget* m_readBar = nullptr;
    QProgressBar* m_readProgress = nullptr;
    std::ptrdiff_t m_match = -1;
    std::optional<Match> m_goal; ///< where to go once it is read
    Place m_goalFrom;            ///< unless the person has gone elsewhere
    const CXTString<wchar_t> m_placeFile;
    bool m_isTransferring = false;
    bool m_isClosing = false; ///< as soon as what runs has ended
    bool m_isStale = false;   ///< what is shown was changed by another program
};
} // namespace tev::browser
