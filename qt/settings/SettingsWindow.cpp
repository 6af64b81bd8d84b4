#include "qt/settings/SettingsWindow.h"

#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/settings/Transfer.h"
#include "qt/settings/ValueText.h"
#include "qt/settings/WindowShown.h"
#include "qt/toolkit/ElidedLabel.h"
#include "qt/toolkit/QtText.h"
#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"

#include <QCloseEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QShortcut>
#include <QSplitter>
#include <QStatusBar>
#include <QTableView>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

namespace tev::browser
{
namespace
{
constexpr int kPollMilliseconds = 300;
constexpr unsigned kPlaceKey = 0x53455456; // "SETV"
constexpr unsigned kPlaceVersion = 1;
constexpr unsigned kGeometry = 1;
constexpr unsigned kDivision = 2;
} // namespace

SettingsWindow::SettingsWindow(std::unique_ptr<SettingsSource> source, CXTString<wchar_t> placeFile)
    : m_placeFile(std::move(placeFile))
{
    BuildViews();
    BuildMenus();
    SetSource(std::move(source));
    connect(&m_poll, &QTimer::timeout, this, &SettingsWindow::Poll);
    m_poll.start(kPollMilliseconds);
    const int unit = fontMetrics().averageCharWidth();
    resize(QSize(unit * 120, unit * 70).boundedTo(screen()->availableSize()));
    LoadWindowPlace();
}

SettingsWindow::~SettingsWindow()
{
    m_tree->setModel(nullptr);
    m_table->setModel(nullptr);
}

void SettingsWindow::LoadWindowPlace()
{
    CCustomData store;
    if (m_placeFile.IsEmpty() || !store.LoadFromPrefs(m_placeFile, kPlaceKey, kPlaceVersion, false))
        return;
    const auto bytesOf = [&store](unsigned id) {
        unsigned size = 0;
        const void* const bytes = store.GetCustomPtr(id, size);
        return QByteArray(static_cast<const char*>(bytes), static_cast<qsizetype>(size));
    };
    restoreGeometry(bytesOf(kGeometry));
    m_splitter->restoreState(bytesOf(kDivision));
}

void SettingsWindow::SaveWindowPlace() const
{
    // What cannot be kept is not worth a question while the window closes.
    static_cast<void>(XUpdatePreferences(m_placeFile, kPlaceKey, kPlaceVersion, [this](CCustomData& store) {
        for (const auto& [id, bytes] : {std::pair(kGeometry, saveGeometry()), {kDivision, m_splitter->saveState()}})
            store.SetBinary(id, bytes.constData(), static_cast<unsigned>(bytes.size()));
    }));
}

void SettingsWindow::BuildViews()
{
    m_path = new ElidedLabel;
    m_path->setAccessibleName(XInLanguage(u"Path", u"Chemin"));
    m_notice = new QLabel;
    m_notice->setTextFormat(Qt::PlainText);
    m_notice->setWordWrap(true);
    m_notice->setAccessibleName(XInLanguage(u"Notice", u"Avis"));
    m_tree = new QTreeView;
    m_tree->setHeaderHidden(true);
    m_tree->setUniformRowHeights(true);
    m_tree->setAccessibleName(XInLanguage(u"Keys and stores", u"Clés et magasins"));
    m_table = new QTableView;
    m_table->setAccessibleName(XInLanguage(u"Values", u"Valeurs"));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setTabKeyNavigation(false);
    m_table->setWordWrap(false);
    m_table->setShowGrid(false);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setHighlightSections(false);
    m_table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    connect(m_table, &QTableView::activated, this, [this] { Act(&SettingsWindow::EditValue); });
    m_splitter = new QSplitter;
    m_splitter->addWidget(m_tree);
    m_splitter->addWidget(m_table);
    m_splitter->setStretchFactor(1, 2);
    m_splitter->setChildrenCollapsible(false);
    auto* const page = new QWidget;
    auto* const layout = new QVBoxLayout(page);
    layout->addWidget(m_path);
    layout->addWidget(m_notice);
    layout->addWidget(m_splitter, 1);
    layout->addWidget(BuildFindBar());
    setCentralWidget(page);
    BuildReadBar();
}

void SettingsWindow::BuildReadBar()
{
    m_readBar = new QWidget;
    m_readProgress = new QProgressBar;
    m_readProgress->setAccessibleName(XInLanguage(u"Reading", u"Lecture"));
    m_readProgress->setTextVisible(false);
    m_readProgress->setMaximumWidth(fontMetrics().averageCharWidth() * 20);
    auto* const cancel = new QPushButton(XInLanguage(u"Cancel reading", u"Annuler la lecture"));
    connect(cancel, &QPushButton::clicked, this, [this] { m_shown->m_source->CancelReading(); });
    auto* const layout = new QHBoxLayout(m_readBar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_readProgress);
    layout->addWidget(cancel);
    m_readBar->hide();
    statusBar()->addPermanentWidget(m_readBar);
}

QWidget* SettingsWindow::BuildFindBar()
{
    m_findBar = new QWidget;
    m_findText = new QLineEdit;
    m_findText->setAccessibleName(XInLanguage(u"Find", u"Rechercher"));
    m_findText->setPlaceholderText(m_findText->accessibleName());
    m_findText->setClearButtonEnabled(true);
    m_findState = new QLabel;
    m_findState->setAccessibleName(XInLanguage(u"Matches", u"Résultats"));
    auto* const layout = new QHBoxLayout(m_findBar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_findText, 1);
    const auto addButton = [&](Qt::ArrowType arrow, const QString& name, void (SettingsWindow::*slot)()) {
        auto* const button = new QToolButton;
        button->setArrowType(arrow);
        button->setAccessibleName(name);
        button->setToolTip(name);
        button->setFocusPolicy(Qt::TabFocus);
        connect(button, &QToolButton::clicked, this, [this, slot] { Act(slot); });
        layout->addWidget(button);
    };
    addButton(Qt::UpArrow, XInLanguage(u"Previous match", u"Résultat précédent"), &SettingsWindow::FindPrevious);
    addButton(Qt::DownArrow, XInLanguage(u"Next match", u"Résultat suivant"), &SettingsWindow::FindNext);
    layout->addWidget(m_findState);
    connect(m_findText, &QLineEdit::textChanged, this, &SettingsWindow::StartFind);
    connect(m_findText, &QLineEdit::returnPressed, this, [this] { Act(&SettingsWindow::FindNext); });
    auto* const escape = new QShortcut(QKeySequence(Qt::Key_Escape), m_findBar);
    escape->setContext(Qt::WidgetWithChildrenShortcut);
    connect(escape, &QShortcut::activated, this, [this] {
        m_shown->m_finder.Stop();
        m_findBar->hide();
        m_table->setFocus();
    });
    m_findBar->hide();
    return m_findBar;
}

QAction* SettingsWindow::AddAction(QMenu* menu, const char* name, const QString& text, const QKeySequence& keys,
                                   void (SettingsWindow::*slot)())
{
    QAction* const action = menu->addAction(text);
    action->setObjectName(QString::fromLatin1(name));
    action->setShortcut(keys);
    connect(action, &QAction::triggered, this, [this, slot] { Act(slot); });
    return action;
}

void SettingsWindow::BuildMenus()
{
    QMenu* const file = menuBar()->addMenu(XInLanguage(u"&File", u"&Fichier"));
    AddAction(file, "openFile", XInLanguage(u"&Open preference file…", u"&Ouvrir un fichier de préférences…"),
              QKeySequence::Open, &SettingsWindow::OpenFile);
    AddAction(file, "openRegistry", XInLanguage(u"Open &registry", u"Ouvrir le &registre"),
              QKeySequence(Qt::CTRL | Qt::Key_R), &SettingsWindow::OpenRegistry);
    file->addSeparator();
    AddAction(file, "export", XInLanguage(u"&Export…", u"&Exporter…"), QKeySequence(Qt::CTRL | Qt::Key_E),
              &SettingsWindow::Export);
    AddAction(file, "import", XInLanguage(u"&Import…", u"&Importer…"), QKeySequence(Qt::CTRL | Qt::Key_I),
              &SettingsWindow::Import);
    file->addSeparator();
    AddAction(file, "refresh", XInLanguage(u"Re&fresh", u"&Actualiser"), QKeySequence::Refresh,
              &SettingsWindow::Refresh);
    QAction* const close = file->addAction(XInLanguage(u"&Close", u"&Fermer"));
    close->setShortcut(QKeySequence::Quit);
    connect(close, &QAction::triggered, this, &QWidget::close);
    BuildEditMenu();
}

void SettingsWindow::BuildEditMenu()
{
    QMenu* const edit = menuBar()->addMenu(XInLanguage(u"&Edit", u"&Édition"));
    m_undo = AddAction(edit, "undo", {}, QKeySequence::Undo, &SettingsWindow::Undo);
    m_redo = AddAction(edit, "redo", {}, QKeySequence::Redo, &SettingsWindow::Redo);
    edit->addSeparator();
    m_newNode = AddAction(edit, "newNode", XInLanguage(u"New &key or store…", u"Nouvelle &clé ou nouveau magasin…"),
                          QKeySequence::New, &SettingsWindow::NewNode);
    m_changes.push_back(AddAction(edit, "newValue", XInLanguage(u"&New value…", u"Nouvelle &valeur…"),
                                  QKeySequence(Qt::Key_Insert), &SettingsWindow::NewValue));
    AddAction(edit, "editValue", XInLanguage(u"&Edit value…", u"&Modifier la valeur…"),
              QKeySequence(Qt::CTRL | Qt::Key_Return), &SettingsWindow::EditValue);
    m_changes.push_back(AddAction(edit, "rename", XInLanguage(u"Re&name value…", u"&Renommer la valeur…"),
                                  QKeySequence(Qt::Key_F2), &SettingsWindow::RenameValue));
    m_changes.push_back(AddAction(edit, "delete", XInLanguage(u"&Delete", u"&Supprimer"), QKeySequence::Delete,
                                  &SettingsWindow::Delete));
    edit->addSeparator();
    AddAction(edit, "copy", XInLanguage(u"&Copy", u"Co&pier"), QKeySequence::Copy, &SettingsWindow::Copy);
    edit->addSeparator();
    AddAction(edit, "find", XInLanguage(u"&Find…", u"Rec&hercher…"), QKeySequence::Find, &SettingsWindow::ShowFind);
    AddAction(edit, "findNext", XInLanguage(u"Find ne&xt", u"Résultat &suivant"), QKeySequence(Qt::Key_F3),
              &SettingsWindow::FindNext);
    AddAction(edit, "findPrevious", XInLanguage(u"Find &previous", u"Résultat &précédent"),
              QKeySequence(Qt::SHIFT | Qt::Key_F3), &SettingsWindow::FindPrevious);
    for (QWidget* const view : std::initializer_list<QWidget*>{m_tree, m_table})
    {
        view->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(view, &QWidget::customContextMenuRequested, edit,
                [edit, view](const QPoint& at) { edit->popup(view->mapToGlobal(at)); });
    }
}

void SettingsWindow::SetSource(std::unique_ptr<SettingsSource> source)
{
    m_tree->setModel(nullptr);
    m_table->setModel(nullptr);
    m_shown = std::make_unique<Shown>(std::move(source));
    m_match = -1;
    m_goal.reset();
    m_findText->clear();
    m_findState->clear();
    m_tree->setModel(&m_shown->m_nodes);
    m_table->setModel(&m_shown->m_values);
    const int unit = fontMetrics().averageCharWidth();
    for (const auto& [column, width] :
         {std::pair(ValueModel::kName, 24), {ValueModel::kKind, 10}, {ValueModel::kSize, 10}})
        m_table->setColumnWidth(column, std::max(unit * width, m_table->horizontalHeader()->sectionSizeHint(column)));
    connect(m_tree->selectionModel(), &QItemSelectionModel::currentChanged, this, &SettingsWindow::ChooseNode);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &SettingsWindow::ShowState);
    connect(&m_shown->m_nodes, &NodeModel::Loaded, this, [this] {
        if (!m_tree->currentIndex().isValid() && m_shown->m_nodes.rowCount({}) == 1) // the one store of a program
            m_tree->setCurrentIndex(m_shown->m_nodes.index(0, 0, {}));
        ShowLoaded();
    });
    connect(&m_shown->m_values, &ValueModel::Loaded, this, &SettingsWindow::ShowLoaded);
    m_shown->m_history.SetRunner([this](const std::function<void(SettingsSource&)>& work) {
        bool isRun = false;
        Run(XInLanguage(u"Save", u"Enregistrer"), m_shown->m_source->TakesLong(),
            [&](SettingsSource& own, TransferState& state) {
                isRun = state.StartLastStep();
                if (isRun)
                    work(own);
            });
        return isRun;
    });
    connect(&m_shown->m_history.GetStack(), &QUndoStack::indexChanged, this, &SettingsWindow::ShowState);
    connect(&m_shown->m_finder, &Finder::Changed, this, &SettingsWindow::ShowMatches);
    setWindowFilePath({});
    setWindowTitle(QFileInfo(m_shown->m_source->GetName()).fileName());
    ChooseNode();
    m_tree->setFocus();
}

Place SettingsWindow::ChosenPlace() const
{
    return m_shown->m_nodes.PlaceOf(m_tree->currentIndex());
}

void SettingsWindow::ChooseNode()
{
    const Place place = ChosenPlace();
    m_shown->m_values.SetPlace(place);
    m_watch.SetFile(m_shown->m_source->GetFile(place));
    m_path->SetText(Escaped(place.empty() ? m_shown->m_source->GetName()
                                          : m_shown->m_source->GetPlaceText(place) + QStringLiteral("  —  ") +
                                                m_shown->m_source->GetFile(place)));
    ShowState();
}

void SettingsWindow::ShowState()
{
    SettingsSource& source = *m_shown->m_source;
    const Place place = ChosenPlace();
    const QString readOnly = source.WhyReadOnly(place);
    QStringList notices{source.GetFault(), m_shown->m_nodes.FaultOf(m_tree->currentIndex()), m_shown->m_values.Fault(),
                        place.empty() ? QString() : readOnly};
    notices.removeAll(QString());
    notices.removeDuplicates();
    m_notice->setText(notices.join(u'\n'));
    m_notice->setVisible(!notices.isEmpty());
    for (QAction* const action : m_changes)
        action->setEnabled(readOnly.isEmpty() && !place.empty());
    const Place above = source.CanHaveNodes(place) ? place : Place();
    m_newNode->setEnabled(source.CanHaveNodes(above) && source.WhyReadOnly(above).isEmpty());
    const QUndoStack& stack = m_shown->m_history.GetStack();
    m_undo->setEnabled(stack.canUndo());
    m_undo->setText(XInLanguage(u"&Undo", u"&Annuler") + u' ' + stack.undoText());
    m_redo->setEnabled(stack.canRedo());
    m_redo->setText(XInLanguage(u"&Redo", u"&Rétablir") + u' ' + stack.redoText());
    const int count = m_shown->m_values.rowCount();
    statusBar()->showMessage(
        place.empty() ? QString()
                      : QString::number(count) + u' ' +
                            (count == 1 ? XInLanguage(u"value", u"valeur") : XInLanguage(u"values", u"valeurs")) +
                            (m_shown->m_values.IsLoading() ? QStringLiteral("…") : QString()));
}

// What is shown is read again; views keep what is chosen and where they are.
void SettingsWindow::Refresh()
{
    m_isStale = false;
    m_shown->m_source->Refresh();
    m_shown->m_nodes.Refresh();
    m_shown->m_values.Refresh();
    ShowState();
}

void SettingsWindow::ShowReading()
{
    const std::optional<int> progress = m_shown->m_source->GetReadProgress();
    m_readBar->setVisible(progress.has_value());
    m_readProgress->setMaximum(progress.value_or(-1) < 0 ? 0 : 100);
    m_readProgress->setValue(progress.value_or(-1));
}

/// What was read may hold where the person was to be led.
void SettingsWindow::ShowLoaded()
{
    const std::optional<Match> goal = std::exchange(m_goal, std::nullopt);
    if (goal && ChosenPlace() == m_goalFrom)
        GoTo(goal->m_place, goal->m_id);
    ShowState();
}

void SettingsWindow::Poll()
{
    ShowReading();
    if (m_isTransferring)
        return;
    m_isStale = m_watch.Poll() || m_isStale;
    if (m_isStale && !m_shown->m_nodes.IsLoading() &&
        !m_shown->m_values.IsLoading()) // else a long list would never end
        Refresh();
}

bool SettingsWindow::GoTo(const Place& place, const std::optional<std::wstring>& id)
{
    bool isThere = false;
    const QModelIndex node = m_shown->m_nodes.Find(place, &isThere);
    if (node.isValid())
    {
        m_tree->setCurrentIndex(node);
        m_tree->scrollTo(node);
    }
    if (isThere && id)
    {
        const int row = m_shown->m_values.FindRow(*id);
        isThere = row >= 0;
        if (isThere)
            m_table->setCurrentIndex(m_shown->m_values.index(row, 0));
    }
    if (!isThere && (m_shown->m_nodes.IsLoading() || m_shown->m_values.IsLoading()))
    {
        m_goal = Match{place, id};
        m_goalFrom = ChosenPlace();
    }
    return isThere;
}

void SettingsWindow::ShowFind()
{
    m_findBar->show();
    m_findText->setFocus();
    m_findText->selectAll();
}

void SettingsWindow::StartFind()
{
    m_match = -1;
    m_shown->m_finder.Start(m_findText->text());
    ShowMatches();
}

void SettingsWindow::ShowMatches()
{
    const Finder& finder = m_shown->m_finder;
    const auto count = static_cast<std::ptrdiff_t>(finder.GetMatches().size());
    if (m_match < 0 && count != 0)
        GoToMatch(1);
    const QString more =
        finder.IsRunning() || finder.GetMatches().size() == Finder::kMostMatches ? QStringLiteral("…") : QString();
    m_findState->setText(m_findText->text().isEmpty() ? QString()
                         : count == 0 && !finder.IsRunning()
                             ? XInLanguage(u"not found", u"introuvable")
                             : QString::number(m_match + 1) + QStringLiteral(" / ") + QString::number(count) + more);
}

void SettingsWindow::GoToMatch(std::ptrdiff_t step)
{
    const std::vector<Match>& matches = m_shown->m_finder.GetMatches();
    const auto count = static_cast<std::ptrdiff_t>(matches.size());
    if (count == 0)
        return;
    m_match = (m_match + step + count) % count;
    const Match match = matches[static_cast<std::size_t>(m_match)];
    GoTo(match.m_place, match.m_id);
}

void SettingsWindow::FindNext()
{
    GoToMatch(1);
    ShowMatches();
}

void SettingsWindow::FindPrevious()
{
    GoToMatch(m_match < 0 ? 0 : -1);
    ShowMatches();
}

// While work runs, the window stays until that has ended, and closes then.
void SettingsWindow::closeEvent(QCloseEvent* event)
{
    event->setAccepted(!m_isTransferring);
    m_isClosing = m_isTransferring;
    if (auto* const progress = findChild<QProgressDialog*>())
        Q_EMIT progress->canceled(); // as if its button were clicked
    if (event->isAccepted() && !m_placeFile.IsEmpty())
        SaveWindowPlace();
}
} // namespace tev::browser
