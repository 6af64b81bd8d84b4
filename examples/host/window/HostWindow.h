#pragma once

#include "examples/host/window/Loading.h"
#include "examples/host/window/PlugIns.h"
#include "examples/host/window/Preferences.h"

#include <QElapsedTimer>
#include <QMainWindow>
#include <QTimer>

class QDropEvent;
class QFormLayout;
class QLabel;
class QListWidget;
class QMenu;
class QProgressBar;
class QPushButton;

namespace host
{
class Viewport;

/// The window of the host. The plug-ins must outlive it.
class HostWindow : public QMainWindow
{
    Q_OBJECT

public:
    HostWindow(const CPathString& preferences, const PlugIns& plugIns);
    /// Asks a worker to end, and waits for it.
    ~HostWindow() override;

    /// Starts to open a model or a scene; one that is being opened is given up. Asks first where changes are not saved.
    void Open(const CPathString& path);
    /// Asks first where that would lose something.
    void Save(const CPathString& path);
    bool IsLoading() const noexcept { return m_loading != nullptr; }
    const Scene& GetScene() const noexcept { return *m_scene; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void MakeMenus();
    void MakeCrashMenu();
    QWidget* MakeSidebar();
    QWidget* MakeNotice();
    void AskWhatToOpen();
    void AskWhereToSave();
    void ShowRecentFiles(QMenu& menu);
    void InsertShape(const CXRuntimeClass& type);
    void Crash(void (*crash)());
    void StartLoading(const CPathString& path, std::function<void()> perform);
    void StopLoading();
    void Look();
    void EndLoading();
    void ShowLoading(bool isLoading);
    void Show(std::unique_ptr<Scene> scene);
    void ShowShapes();
    void ShowParameters();
    void Notice(const QString& text, bool canReload);
    void Watch(std::vector<FileState> files);
    void LookAtFiles();
    bool MayLeaveScene();
    QString KeptShapes() const;
    bool MayLoseNewer();

    const Preferences m_preferences;
    const PlugIns& m_plugIns;
    std::unique_ptr<Scene> m_scene = std::make_unique<Scene>();
    Meshes m_meshes; ///< of each shape
    std::unique_ptr<Loading> m_loading;
    CPathString m_path;             ///< of what is shown
    std::vector<FileState> m_files; ///< it was read from
    CWatchFolder m_watcher;
    QElapsedTimer m_sinceLook;
    QTimer m_timer;

    Viewport* m_viewport = nullptr;
    QMenu* m_insert = nullptr;
    QWidget* m_sidebar = nullptr;
    QListWidget* m_shapes = nullptr;
    QFormLayout* m_parameters = nullptr;
    QWidget* m_noticeBar = nullptr;
    QLabel* m_noticeText = nullptr;
    QPushButton* m_reload = nullptr;
    QProgressBar* m_progress = nullptr;
    QPushButton* m_cancel = nullptr;
};
} // namespace host
