#pragma once

#include "qt/log/LogDocument.h"
#include "qt/log/LogSettings.h"
#include "services/CWatchFolder.h"

#include <QMainWindow>
#include <QTimer>

#include <optional>

class LogView;
class PatternField;
class QActionGroup;
class QLabel;
class QMenu;
namespace tev
{
class ElidedLabel;
}

/// The window of the viewer, with one log.
class LogWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// Keeps its settings in the file.
    explicit LogWindow(CXTString<wchar_t> settingsPath, QWidget* parent = nullptr);
    ~LogWindow() override;

    /// Shows a file, from a line on where one is given; 1 is the first.
    void Open(const CXTString<wchar_t>& path, std::uint64_t line = 0);

    LogDocument& GetDocument() noexcept { return m_document; }
    LogView& GetView() const noexcept { return *m_view; }
    PatternField& GetFilter() const noexcept { return *m_filter; }
    PatternField& GetFind() const noexcept { return *m_find; }
    const LogSettings& GetSettings() const noexcept { return m_settings; }
    /// What the status bar says of the file.
    QString GetEventText() const;
    /// The action of a menu by its name.
    QAction* FindAction(const char* name) const;

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    // In LogWindowMenus.cpp.
    using Handler = std::function<void()>;
    void MakeMenus();
    void MakeFileMenu();
    void MakeEditMenu();
    void MakeViewMenu();
    QAction* Add(QMenu& menu, const char* name, const QString& text, const QKeySequence& key, Handler handler);
    QAction* AddChoice(QMenu& menu, QActionGroup& group, const QString& text, bool isChosen, Handler handler);
    void MakeToolBars();
    void ShowRecent();

    void MakeStatusBar();
    void ChooseFile();
    void Reload(xStringEncoding encoding);
    void Watch();
    void Tick();
    void GoToPending(const LogStatus& status);
    void ShowStatus(const LogStatus& status);
    void ShowCounts(const LogStatus& status);
    void ShowMatches(const LogStatus& status);
    void ApplyFilter();
    void ApplySearch();
    void ShowFind();
    void HideFind();
    void Find(int direction);
    void AskForLine();
    void EditColors();
    void SetTheme(tev::ColorTheme theme);
    void SetFontSize(int points);
    void SaveSettings();
    QString EventText(const LogStatus& status) const;

    const CXTString<wchar_t> m_settingsPath;
    LogSettings m_settings;
    LogSettings m_savedSettings; // m_settings as this window last loaded or saved them
    LogDocument m_document;
    CWatchFolder m_watcher;
    QTimer m_timer;
    QTimer m_filterTimer;
    unsigned m_ticks = 0;
    xStringEncoding m_encoding = xEncodingUnknown;
    int m_columns = 0; // to which lines are shown; 0 for all
    std::optional<std::uint64_t> m_pendingLine;
    int m_pendingFind = 0; // direction
    std::uint64_t m_findFrom = 0;
    unsigned m_shownEvent = 0;
    QString m_eventText;

    LogView* m_view;
    PatternField* m_filter = nullptr;
    PatternField* m_find = nullptr;
    QWidget* m_findBar = nullptr;
    QLabel* m_matches = nullptr;
    tev::ElidedLabel* m_event = nullptr;
    QLabel* m_counts = nullptr;
    QLabel* m_form = nullptr;
    QMenu* m_recentMenu = nullptr;
};
