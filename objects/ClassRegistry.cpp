#include "base/NeverDestroyed.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ClassClashes.h"
#include "objects/DerivedClasses.h"
#include "objects/FailureNote.h"
#include "objects/HeldOverFork.h"
#include "objects/ThreadException.h"
#include "platform/ForcedUnwind.h"
#include "platform/LoadedModules.h"
#include "platform/PathNames.h"
#include "text/MessageTexts.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
constexpr std::size_t kBucketsOfNames = 23;

struct Declaration
{
    const CXRuntimeClass* m_record;
    const char* m_file; ///< null where it is not known
    int m_line;
};

/// What is known of a declaration after its plug-in is closed.
struct DeclaredAt
{
    explicit DeclaredAt(const Declaration& declaration)
        : m_record(declaration.m_record),
          m_file(declaration.m_file != nullptr ? declaration.m_file : ""),
          m_line(declaration.m_line)
    {
    }

    const void* m_record;
    std::string m_file;
    int m_line;
};

CXTString<wchar_t> PlaceText(const DeclaredAt& declared)
{
    const std::wstring module = tev::platform::ModuleOfAddress(declared.m_record);
    CXTString<wchar_t> place = module.c_str();
    if (declared.m_file.empty())
        return place.IsEmpty() ? CXTString<wchar_t>(L"a place that is not known") : place;
    const std::wstring file = tev::platform::SystemPathToWide(declared.m_file.c_str());
    place.Format(module.empty() ? L"%s:%d" : L"%s:%d (%s)", file.c_str(), declared.m_line, module.c_str());
    return place;
}

/// Records by class name. The names are copies, because those of a plug-in are unloaded with it.
class ClassRegistry
{
public:
    /// Where the class stands that is hidden by the new one, if there is any.
    std::optional<DeclaredAt> Declare(const Declaration& declaration)
    {
        const tev::LockGuard guard(m_lock);
        const auto found = m_classes.find(declaration.m_record->m_name);
        if (found == m_classes.end())
        {
            m_classes.emplace(declaration.m_record->m_name, Declarations{declaration});
            return std::nullopt;
        }
        Declarations& declarations = found->second;
        declarations.reserve(declarations.size() + 1);
        std::optional<DeclaredAt> hidden;
        const Declaration& latest = declarations.back();
        if (latest.m_record != declaration.m_record)
            hidden.emplace(latest);
        Remove(declarations, declaration.m_record);
        declarations.push_back(declaration);
        return hidden;
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
        return found == m_classes.end() ? nullptr : found->second.back().m_record;
    }

    std::vector<const CXRuntimeClass*> DerivedFrom(const CXRuntimeClass* base)
    {
        std::vector<const CXRuntimeClass*> derived;
        const tev::LockGuard guard(m_lock); // until the names of plug-ins are compared
        for (const auto& [name, declarations] : m_classes)
        {
            const CXRuntimeClass* const record = declarations.back().m_record;
            if (record != base && record->IsDerivedFrom(base))
                derived.push_back(record);
        }
        std::sort(derived.begin(), derived.end(), [](const CXRuntimeClass* a, const CXRuntimeClass* b) {
            return std::strcmp(a->m_name, b->m_name) < 0;
        });
        return derived;
    }

    /// Not of a clash that is known, so that a plug-in that is opened again and again adds nothing.
    void Report(const XClassClash& clash)
    {
        {
            const tev::LockGuard guard(m_lock);
            const auto isSame = [&clash](const XClassClash& known) {
                return known.m_name == clash.m_name && known.m_hiddenPlace == clash.m_hiddenPlace &&
                       known.m_place == clash.m_place;
            };
            if (std::any_of(m_clashes.begin(), m_clashes.end(), isSame))
                return;
            m_clashes.push_back(clash);
        }
        if (const XClassClashReport report = m_report.load())
            report(clash);
    }

    std::vector<XClassClash> Clashes()
    {
        const tev::LockGuard guard(m_lock);
        return m_clashes;
    }

    XClassClashReport SetReport(XClassClashReport report) noexcept { return m_report.exchange(report); }

    // Libraries that are closed at exit still remove their records.
    static ClassRegistry& Get() noexcept
    {
        static tev::NeverDestroyed<ClassRegistry> registry;
        return registry.Get();
    }

    static CXCriticalSection& Lock() noexcept { return Get().m_lock; }

private:
    using Declarations = std::vector<Declaration>; // in their order, the valid one last; never empty

    static bool Remove(Declarations& declarations, const CXRuntimeClass* record)
    {
        const auto isIt = [record](const Declaration& declaration) { return declaration.m_record == record; };
        const auto found = std::find_if(declarations.begin(), declarations.end(), isIt);
        if (found == declarations.end())
            return false;
        declarations.erase(found);
        return true;
    }

    tev::LibraryLock m_lock;
    std::unordered_map<std::string, Declarations> m_classes X_GUARDED_BY(m_lock){kBucketsOfNames};
    std::vector<XClassClash> m_clashes X_GUARDED_BY(m_lock);
    std::atomic<XClassClashReport> m_report{nullptr};
};

const tev::HeldOverFork<&ClassRegistry::Lock> g_classesHeldOverFork(tev::platform::ForkRank::RuntimeClasses);

/// Best effort: the class is declared, and its declaration mostly runs while a plug-in is opened, which must not fail.
void ReportClash(const DeclaredAt& hidden, const Declaration& declaration) noexcept
{
    try
    {
        ClassRegistry::Get().Report(
            {declaration.m_record->m_name, PlaceText(hidden), PlaceText(DeclaredAt(declaration))});
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (...) // NOLINT(bugprone-empty-catch): of a report
    {
    }
}
} // namespace

CXObject* CXRuntimeClass::CreateObject() const
{
    constexpr const char* kOperation = "CXRuntimeClass::CreateObject";
    CXObject* object = nullptr;
    if (m_create == nullptr)
    {
        tev::NoteBadArgument(kOperation);
        return nullptr;
    }
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
        tev::NoteException(kOperation, *exception);
        exception->Delete();
    }
    catch (const std::bad_alloc&)
    {
        tev::NoteNoMemory(kOperation);
    }
    catch (...)
    {
        tev::NoteFailure({kOperation, XFailureKind::kData, 0, fileNone, tev::kTextThrown});
    }
    XDeleteThreadException();
    return object;
}

bool CXRuntimeClass::DeclareRuntimeClass(const CXRuntimeClass* record)
{
    return DeclareRuntimeClass(record, nullptr, 0);
}

bool CXRuntimeClass::DeclareRuntimeClass(const CXRuntimeClass* record, const char* file, int line)
{
    if (record == nullptr)
        return tev::NoteBadArgument("CXRuntimeClass::DeclareRuntimeClass");
    const Declaration declaration{record, file, line};
    if (const std::optional<DeclaredAt> hidden = ClassRegistry::Get().Declare(declaration))
        ReportClash(*hidden, declaration);
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

std::vector<const CXRuntimeClass*> XGetDerivedClasses(const CXRuntimeClass* base)
{
    return base == nullptr ? std::vector<const CXRuntimeClass*>() : ClassRegistry::Get().DerivedFrom(base);
}

std::vector<XClassClash> XGetClassClashes()
{
    return ClassRegistry::Get().Clashes();
}

XClassClashReport XSetClassClashReport(XClassClashReport report) noexcept
{
    return ClassRegistry::Get().SetReport(report);
}
