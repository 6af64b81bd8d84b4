#include "qt/log/LogWindow.h"

#include "qt/log/ColorDialog.h"
#include "qt/log/LogView.h"
#include "qt/log/PatternField.h"
#include "qt/toolkit/ElidedLabel.h"
#include "qt/toolkit/QtText.h"
#include "services/CPathString.h"

#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFontDatabase>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMessageBox>
#include <QMimeData>
#include <QScreen>
#include <QStatusBar>
#include <QUrl>

#include <algorithm>

namespace
{
constexpr int kTick = 100;           // milliseconds
constexpr unsigned kCheckTicks = 20; // file systems of networks report no changes
constexpr int kFilterDelay = 250;    // milliseconds after the last key

QString NumberText(std::uint64_t number)
{
    return QLocale().toString(static_cast<qulonglong>(number));
}

QString ProgressText(const LineScan::Totals& totals, std::uint64_t fileSize)
{
    if (totals.m_isAtEnd || fileSize == 0)
        return QString();
    const double percent = 100.0 * static_cast<double>(totals.m_scannedTo) / static_cast<double>(fileSize);
    return QStringLiteral(" (%1\u00a0%)").arg(static_cast<int>(std::min(percent, 99.0)));
}

// Programs also drag lists that are empty, and addresses of other machines.
QString DroppedFile(const QDropEvent& event)
{
    const QList<QUrl> urls = event.mimeData()->urls();
    const auto file = std::find_if(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
    return file != urls.end() ? file->toLocalFile() : QString();
}

QString EncodingName(xStringEncoding encoding)
{
    switch (static_cast<unsigned>(encoding))
    {
    case xEncodingAnsi:
        return QStringLiteral("ANSI");
    case xEncodingUtf8:
        return QStringLiteral("UTF-8");
    case xEncodingUtf16:
        return QStringLiteral("UTF-16");
    case xEncodingUtf16BE:
        return QStringLiteral("UTF-16BE");
    case 12000:
        return QStringLiteral("UTF-32");
    case 12001:
        return QStringLiteral("UTF-32BE");
    default:
        return QString::number(static_cast<unsigned>(encoding));
    }
}
} // namespace

LogWindow::LogWindow(CXTString<wchar_t> settingsPath, QWidget* parent)
    : QMainWindow(parent),
      m_settingsPath(std::move(settingsPath)),
      m_settings(LogSettings::Load(m_settingsPath)),
      m_savedSettings(m_settings),
      m_view(new LogView(m_document, this))
{
    setAcceptDrops(true);
    setCentralWidget(m_view);
    MakeToolBars();
    MakeMenus();
    MakeStatusBar();
    tev::SetColorTheme(m_settings.m_theme);
    m_view->SetColors(LogColors(m_settings.m_rules));
    m_view->SetLineNumbersVisible(m_settings.m_hasLineNumbers);
    m_view->SetFollowing(m_settings.m_isFollowing);
    SetFontSize(m_settings.m_fontSize);
    setWindowTitle(XInLanguage(u"Log viewer", u"Visionneuse de journaux"));
    const QSize size(fontMetrics().averageCharWidth() * 130, fontMetrics().height() * 40);
    resize(size.boundedTo(screen()->availableSize()));
    if (!m_settings.m_geometry.isEmpty())
        restoreGeometry(m_settings.m_geometry);

    connect(m_view, &LogView::CopyWasCut, this, [this] {
        statusBar()->showMessage(
            XInLanguage(u"Only the first 16 MB were copied", u"Seuls les 16 premiers Mo ont \u00e9t\u00e9 copi\u00e9s"),
            10000);
    });
    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(kFilterDelay);
    connect(&m_filterTimer, &QTimer::timeout, this, &LogWindow::ApplyFilter);
    m_timer.setInterval(kTick);
    connect(&m_timer, &QTimer::timeout, this, &LogWindow::Tick);
    m_timer.start();
    m_view->setFocus();
    Tick();
}

LogWindow::~LogWindow() = default;

void LogWindow::MakeStatusBar()
{
    m_event = new tev::ElidedLabel({}, this);
    m_counts = new QLabel(this);
    m_form = new QLabel(this);
    statusBar()->addWidget(m_event, 1);
    statusBar()->addPermanentWidget(m_counts);
    statusBar()->addPermanentWidget(m_form);
}

void LogWindow::Open(const CXTString<wchar_t>& path, std::uint64_t line)
{
    m_encoding = xEncodingUnknown;
    FindAction("encoding0")->setChecked(true);
    m_pendingFind = 0;
    m_pendingLine.reset();
    m_document.Open(path);
    if (line != 0)
    {
        m_pendingLine = line - 1;
        m_view->SetFollowing(false);
    }
    const CPathString whole(path);
    setWindowTitle(XToQString(whole.GetFileName()) + QStringLiteral(" \u2013 ") +
                   XInLanguage(u"Log viewer", u"Visionneuse de journaux"));
    if (m_document.GetStatus().m_isOpen)
    {
        m_settings.AddRecent(path);
        SaveSettings();
    }
    Watch();
    Tick();
}

void LogWindow::Watch()
{
    m_watcher.RemoveAll();
    CPathString folder(m_document.GetPath());
    folder = folder.GetFolder();
    // Where this is refused, the file is looked at every two seconds.
    m_watcher.AddRefreshNotification(folder, false,
                                     CWatchFolder::kFileNames | CWatchFolder::kSize | CWatchFolder::kLastWrite);
}

void LogWindow::Tick()
{
    bool isChanged = m_watcher.CheckRefreshNotification();
    if (isChanged)
        const CXFolderChanges changes(m_watcher); // any of them may be that of the file
    if (isChanged || ++m_ticks % kCheckTicks == 0)
        m_document.RequestCheck();
    m_document.Tick();
    // One status for all, so that what is waited for is judged by the rows that are shown.
    const LogStatus status = m_document.GetStatus();
    m_view->Refresh(status);
    GoToPending(status);
    ShowStatus(status);
}

void LogWindow::GoToPending(const LogStatus& status)
{
    if (m_pendingLine.has_value() && (status.m_rows.m_lines > *m_pendingLine || status.m_rows.m_isAtEnd))
    {
        const std::uint64_t row = m_document.RowOfLine(*m_pendingLine);
        m_pendingLine.reset();
        m_view->GoToRow(row);
    }
    if (m_pendingFind != 0)
        Find(m_pendingFind);
}

QString LogWindow::EventText(const LogStatus& status) const
{
    switch (status.m_event)
    {
    case FileEvent::Cut:
        return XInLanguage(u"The file was cut; it is shown from its start",
                           u"Le fichier a \u00e9t\u00e9 tronqu\u00e9\u00a0; il est affich\u00e9 depuis son d\u00e9but");
    case FileEvent::Replaced:
        return XInLanguage(u"The file was replaced; the new one is shown",
                           u"Le fichier a \u00e9t\u00e9 remplac\u00e9\u00a0; le nouveau est affich\u00e9");
    case FileEvent::Changed:
        return XInLanguage(u"The file was changed; it is shown as it is now",
                           u"Le fichier a \u00e9t\u00e9 modifi\u00e9\u00a0; il est affich\u00e9 tel qu'il est");
    case FileEvent::Deleted:
        return status.m_isOpen ? XInLanguage(u"The file was deleted; what was read of it is still shown",
                                             u"Le fichier a \u00e9t\u00e9 supprim\u00e9\u00a0; ce qui en a "
                                             u"\u00e9t\u00e9 lu reste affich\u00e9")
                               : XInLanguage(u"There is no such file", u"Ce fichier n'existe pas");
    case FileEvent::Locked:
        return XInLanguage(u"Another program has locked the file; it is read when that ends",
                           u"Un autre programme a verrouill\u00e9 le fichier\u00a0; il sera lu ensuite");
    case FileEvent::Unreadable:
        return XInLanguage(u"The file cannot be read: ", u"Le fichier ne peut pas \u00eatre lu\u00a0: ") +
               XToQString(status.m_reason);
    case FileEvent::Back:
        return XInLanguage(u"The file can be read again", u"Le fichier peut de nouveau \u00eatre lu");
    case FileEvent::None:
        break;
    }
    return QString();
}

QString LogWindow::GetEventText() const
{
    return m_event->WholeText();
}

void LogWindow::ShowStatus(const LogStatus& status)
{
    QString text = EventText(status);
    if (status.m_lines.m_hasFailed)
        text = XInLanguage(u"The file cannot be read to its end", u"Le fichier ne peut pas \u00eatre lu jusqu'au bout");
    const QString path = XToQString(m_document.GetPath());
    if (text.isEmpty())
        text = path;
    if (m_event->WholeText() != text)
        m_event->SetText(text);
    ShowCounts(status);
    ShowMatches(status);
}

void LogWindow::ShowCounts(const LogStatus& status)
{
    QString counts;
    if (status.m_isOpen && status.m_isFiltered)
        counts = XInLanguage(u"%1 of %2 lines", u"%1 lignes sur %2")
                     .arg(NumberText(status.m_rows.m_hits), NumberText(status.m_lines.m_lines));
    else if (status.m_isOpen)
        counts = XInLanguage(status.m_lines.m_lines == 1 ? u"%1 line" : u"%1 lines",
                             status.m_lines.m_lines < 2 ? u"%1 ligne" : u"%1 lignes")
                     .arg(NumberText(status.m_lines.m_lines));
    m_counts->setText(counts + ProgressText(status.m_rows, status.m_fileSize));
    m_form->setText(status.m_isOpen ? QLocale().formattedDataSize(static_cast<qint64>(status.m_fileSize)) +
                                          QStringLiteral("   ") + EncodingName(status.m_encoding)
                                    : QString());
}

void LogWindow::ShowMatches(const LogStatus& status)
{
    if (!status.m_isSearched)
        return m_matches->setText(QString());
    const bool isNone = status.m_matches.m_hits == 0 && status.m_matches.m_isAtEnd;
    m_matches->setText(
        isNone ? XInLanguage(u"Not found", u"Introuvable")
               : XInLanguage(u"%1 lines found", u"%1 lignes trouv\u00e9es").arg(NumberText(status.m_matches.m_hits)) +
                     ProgressText(status.m_matches, status.m_fileSize));
}

void LogWindow::ApplyFilter()
{
    m_filterTimer.stop();
    if (!m_pendingLine.has_value() && m_view->CountRows() != 0 && !m_view->IsFollowing())
        m_pendingLine = m_view->CurrentLine();
    m_document.SetFilter(m_filter->GetPattern(), m_columns);
    Tick();
}

void LogWindow::ApplySearch()
{
    m_document.SetSearch(m_find->GetPattern());
    m_findFrom = m_view->CurrentRow();
    m_pendingFind = m_find->GetPattern().m_text.isEmpty() ? 0 : 1;
    Tick();
}

void LogWindow::ShowFind()
{
    m_findBar->show();
    m_find->GetEdit().setFocus();
    m_find->GetEdit().selectAll();
}

void LogWindow::HideFind()
{
    m_findBar->hide();
    m_find->GetEdit().clear();
    m_view->setFocus();
}

// A match that has not been found or is not among the shown rows yet is waited for; behind the last one comes the first.
void LogWindow::Find(int direction)
{
    const LogStatus status = m_document.GetStatus();
    if (!status.m_isSearched)
        return ShowFind();
    if (m_pendingFind == 0)
        m_findFrom = direction > 0 ? m_view->CurrentRow() + 1 : m_view->CurrentRow();
    m_pendingFind = direction;
    std::optional<std::uint64_t> match =
        direction > 0 ? m_document.NextMatch(m_findFrom) : m_document.PreviousMatch(m_findFrom);
    const bool isAllSearched = status.m_matches.m_isAtEnd || status.m_matches.m_hasFailed;
    if (!match.has_value() && !isAllSearched)
        return;
    if (!match.has_value())
        match = direction > 0 ? m_document.NextMatch(0) : m_document.PreviousMatch(status.m_matches.m_base);
    if (match.has_value() && *match >= m_view->CountRows())
        return;
    m_pendingFind = 0;
    if (match.has_value())
        m_view->GoToRow(*match);
}

void LogWindow::AskForLine()
{
    const LogStatus status = m_document.GetStatus();
    bool isGiven = false;
    const double most = std::max(1.0, static_cast<double>(status.m_lines.m_lines));
    const double line = QInputDialog::getDouble(this, XInLanguage(u"Go to line", u"Aller \u00e0 la ligne"),
                                                XInLanguage(u"Line:", u"Ligne\u00a0:"),
                                                static_cast<double>(m_view->CurrentLine() + 1), 1, most, 0, &isGiven);
    if (!isGiven)
        return;
    m_pendingLine = static_cast<std::uint64_t>(line) - 1;
    Tick();
}

void LogWindow::ChooseFile()
{
    const QString folder = XToQString(CPathString(m_document.GetPath()).GetFolder());
    const QString path = QFileDialog::getOpenFileName(
        this, XInLanguage(u"Open a log", u"Ouvrir un journal"), folder,
        XInLanguage(u"Logs (*.log *.txt);;All files (*)", u"Journaux (*.log *.txt);;Tous les fichiers (*)"));
    if (!path.isEmpty())
        Open(XFromQString(path));
}

void LogWindow::Reload(xStringEncoding encoding)
{
    m_encoding = encoding;
    if (m_document.GetPath().IsEmpty())
        return;
    m_pendingLine = m_view->CurrentLine();
    m_document.Open(m_document.GetPath(), encoding);
    Tick();
}

void LogWindow::EditColors()
{
    ColorDialog dialog(m_settings.m_rules, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_settings.m_rules = dialog.GetRules();
    m_view->SetColors(LogColors(m_settings.m_rules));
    SaveSettings();
}

void LogWindow::SetTheme(tev::ColorTheme theme)
{
    m_settings.m_theme = theme;
    tev::SetColorTheme(theme);
    SaveSettings();
}

void LogWindow::SetFontSize(int points)
{
    m_settings.m_fontSize = points;
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (points > 0)
        font.setPointSize(points);
    m_view->setFont(font);
}

void LogWindow::SaveSettings()
{
    if (m_settings.Save(m_settingsPath, m_savedSettings))
        m_savedSettings = m_settings;
    else
        statusBar()->showMessage(XInLanguage(u"The settings could not be saved",
                                             u"Les r\u00e9glages n'ont pas pu \u00eatre enregistr\u00e9s"),
                                 10000);
}

void LogWindow::closeEvent(QCloseEvent* event)
{
    m_settings.m_geometry = saveGeometry();
    SaveSettings();
    QMainWindow::closeEvent(event);
}

void LogWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (!DroppedFile(*event).isEmpty())
        event->acceptProposedAction();
}

void LogWindow::dropEvent(QDropEvent* event)
{
    const QString path = DroppedFile(*event);
    if (path.isEmpty())
        return;
    Open(XFromQString(path));
    event->acceptProposedAction();
}

void LogWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() != Qt::Key_Escape)
        return QMainWindow::keyPressEvent(event);
    if (m_findBar->isVisible())
        return HideFind();
    m_filter->GetEdit().clear();
    m_view->setFocus();
}
