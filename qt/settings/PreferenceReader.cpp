#include "qt/settings/PreferenceReader.h"

#include "objects/CXException.h"
#include "objects/LastFailure.h"
#include "qt/settings/Transfer.h"
#include "qt/toolkit/QtText.h"
#include "threads/CCustomThread.h"

#include <atomic>
#include <deque>
#include <new>
#include <utility>

namespace tev::browser
{
/// A list that is asked for. Its answer is written before it is ready, and never again.
struct PreferenceReader::Request
{
    Place m_place;
    bool m_isOfNodes = false;
    unsigned m_generation = 0;
    std::atomic<bool> m_isGivenUp{false};
    std::atomic<bool> m_isReady{false};
    std::vector<Item> m_items;
    QString m_fault;
    std::shared_ptr<const CCustomData> m_store;
};

struct PreferenceReader::Work : TransferState
{
    explicit Work(const QString& path) : m_content(path) { m_content.SetState(this); }

    void SetProgress(int percent) override { m_percent.store(percent); }
    bool IsCancelled() const override
    {
        // Only the thread holds what nobody waits for.
        return m_current->m_isGivenUp.load() || m_current.use_count() == 1 || CCustomThread::ThreadsMustTerminate();
    }
    bool StartLastStep() override { return !IsCancelled(); }

    void Run();
    bool TakeNext();
    void Read(Request& request);

    // Of the thread
    PreferenceContent m_content;
    std::shared_ptr<Request> m_current;
    unsigned m_read = 0; ///< the generation of m_content

    std::atomic<int> m_percent{-1};
    mutable CXCriticalSection m_lock;
    unsigned m_generation X_GUARDED_BY(m_lock) = 0;
    bool m_isRunning X_GUARDED_BY(m_lock) = false;
    std::deque<std::weak_ptr<Request>> m_asked X_GUARDED_BY(m_lock); ///< that are held, in the order of their asking
    std::shared_ptr<const PreferenceListing> m_listing X_GUARDED_BY(m_lock);
};

class PreferenceReader::Thread : public CCustomThread
{
public:
    explicit Thread(std::shared_ptr<Work> work) : m_work(std::move(work)) {}

protected:
    bool Run() override
    {
        m_work->Run();
        return true;
    }

private:
    const std::shared_ptr<Work> m_work;
};

/// The list as its reader gets it.
class PreferenceReader::Answer : public Lister
{
public:
    explicit Answer(std::shared_ptr<Request> request) : m_request(std::move(request)) {}

    bool IsReady() const override { return m_request->m_isReady.load(); }
    bool IsGivenUp() const override { return m_request->m_isGivenUp.load(); }
    bool Next(Item& item) override
    {
        m_fault = m_request->m_fault;
        if (m_next == m_request->m_items.size())
            return false;
        item = m_request->m_items[m_next++];
        return true;
    }

private:
    const std::shared_ptr<Request> m_request;
    std::size_t m_next = 0;
};

/// The first one that is not read. False where there is none: then this thread ends, and the next one may begin at once.
bool PreferenceReader::Work::TakeNext()
{
    const LockGuard lock(m_lock);
    for (auto asked = m_asked.begin(); asked != m_asked.end();)
    {
        m_current = asked->lock();
        if (m_current != nullptr && !m_current->m_isReady.load())
            return true;
        asked = m_current == nullptr ? m_asked.erase(asked) : asked + 1;
    }
    m_current.reset();
    m_isRunning = false;
    return false;
}

void PreferenceReader::Work::Read(Request& request)
{
    const std::unique_ptr<Lister> list =
        request.m_isOfNodes ? m_content.ListNodes(request.m_place) : m_content.ListValues(request.m_place);
    Item item;
    while (!IsCancelled() && list->Next(item))
        request.m_items.push_back(item);
    request.m_fault = list->Fault();
    if (!request.m_isOfNodes && !IsCancelled())
        request.m_store = m_content.Load(request.m_place);
}

void PreferenceReader::Work::Run()
{
    while (TakeNext())
    {
        Request& request = *m_current;
        m_percent.store(-1);
        if (std::exchange(m_read, request.m_generation) != request.m_generation)
            m_content.Forget();
        try
        {
            if (!IsCancelled())
                Read(request);
        }
        catch (CXException* failure)
        {
            request.m_fault = ReasonOf(failure);
        }
        catch (const std::bad_alloc&)
        {
            constexpr unsigned kNoMemory = 8;
            request.m_fault = XToQString(XGetSystemErrorText(kNoMemory));
        }
        const bool isGivenUp = IsCancelled();
        if (isGivenUp)
        {
            m_content.Forget(); // what was not read to its end
            request.m_isGivenUp.store(true);
            request.m_items.clear();
            request.m_fault = XInLanguage(u"Reading was cancelled. Refresh reads again.",
                                          u"La lecture a été annulée. Actualiser la reprend.");
        }
        const LockGuard lock(m_lock);
        if (!isGivenUp)
            m_listing = m_content.List();
        request.m_isReady.store(true);
    }
}

PreferenceReader::PreferenceReader(const QString& path) : m_work(std::make_shared<Work>(path)) {}

PreferenceReader::~PreferenceReader()
{
    Cancel();
}

std::unique_ptr<Lister> PreferenceReader::Ask(const Place& place, bool isOfNodes)
{
    const auto request = std::make_shared<Request>();
    request->m_place = place;
    request->m_isOfNodes = isOfNodes;
    bool isRunning = true;
    {
        const LockGuard lock(m_work->m_lock);
        request->m_generation = m_work->m_generation;
        m_work->m_asked.push_back(request);
        isRunning = std::exchange(m_work->m_isRunning, true);
    }
    if (!isRunning && CXThread::BeginThread(new Thread(m_work), xThreadPriorityNormal, 0, 0) == nullptr)
        m_work->Run(); // where no thread can be had
    return std::make_unique<Answer>(request);
}

void PreferenceReader::Refresh()
{
    const LockGuard lock(m_work->m_lock);
    ++m_work->m_generation;
}

void PreferenceReader::Cancel()
{
    const LockGuard lock(m_work->m_lock);
    for (const std::weak_ptr<Request>& asked : m_work->m_asked)
    {
        const std::shared_ptr<Request> request = asked.lock();
        if (request != nullptr && !request->m_isReady.load())
            request->m_isGivenUp.store(true);
    }
}

std::optional<int> PreferenceReader::GetProgress() const
{
    const LockGuard lock(m_work->m_lock);
    return m_work->m_isRunning ? std::optional(m_work->m_percent.load()) : std::nullopt;
}

std::shared_ptr<const PreferenceListing> PreferenceReader::GetListing() const
{
    const LockGuard lock(m_work->m_lock);
    return m_work->m_listing;
}

std::shared_ptr<const CCustomData> PreferenceReader::GetStore(const Place& place) const
{
    const LockGuard lock(m_work->m_lock);
    for (auto asked = m_work->m_asked.rbegin(); asked != m_work->m_asked.rend(); ++asked)
    {
        const std::shared_ptr<Request> request = asked->lock();
        if (request != nullptr && request->m_isReady.load() && request->m_store != nullptr && request->m_place == place)
            return request->m_store;
    }
    return nullptr;
}
} // namespace tev::browser
