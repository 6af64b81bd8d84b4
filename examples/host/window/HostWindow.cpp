#include "examples/host/window/HostWindow.h"

#include "examples/host/window/Viewport.h"
#include "qt/toolkit/QtText.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QDoubleSpinBox>
#include <QDropEvent>
#include <QFileDialog>
#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>

namespace host
{
namespace
{
constexpr int kLookMs = 50;
constexpr int kLookAtFilesMs = 2000; ///< some file systems report no changes
constexpr int kLongestNotice = 4;    // lines

/// The filters of a dialog for files, from the registry of file types: scenes that can be loaded, or saved.
QString FileFilters(unsigned filter, bool withPacked)
{
    QStringList filters;
    QStringList all;
    for (const CFileExt& type : CXRegisteredFiles(xFile3DScene | filter))
    {
        const CXTString<wchar_t> extensions = type.GetExtension();
        if (!IsModelName(L"x" + extensions) && !IsSceneName(L"x" + extensions))
            continue;
        all << QStringLiteral("*") + XToQString(extensions);
        filters << XToQString(type.GetDescription()) + QStringLiteral(" (*") + XToQString(extensions) +
                       QStringLiteral(")");
    }
    if (!withPacked)
        return filters.join(QStringLiteral(";;"));
    all << QStringLiteral("*.obj.gz") << QStringLiteral("*.obj.zst") << QStringLiteral("*.zip");
    filters.prepend(XInLanguage(u"All that can be opened", u"Tout ce qui peut s'ouvrir") + QStringLiteral(" (") +
                    all.join(QStringLiteral(" ")) + QStringLiteral(")"));
    return filters.join(QStringLiteral(";;"));
}

/// What a person reads of an exception, which is deleted. Some do not say which file they are about.
QString TextOf(CXException* exception, const CPathString& path)
{
    const auto* model = dynamic_cast<const ModelException*>(exception);
    const QString text = XToQString(model != nullptr ? model->GetMessageText() : XGetExceptionText(exception));
    const QString name = XToQString(path.GetFileName());
    exception->Delete();
    return text.contains(name) ? text : name + QStringLiteral(": ") + text;
}
} // namespace

HostWindow::HostWindow(const CPathString& preferences, const PlugIns& plugIns)
    : m_preferences(preferences), m_plugIns(plugIns)
{
    setWindowTitle(XInLanguage(u"Host", u"H\u00f4te") + QStringLiteral("[*]"));
    setAcceptDrops(true);
    auto* const middle = new QWidget;
    auto* const column = new QVBoxLayout(middle);
    column->setContentsMargins(0, 0, 0, 0);
    m_viewport = new Viewport;
    column->addWidget(MakeNotice());
    column->addWidget(m_viewport, 1);
    setCentralWidget(middle);

    auto* const dock = new QDockWidget(XInLanguage(u"Scene", u"Sc\u00e8ne"));
    dock->setObjectName(QStringLiteral("scene"));
    m_sidebar = MakeSidebar();
    dock->setWidget(m_sidebar);
    addDockWidget(Qt::RightDockWidgetArea, dock);

    m_progress = new QProgressBar;
    m_progress->setAccessibleName(XInLanguage(u"Progress of opening", u"Progression de l'ouverture"));
    m_cancel = new QPushButton(XInLanguage(u"Cancel", u"Annuler"));
    connect(m_cancel, &QPushButton::clicked, this, &HostWindow::StopLoading);
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_cancel);
    MakeMenus();
    ShowLoading(false);
    const std::vector<unsigned char> place = m_preferences.GetWindowPlace();
    restoreGeometry(QByteArray(reinterpret_cast<const char*>(place.data()), static_cast<int>(place.size())));
    m_timer.callOnTimeout(this, &HostWindow::Look);
    m_timer.start(kLookMs);
    m_sinceLook.start();
}

HostWindow::~HostWindow()
{
    StopLoading();
}

void HostWindow::MakeMenus()
{
    QMenu* const file = menuBar()->addMenu(XInLanguage(u"&File", u"&Fichier"));
    file->addAction(XInLanguage(u"&Open\u2026", u"&Ouvrir\u2026"), QKeySequence::Open, this,
                    &HostWindow::AskWhatToOpen);
    QMenu* const recent = file->addMenu(XInLanguage(u"&Recent files", u"Fichiers &r\u00e9cents"));
    connect(recent, &QMenu::aboutToShow, this, [this, recent] { ShowRecentFiles(*recent); });
    file->addAction(XInLanguage(u"&Save scene\u2026", u"&Enregistrer la sc\u00e8ne\u2026"), QKeySequence::SaveAs, this,
                    &HostWindow::AskWhereToSave);
    file->addSeparator();
    file->addAction(XInLanguage(u"&Quit", u"&Quitter"), QKeySequence::Quit, this, &QWidget::close);

    QAction* const wires = menuBar()
                               ->addMenu(XInLanguage(u"&View", u"&Affichage"))
                               ->addAction(XInLanguage(u"As &wires", u"En fil de &fer"));
    wires->setCheckable(true);
    connect(wires, &QAction::toggled, m_viewport, &Viewport::ShowAsWires);
    wires->setChecked(m_preferences.GetAsWires());
    connect(wires, &QAction::triggered, this, [this](bool asWires) { m_preferences.SetAsWires(asWires); });

    m_insert = menuBar()->addMenu(XInLanguage(u"&Insert", u"&Insertion"));
    QMenu* const tools = menuBar()->addMenu(XInLanguage(u"&Tools", u"&Outils"));
    for (const CXRuntimeClass* const type : XGetDerivedClasses(Primitive::GetThisRuntimeClassDescriptor()))
        m_insert->addAction(QString::fromUtf8(type->m_name), this, [this, type] { InsertShape(*type); });
    for (const PlugInCommand* const command : m_plugIns.GetCommands())
        tools->addAction(XToQString(Say(command->m_english, command->m_french)), this,
                         [this, command] { command->m_run(m_meshes); });
    MakeCrashMenu();
}

QWidget* HostWindow::MakeNotice()
{
    m_noticeBar = new QWidget;
    auto* const row = new QHBoxLayout(m_noticeBar);
    m_noticeText = new QLabel;
    m_noticeText->setWordWrap(true);
    m_noticeText->setTextFormat(Qt::PlainText);
    m_reload = new QPushButton(XInLanguage(u"Load again", u"Recharger"));
    connect(m_reload, &QPushButton::clicked, this, [this] { Open(m_path); });
    auto* const close = new QPushButton(XInLanguage(u"Close", u"Fermer"));
    connect(close, &QPushButton::clicked, m_noticeBar, &QWidget::hide);
    row->addWidget(m_noticeText, 1);
    row->addWidget(m_reload);
    row->addWidget(close);
    m_noticeBar->hide();
    return m_noticeBar;
}

QWidget* HostWindow::MakeSidebar()
{
    auto* const sidebar = new QWidget;
    auto* const column = new QVBoxLayout(sidebar);
    m_shapes = new QListWidget;
    m_shapes->setAccessibleName(XInLanguage(u"Shapes", u"Formes"));
    connect(m_shapes, &QListWidget::currentRowChanged, this, &HostWindow::ShowParameters);
    auto* const parameters = new QWidget;
    m_parameters = new QFormLayout(parameters);
    m_parameters->setRowWrapPolicy(QFormLayout::WrapLongRows);
    column->addWidget(m_shapes, 1);
    column->addWidget(parameters);
    return sidebar;
}

void HostWindow::AskWhatToOpen()
{
    const QString path = QFileDialog::getOpenFileName(this, {}, XToQString(m_path.GetFolder()), FileFilters(0x1, true));
    if (!path.isEmpty())
        Open(XFromQString(path));
}

void HostWindow::AskWhereToSave()
{
    QFileDialog dialog(this, {}, XToQString(m_path.GetFolder()), FileFilters(0x2, false));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("tevscene"));
    if (dialog.exec() == QDialog::Accepted)
        Save(XFromQString(dialog.selectedFiles().value(0)));
}

void HostWindow::ShowRecentFiles(QMenu& menu)
{
    menu.clear();
    for (const CXTString<wchar_t>& path : m_preferences.GetRecentFiles())
    {
        const QString whole = XToQString(path);
        constexpr int kWidest = 400;
        QString shown = fontMetrics().elidedText(whole, Qt::ElideMiddle, kWidest);
        menu.addAction(shown.replace(u'&', QStringLiteral("&&")), this, [this, path] { Open(path); })
            ->setToolTip(XPlainToolTip(whole));
    }
    menu.setToolTipsVisible(true);
}

void HostWindow::InsertShape(const CXRuntimeClass& type)
{
    std::unique_ptr<Shape> shape(static_cast<Shape*>(type.CreateObject()));
    if (shape == nullptr)
        return Notice(XToQString(XLastFailure().GetText()), false);
    shape->m_name = CXTString<wchar_t>(type.m_name);
    m_scene->m_shapes.push_back(std::move(shape));
    m_meshes.push_back(m_scene->m_shapes.back()->MakeMesh());
    setWindowModified(true);
    ShowShapes();
    m_shapes->setCurrentRow(m_shapes->count() - 1);
}

void HostWindow::Open(const CPathString& path)
{
    if (!IsModelName(path) && !IsSceneName(path))
        return Notice(XInLanguage(u"This file is neither a model nor a scene: ",
                                  u"Ce fichier n'est ni un mod\u00e8le ni une sc\u00e8ne : ") +
                          XToQString(path),
                      false);
    if (MayLeaveScene())
        StartLoading(path, {});
}

/// Asks what becomes of changes that are not saved. False where the scene is to stay.
bool HostWindow::MayLeaveScene()
{
    if (!isWindowModified())
        return true;
    if (findChild<QMessageBox*>() != nullptr)
        return false; // is asked already
    QMessageBox box(QMessageBox::Question, QApplication::applicationDisplayName(),
                    XInLanguage(u"The scene has changes that are not saved.",
                                u"La sc\u00e8ne a des modifications non enregistr\u00e9es."),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    const int answer = box.exec();
    if (answer == QMessageBox::Save)
        AskWhereToSave();
    return answer == QMessageBox::Discard || !isWindowModified();
}

void HostWindow::StartLoading(const CPathString& path, std::function<void()> perform)
{
    StopLoading();
    WriteToLogFile(1, L"opening %s\n", path);
    auto* const loading = new Loading(path, std::move(perform));
    if (CXThread::BeginThread(loading, xThreadPriorityBelowNormal, CXThread::kBeginWithoutAutoDelete, 0) == nullptr)
        return Notice(XToQString(XLastFailure().GetText()), false);
    m_loading.reset(loading);
    m_noticeBar->hide();
    m_progress->setRange(0, 0);
    ShowLoading(true);
    statusBar()->showMessage(XInLanguage(u"Opening ", u"Ouverture de ") + XToQString(path.GetFileName()));
}

/// What would be changed while another scene takes its place would be lost.
void HostWindow::ShowLoading(bool isLoading)
{
    m_progress->setVisible(isLoading);
    m_cancel->setVisible(isLoading);
    m_sidebar->setEnabled(!isLoading);
    m_insert->setEnabled(!isLoading && !m_insert->isEmpty());
}

void HostWindow::StopLoading()
{
    if (m_loading == nullptr)
        return;
    m_loading->SetCancel();
    while (!m_loading->WaitForEnd(1000))
        WriteToLogFile(1, L"opening %s does not end yet\n", m_loading->GetPath());
    EndLoading();
}

void HostWindow::Look()
{
    if (m_loading != nullptr)
    {
        if (m_loading->WaitForEnd(0))
            return EndLoading();
        const int progress = m_loading->GetProgress();
        m_progress->setRange(0, progress < 0 ? 0 : 1000);
        m_progress->setValue(progress);
    }
    else if (m_watcher.CheckRefreshNotification() || m_sinceLook.hasExpired(kLookAtFilesMs))
        LookAtFiles();
}

void HostWindow::LookAtFiles()
{
    const CXFolderChanges fetched(m_watcher); // which file it was, the files say
    m_sinceLook.start();
    bool isChanged = false;
    for (FileState& file : m_files)
        isChanged = file.Look() || isChanged;
    if (isChanged)
        Notice(XInLanguage(u"The file has changed.", u"Le fichier a chang\u00e9."), true);
}

void HostWindow::EndLoading()
{
    const std::unique_ptr<Loading> loading = std::move(m_loading);
    ShowLoading(false);
    statusBar()->clearMessage();
    std::unique_ptr<Scene> scene = loading->TakeScene();
    if (scene == nullptr || loading->ShouldCancel())
    {
        CXException* const exception = loading->TakeException();
        const bool isCancelled = loading->ShouldCancel() || dynamic_cast<CXUserException*>(exception) != nullptr;
        const QString reason = exception == nullptr ? QString() : TextOf(exception, loading->GetPath());
        WriteToLogFile(1, L"not opened: %s: %s\n", loading->GetPath(), XFromQString(reason));
        if (!isCancelled)
            Notice(XInLanguage(u"The file cannot be opened: ", u"Le fichier ne peut \u00eatre ouvert : ") + reason,
                   false);
        if (loading->GetPath() == m_path)
            Watch(loading->GetFiles()); // it may have been read while it was written
        return;
    }
    m_path = loading->GetPath();
    Show(std::move(scene));
    QStringList notes;
    for (const CXTString<wchar_t>& warning : loading->GetWarnings())
        notes << XToQString(warning);
    if (const QString kept = KeptShapes(); !kept.isEmpty())
        notes << XInLanguage(u"Plug-ins are missing for these shapes, which are kept: ",
                             u"Il manque des modules pour ces formes, qui sont conserv\u00e9es : ") +
                     kept;
    WriteToLogFile(1, L"opened %s, %u shapes, %u notes\n", m_path, static_cast<unsigned>(m_meshes.size()),
                   static_cast<unsigned>(notes.size()));
    if (notes.size() > kLongestNotice)
        notes = notes.mid(0, kLongestNotice) << QStringLiteral("\u2026");
    if (!notes.isEmpty())
        Notice(notes.join(u'\n'), false);
    m_preferences.AddRecentFile(m_path);
    Watch(loading->GetFiles());
}

QString HostWindow::KeptShapes() const
{
    QStringList names;
    for (const auto& shape : m_scene->m_shapes)
    {
        if (const auto* kept = dynamic_cast<const KeptShape*>(shape.get()))
            names << XToQString(CXTString<wchar_t>(kept->m_className));
    }
    return names.join(QStringLiteral(", "));
}

/// What a newer plug-in has saved in a shape, and this one does not know, stays as long as the shape is not changed.
bool HostWindow::MayLoseNewer()
{
    QStringList names;
    for (const auto& shape : m_scene->m_shapes)
    {
        if (shape->m_losesNewer)
            names << XToQString(shape->m_name);
    }
    return names.isEmpty() ||
           XGetUserInterface().AskYesNo(
               XFromQString(
                   XInLanguage(u"These shapes were saved by newer plug-ins and have been changed: %1. What only a "
                               u"newer plug-in knows of them is lost. Save the scene?",
                               u"Ces formes viennent de modules plus r\u00e9cents et ont \u00e9t\u00e9 "
                               u"modifi\u00e9es : %1. Ce que seul un module plus r\u00e9cent en conna\u00eet sera "
                               u"perdu. Enregistrer la sc\u00e8ne ?")
                       .arg(names.join(QStringLiteral(", ")))),
               false);
}

void HostWindow::Save(const CPathString& path)
{
    if (!MayLoseNewer())
        return;
    try
    {
        SaveScene(*m_scene, path);
        for (const auto& shape : m_scene->m_shapes)
            shape->m_losesNewer = false;
        WriteToLogFile(1, L"saved %s\n", path);
        m_path = path;
        setWindowFilePath(XToQString(path));
        setWindowModified(false);
        m_preferences.AddRecentFile(path);
        Watch({FileState(path)});
    }
    catch (CXException* e)
    {
        Notice(XInLanguage(u"The scene cannot be saved: ", u"La sc\u00e8ne ne peut \u00eatre enregistr\u00e9e : ") +
                   TextOf(e, path),
               false);
    }
}

void HostWindow::Watch(std::vector<FileState> files)
{
    constexpr unsigned kFilter = CWatchFolder::kFileNames | CWatchFolder::kSize | CWatchFolder::kLastWrite;
    m_files = std::move(files);
    m_watcher.RemoveAll();
    for (const FileState& file : m_files)
    {
        if (!m_watcher.AddRefreshNotification(file.GetPath().GetFolder(), false, kFilter))
            WriteToLogFile(1, L"%s is not watched: %s\n", file.GetPath(), XLastFailure().GetText());
    }
    LookAtFiles(); // which may have changed since they were read
}

void HostWindow::Show(std::unique_ptr<Scene> scene)
{
    m_meshes.clear();
    m_scene = std::move(scene);
    for (const auto& shape : m_scene->m_shapes)
        m_meshes.push_back(shape->MakeMesh());
    setWindowFilePath(XToQString(m_path));
    setWindowModified(false);
    ShowShapes();
}

void HostWindow::ShowShapes()
{
    m_shapes->clear();
    for (const auto& shape : m_scene->m_shapes)
        m_shapes->addItem(XToQString(shape->m_name));
    ShowParameters();
    m_viewport->Show(m_meshes);
}

void HostWindow::ShowParameters()
{
    while (m_parameters->rowCount() > 0)
        m_parameters->removeRow(0);
    const int row = m_shapes->currentRow();
    if (row < 0)
        return;
    Shape* const shape = m_scene->m_shapes[static_cast<std::size_t>(row)].get();
    for (const Parameter& parameter : shape->GetParameters())
    {
        auto* const value = new QDoubleSpinBox;
        value->setRange(static_cast<double>(parameter.m_least), static_cast<double>(parameter.m_most));
        value->setSingleStep(0.1);
        value->setValue(static_cast<double>(*parameter.m_value));
        value->setAccessibleName(XToQString(parameter.m_name));
        m_parameters->addRow(XToQString(parameter.m_name), value);
        connect(value, &QDoubleSpinBox::valueChanged, this,
                [this, row, shape, place = parameter.m_value](double number) {
                    *place = static_cast<float>(number);
                    shape->NoteChange();
                    setWindowModified(true);
                    m_meshes[static_cast<std::size_t>(row)] = shape->MakeMesh();
                    m_viewport->Show(m_meshes);
                });
    }
}

void HostWindow::Notice(const QString& text, bool canReload)
{
    m_noticeText->setText(text);
    m_reload->setVisible(canReload);
    m_noticeBar->show();
}

void HostWindow::closeEvent(QCloseEvent* event)
{
    if (!MayLeaveScene())
        return event->ignore();
    StopLoading();
    for (QDialog* const dialog : findChildren<QDialog*>()) // whose answers have no use now
        dialog->reject();
    const QByteArray place = saveGeometry();
    m_preferences.SetWindowPlace(place.constData(), static_cast<unsigned>(place.size()));
    event->accept();
}

void HostWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls[0].isLocalFile())
        event->acceptProposedAction();
}

void HostWindow::dropEvent(QDropEvent* event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (!urls.isEmpty() && urls[0].isLocalFile())
        QTimer::singleShot(0, this, [this, path = urls[0].toLocalFile()] { Open(XFromQString(path)); }); // may ask
}
} // namespace host
