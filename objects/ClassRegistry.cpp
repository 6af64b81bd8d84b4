#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/HeldOverFork.h"
#include "objects/ThreadException.h"
#include "platform/ForcedUnwind.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
constexpr std::size_t kBucketsOfNames = 23;

/// Records by class name. The names are copies, because those of a plug-in are unloaded with it.
class ClassRegistry
{
public:
    void Declare(const CXRuntimeClass* record)
    {
        const tev::LockGuard guard(m_lock);
        const auto found = m_classes.find(record->m_name);
        if (found == m_classes.end())
        {
            m_classes.emplace(record->m_name, Records{record});
            return;
        }
        Records& records = found->second;
        records.reserve(records.size() + 1);
        Remove(records, record);
        records.push_back(record);
    }

    bool Undeclare(const CXRuntimeClass* record)
    {
        const tev::LockGuard guard(m_lock);
        const auto found = m_classes.find(record->m_name);
        if (found == m_classes.end() || !Remove(found->second, record))
            return false;
        if (found->second.empty())
            m_classes.erase(found);
        return true;
    }

    const CXRuntimeClass* Find(const char* name)
    {
        const tev::LockGuard guard(m_lock);
        const auto found = m_classes.find(name);
        return found == m_classes.end() ? nullptr : found->second.back();
    }

    // Libraries that are closed at exit still remove their records.
    static ClassRegistry& Get() noexcept
    {
        static tev::NeverDestroyed<ClassRegistry> registry;
        return registry.Get();
    }

    static CXCriticalSection& Lock() noexcept { return Get().m_lock; }

private:
    using Records = std::vector<const CXRuntimeClass*>; // in the order of declaration, the valid one last; never empty

    static bool Remove(Records& records, const CXRuntimeClass* record)
    {
        const auto found = std::find(records.begin(), records.end(), record);
        if (found == records.end())
            return false;
        records.erase(found);
        return true;
    }

    tev::LibraryLock m_lock;
    std::unordered_map<std::string, Records> m_classes X_GUARDED_BY(m_lock){kBucketsOfNames};
};

const tev::HeldOverFork<&ClassRegistry::Lock> g_classesHeldOverFork(tev::platform::ForkRank::RuntimeClasses);
} // namespace

CXObject* CXRuntimeClass::CreateObject() const
{
    if (m_create == nullptr)
        return nullptr;
    CXObject* object = nullptr;
    try
    {
        object = m_create();
    }
    catch (const tev::platform::ForcedUnwind&)
    {
        throw;
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...)
    {
    }
    XDeleteThreadException();
    return object;
}

bool CXRuntimeClass::DeclareRuntimeClass(const CXRuntimeClass* record)
{
    if (record == nullptr)
        return false;
    ClassRegistry::Get().Declare(record);
    return true;
}

bool CXRuntimeClass::UndeclareRuntimeClass(const CXRuntimeClass* record)
{
    return record != nullptr && ClassRegistry::Get().Undeclare(record);
}

const CXRuntimeClass* CXRuntimeClass::FindRuntimeClass(const char* name)
{
    return name == nullptr ? nullptr : ClassRegistry::Get().Find(name);
}
