#pragma once

#include <QObject>
#include <QPointer>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class QDialog;

namespace tev
{
/// Shows dialogs for any thread on the window thread, on which it is made and destroyed. What other threads ask for is shown
/// one after the other, also while the window thread waits for them in the library. The windows are not to be had without a
/// QApplication and a screen, while no event loop runs, on a silent thread, and in a forked child; and a thread gives up
/// when the window thread handles no events for the time of patience, which may wait for that very thread.
class WindowThread : public QObject
{
    Q_OBJECT

public:
    WindowThread();
    ~WindowThread() override;

    void SetPatience(unsigned int milliseconds) noexcept { m_patienceMs.store(milliseconds); }

    /// The answer of `show`, run on the window thread; nothing when it could not run, or nobody can wait for it any more.
    /// What it uses must be its own: it may still run after that.
    template <class ANSWER>
    std::optional<ANSWER> Ask(std::function<std::optional<ANSWER>()> show)
    {
        const auto answer = std::make_shared<std::optional<ANSWER>>();
        if (!Run([answer, show = std::move(show)] { *answer = show(); }))
            return {};
        return std::move(*answer);
    }
    /// Has `show` run on the window thread, where that is another one later. False when it cannot.
    bool Post(std::function<void()> show);

    /// Whether what is asked for now would be shown.
    bool IsReady() const;

    /// Runs a modal dialog, which is deleted. Its result as QDialog::exec gives it; 0 when it was closed from outside.
    /// `read` takes what the person entered, where the dialog still exists.
    int Exec(QDialog* dialog, const std::function<void(int result)>& read = {});

private:
    struct Task;

    bool Run(std::function<void()> work);
    bool RunHere(const std::function<void()>& work);
    bool WaitFor(const std::shared_ptr<Task>& task);
    bool IsWindowThread() const noexcept;
    /// Whether the calling thread may show anything.
    bool IsUsable() const;
    void Ping();
    void OnPing();
    void OnWaitStep();
    void OnAboutToQuit();
    /// Runs what other threads ask for. A nested call does so although a dialog is open.
    enum class Nesting
    {
        No,
        Yes
    };
    void Serve(Nesting nesting);
    void CloseAbandoned();
    static void WaitStep();

    struct OpenDialog
    {
        QPointer<QDialog> m_dialog;
        std::shared_ptr<Task> m_task; ///< null for one of the window thread
    };

    std::mutex m_lock;
    std::deque<std::shared_ptr<Task>> m_tasks; ///< under the lock
    std::atomic<bool> m_isOpen{false};
    std::atomic<bool> m_isPinged{false};
    std::atomic<unsigned> m_beats{0}; ///< of the window thread
    std::atomic<unsigned> m_patienceMs{10000};
    const quint64 m_threadId;
    const qint64 m_processId;

    // Of the window thread only.
    std::vector<OpenDialog> m_openDialogs;
    std::shared_ptr<Task> m_current;
};
} // namespace tev
