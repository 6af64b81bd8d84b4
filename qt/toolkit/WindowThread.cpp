#include "qt/toolkit/WindowThread.h"

#include "objects/CXException.h"
#include "threads/CXThread.h"
#include "threads/ThreadRelations.h"

#include <QApplication>
#include <QDialog>
#include <QScreen>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace
{
constexpr unsigned kBeatMs = 100;

// Those that serve threads while their own waits. Changed on the window thread only; the identifier is read by all.
std::atomic<unsigned __int64> g_windowThreadId{0};
std::vector<tev::WindowThread*> g_windows;
CXThread::WaitStep g_stepBefore = nullptr;

/// False where it threw. An end that the system forces goes on.
bool RunWhole(const std::function<void()>& work)
{
    try
    {
        work();
        return true;
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (const std::exception&)
    {
    }
    return false;
}
} // namespace

namespace tev
{
struct WindowThread::Task
{
    enum class State
    {
        Waiting,
        Running,
        Done,
        Refused,
        Abandoned
    };

    void Settle(State end)
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (state != State::Abandoned)
            state = end;
        changed.notify_all();
    }
    bool Is(State wanted)
    {
        const std::lock_guard<std::mutex> guard(lock);
        return state == wanted;
    }

    explicit Task(std::function<void()> what) : work(std::move(what)) {}

    const std::function<void()> work;
    std::mutex lock;
    std::condition_variable changed;
    State state = State::Waiting; ///< under the lock
};

WindowThread::WindowThread()
    : m_threadId(CXThread::GetCurrentThreadID()), m_processId(QCoreApplication::applicationPid())
{
    auto* const application = qobject_cast<QApplication*>(QCoreApplication::instance());
    if (application == nullptr || QGuiApplication::screens().isEmpty())
        return;
    connect(application, &QCoreApplication::aboutToQuit, this, &WindowThread::OnAboutToQuit);
    connect(application, &QObject::destroyed, this, &WindowThread::OnAboutToQuit);
    m_isOpen.store(true);
    g_windowThreadId.store(m_threadId);
    g_windows.push_back(this);
    if (g_windows.size() == 1)
        g_stepBefore = CXThread::SetWaitStep(&WaitStep);
}

WindowThread::~WindowThread()
{
    OnAboutToQuit();
    const auto place = std::find(g_windows.begin(), g_windows.end(), this);
    if (place == g_windows.end())
        return;
    g_windows.erase(place);
    if (g_windows.empty())
        CXThread::SetWaitStep(std::exchange(g_stepBefore, nullptr));
}

bool WindowThread::IsWindowThread() const noexcept
{
    return CXThread::GetCurrentThreadID() == m_threadId;
}

bool WindowThread::IsUsable() const
{
    return m_isOpen.load() && !IsSilentThread(0) && QCoreApplication::applicationPid() == m_processId;
}

bool WindowThread::IsReady() const
{
    return IsUsable() && (!IsWindowThread() || QThread::currentThread()->loopLevel() > 0);
}

bool WindowThread::Run(std::function<void()> work)
{
    if (!IsUsable())
        return false;
    if (IsWindowThread())
        return RunHere(work);
    const auto task = std::make_shared<Task>(std::move(work));
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_tasks.push_back(task);
    }
    return WaitFor(task);
}

bool WindowThread::RunHere(const std::function<void()>& work)
{
    if (!IsReady())
        return false;
    const std::shared_ptr<Task> outer = std::exchange(m_current, nullptr);
    const bool isWhole = RunWhole(work);
    m_current = outer;
    return isWhole;
}

bool WindowThread::WaitFor(const std::shared_ptr<Task>& task)
{
    using State = Task::State;
    unsigned beats = m_beats.load();
    unsigned missedMs = 0;
    std::unique_lock<std::mutex> guard(task->lock);
    const auto isSettled = [&task] { return task->state == State::Done || task->state == State::Refused; };
    while (!isSettled())
    {
        guard.unlock();
        Ping();
        guard.lock();
        if (task->changed.wait_for(guard, std::chrono::milliseconds(kBeatMs), isSettled))
            break;
        const unsigned now = m_beats.load();
        missedMs = now == beats ? missedMs + kBeatMs : 0;
        beats = now;
        if (missedMs < m_patienceMs.load() && m_isOpen.load())
            continue;
        task->state = State::Abandoned;
        guard.unlock();
        Ping(); // closes the dialog that is open for it
        return false;
    }
    return task->state == State::Done;
}

bool WindowThread::Post(std::function<void()> show)
{
    if (!IsUsable())
        return false;
    if (IsWindowThread())
        return RunHere(show);
    return QMetaObject::invokeMethod(
        this,
        [this, show = std::move(show)] {
            if (m_isOpen.load())
                RunWhole(show);
        },
        Qt::QueuedConnection);
}

void WindowThread::Ping()
{
    if (!m_isPinged.exchange(true))
        QMetaObject::invokeMethod(this, &WindowThread::OnPing, Qt::QueuedConnection);
}

void WindowThread::OnPing()
{
    m_isPinged.store(false);
    m_beats.fetch_add(1);
    CloseAbandoned();
    Serve(Nesting::No);
}

void WindowThread::WaitStep()
{
    if (CXThread::GetCurrentThreadID() == g_windowThreadId.load())
    {
        for (std::size_t i = 0; i < g_windows.size(); ++i)
            g_windows[i]->OnWaitStep();
    }
    if (const CXThread::WaitStep before = g_stepBefore)
        before();
}

void WindowThread::OnWaitStep()
{
    m_beats.fetch_add(1);
    CloseAbandoned();
    Serve(Nesting::Yes);
}

void WindowThread::Serve(Nesting nesting)
{
    using State = Task::State;
    while (nesting == Nesting::Yes || (m_openDialogs.empty() && m_current == nullptr))
    {
        std::shared_ptr<Task> task;
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            if (m_tasks.empty())
                return;
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        if (task->Is(State::Abandoned))
            continue;
        if (!m_isOpen.load() || QThread::currentThread()->loopLevel() == 0)
        {
            task->Settle(State::Refused);
            continue;
        }
        task->Settle(State::Running);
        const std::shared_ptr<Task> outer = std::exchange(m_current, task);
        const bool isWhole = RunWhole(task->work);
        m_current = outer;
        task->Settle(isWhole ? State::Done : State::Refused);
    }
}

void WindowThread::CloseAbandoned()
{
    for (const OpenDialog& open : std::vector<OpenDialog>(m_openDialogs))
    {
        if (open.m_task != nullptr && open.m_task->Is(Task::State::Abandoned) && open.m_dialog != nullptr)
            open.m_dialog->reject();
    }
}

void WindowThread::OnAboutToQuit()
{
    m_isOpen.store(false);
    for (const OpenDialog& open : std::vector<OpenDialog>(m_openDialogs))
    {
        if (open.m_dialog != nullptr)
            open.m_dialog->reject();
    }
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        for (const std::shared_ptr<Task>& task : std::exchange(m_tasks, {}))
            task->Settle(Task::State::Refused);
    }
    // An application may run once more.
    if (QCoreApplication::instance() != nullptr)
        QMetaObject::invokeMethod(
            this, [this] { m_isOpen.store(QThread::currentThread()->loopLevel() > 0); }, Qt::QueuedConnection);
}

int WindowThread::Exec(QDialog* dialog, const std::function<void(int result)>& read)
{
    const QPointer<QDialog> guarded = dialog; // the window that it belongs to may be closed meanwhile, and delete it
    m_openDialogs.push_back({guarded, m_current});
    const int result = dialog->exec();
    m_openDialogs.pop_back();
    Ping();
    if (guarded == nullptr)
        return 0;
    const std::unique_ptr<QDialog> owner(dialog);
    const bool isTaken = m_current == nullptr || !m_current->Is(Task::State::Abandoned);
    if (isTaken && read)
        read(result);
    return isTaken ? result : 0;
}
} // namespace tev
