#pragma once

#include "maps/CHashMap.h"
#include "objects/CXCriticalSection.h"
#include "services/CFileExt.h"

#include <atomic>
#include <string_view>
#include <vector>

namespace tev
{
/// With its dot; empty where there is none. Of a path or URL.
std::wstring_view ExtensionOf(std::wstring_view path) noexcept;

CXTString<wchar_t> WithoutDots(CXTString<wchar_t> extension);
/// The form in which extensions are compared: without dots, the case folded.
CXTString<wchar_t> FoldedExtension(const CXTString<wchar_t>& extension);
/// The extensions of a type as they were registered, without empty ones.
std::vector<CXTString<wchar_t>> ExtensionsOf(const CFileExt& type);

/// True when the properties name one of the kinds, which are the bits from 0x10000 on.
constexpr bool IsOfKind(unsigned properties, unsigned kinds) noexcept
{
    return (properties & kinds) >= 0x10000;
}

/// How extensions are hashed and compared: stored in their folded form and looked up as they are in a name, without a copy.
struct ExtensionMethods
{
    class LookupKey
    {
    public:
        LookupKey(std::wstring_view extension) noexcept : m_text(extension) {}
        LookupKey(const CXTString<wchar_t>& extension) noexcept;

        std::wstring_view m_text;
    };

    static unsigned HashKey(LookupKey key) noexcept;
    static bool Compare(const CXTString<wchar_t>& stored, LookupKey key) noexcept;
};

/// The tables of the file type registry. Safe from several threads at once.
class FileTypes
{
public:
    /// With the library's own types.
    static FileTypes& Get();
    /// Null before the first call of Get.
    static FileTypes* GetIfThere() noexcept;

    static CXCriticalSection& Lock() noexcept;

    void Register(const CFileExt& type);
    void Unregister(unsigned fileClass, unsigned mode);

    static void MarkSavableScene(CFileExt& type) noexcept;

    /// Calls `use` with the record of a class, or not at all. False when there is none.
    template <class USE>
    bool Find(unsigned fileClass, USE use) const
    {
        const LockGuard guard(m_lock);
        const Entry* entry = m_types.Find(fileClass);
        if (entry != nullptr)
            use(entry->m_type);
        return entry != nullptr;
    }

    /// As Find, with the first type for the extension of a name for which `accept` is true.
    template <class ACCEPT, class USE>
    bool FindForName(const CXTString<wchar_t>& name, ACCEPT accept, USE use) const
    {
        const LockGuard guard(m_lock);
        const std::vector<unsigned>* classes = ClassesOf(name);
        if (classes == nullptr)
            return false;
        for (const unsigned fileClass : *classes)
        {
            const Entry* entry = m_types.Find(fileClass);
            if (entry == nullptr || !accept(entry->m_type))
                continue;
            use(entry->m_type);
            return true;
        }
        return false;
    }

    /// Copies of the types that pass the filter, in the order of registration.
    std::vector<CFileExt> Select(unsigned filter) const;
    /// The extensions, each once, of the types that are of one of the kinds in `properties`, if any, and have its other
    /// bits, in the order of registration; only where they are the default unless `allTypes`.
    std::vector<CXTString<wchar_t>> ExtensionsOfTypes(unsigned properties, bool allTypes) const;

private:
    struct Entry
    {
        CFileExt m_type;
        unsigned m_order; ///< of registration
    };

    static FileTypes& Instance() noexcept;
    void RegisterBuiltIn();
    void RegisterLocked(CFileExt type) X_REQUIRES(m_lock);
    void StoreRecord(CFileExt type) X_REQUIRES(m_lock);
    bool HasClass(const CXTString<wchar_t>& extension, unsigned fileClass) const X_REQUIRES(m_lock);
    void AddClass(const CXTString<wchar_t>& extension, unsigned fileClass, bool isPreferred) X_REQUIRES(m_lock);
    void TakeClass(const CXTString<wchar_t>& extension, unsigned fileClass) X_REQUIRES(m_lock);
    void RemoveClass(unsigned fileClass) X_REQUIRES(m_lock);
    /// In the order of registration.
    std::vector<const CFileExt*> SelectLocked(unsigned filter) const X_REQUIRES(m_lock);
    /// For the extension of a name. Null when there are none.
    const std::vector<unsigned>* ClassesOf(const CXTString<wchar_t>& name) const X_REQUIRES(m_lock);

    mutable LibraryLock m_lock;
    std::atomic<bool> m_isFilled{false}; // with the library's own types
    CHashMap<unsigned, unsigned, Entry> m_types X_GUARDED_BY(m_lock);
    unsigned m_registered X_GUARDED_BY(m_lock) = 0;
    // The first class is the default. No list is empty.
    CHashMap<CXTString<wchar_t>, const CXTString<wchar_t>&, std::vector<unsigned>, ExtensionMethods> m_classes
        X_GUARDED_BY(m_lock);
};
} // namespace tev
