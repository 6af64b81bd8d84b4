#include "services/FileTypes.h"

#include "arrays/StringArrays.h"
#include "base/NeverDestroyed.h"
#include "objects/CXException.h"
#include "objects/HeldOverFork.h"
#include "services/BuiltInFileTypes.h"
#include "services/FoldedCase.h"
#include "text/TextView.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>
#include <string>
#include <unordered_set>
#include <utility>

namespace
{
using Text = CXTString<wchar_t>;

constexpr unsigned kSavableScene = xFile3DScene | 0x2;
constexpr unsigned kMarkOfSavableScene = 0x80;
constexpr unsigned kFilterLoadable = 0x1;
constexpr unsigned kFilterSavable = 0x2;

using tev::ViewOf;

bool IsAsciiLetter(wchar_t character) noexcept
{
    return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z');
}

/// Whether it starts with a scheme of at least two letters, so that a drive's letter is none, and "://".
bool IsUrl(std::wstring_view path) noexcept
{
    const auto schemeEnd = std::find_if_not(path.begin(), path.end(), IsAsciiLetter);
    const auto length = static_cast<std::size_t>(schemeEnd - path.begin());
    return length >= 2 && path.substr(length, 3) == L"://";
}

/// Kinds and load and save filters as fileGetRegisteredFiles takes them.
bool PassesFilter(unsigned properties, unsigned filter) noexcept
{
    return ((filter & xFileKinds) == 0 || tev::IsOfKind(properties, filter)) &&
           ((filter & kFilterLoadable) == 0 || (properties & xFileLoadable) != 0) &&
           ((filter & kFilterSavable) == 0 || (properties & xFileSavable) != 0);
}

bool HasAll(unsigned properties, unsigned wanted) noexcept
{
    return (properties & wanted) == wanted;
}
} // namespace

namespace tev
{
std::wstring_view ExtensionOf(std::wstring_view path) noexcept
{
    if (IsUrl(path))
        path = path.substr(0, path.find(L'?'));
    else
        path = path.substr(path.find_last_of(L"/\\") + 1);
    const std::size_t dot = path.rfind(L'.');
    return dot == path.npos ? std::wstring_view() : path.substr(dot);
}

Text WithoutDots(Text extension)
{
    extension.Remove(L'.');
    return extension;
}

Text FoldedExtension(const Text& extension)
{
    return FoldedCase(WithoutDots(extension));
}

std::vector<Text> ExtensionsOf(const CFileExt& type)
{
    CXArray<Text, const Text&> pieces;
    ExtractString(type.GetExtension(), pieces);
    std::vector<Text> extensions;
    for (const Text& piece : pieces)
    {
        if (!WithoutDots(piece).IsEmpty())
            extensions.push_back(piece);
    }
    return extensions;
}

ExtensionMethods::LookupKey::LookupKey(const Text& extension) noexcept : m_text(ViewOf(extension)) {}

unsigned ExtensionMethods::HashKey(LookupKey key) noexcept
{
    unsigned hash = 0;
    for (const wchar_t character : key.m_text)
        hash = MixKey(hash ^ static_cast<unsigned>(FoldedCase(character)));
    return hash;
}

bool ExtensionMethods::Compare(const Text& stored, LookupKey key) noexcept
{
    const std::wstring_view text = ViewOf(stored);
    return std::equal(text.begin(), text.end(), key.m_text.begin(), key.m_text.end(),
                      [](wchar_t a, wchar_t b) { return a == FoldedCase(b); });
}

FileTypes& FileTypes::Instance() noexcept
{
    static NeverDestroyed<FileTypes> types;
    return types.Get();
}

FileTypes& FileTypes::Get()
{
    FileTypes& types = Instance();
    if (!types.m_isFilled.load(std::memory_order_acquire))
        types.RegisterBuiltIn();
    return types;
}

FileTypes* FileTypes::GetIfThere() noexcept
{
    FileTypes& types = Instance();
    return types.m_isFilled.load(std::memory_order_acquire) ? &types : nullptr;
}

CXCriticalSection& FileTypes::Lock() noexcept
{
    return Instance().m_lock;
}

namespace
{
const HeldOverFork<&FileTypes::Lock> g_typesHeldOverFork(platform::ForkRank::FileTypes);
}

void FileTypes::RegisterBuiltIn()
{
    const LockGuard guard(m_lock);
    if (m_isFilled.load(std::memory_order_relaxed))
        return;
    for (const BuiltInFileType& row : kBuiltInFileTypes)
    {
        const unsigned loader = (row.m_properties & xFileLoadable) != 0 ? xFileCodeBuiltIn : xFileCodeUnknown;
        const unsigned saver = (row.m_properties & xFileSavable) != 0 ? xFileCodeBuiltIn : xFileCodeUnknown;
        RegisterLocked(CFileExt(row.m_description, row.m_extensions, row.m_class, row.m_properties, loader, saver));
    }
    m_isFilled.store(true, std::memory_order_release);
}

void FileTypes::MarkSavableScene(CFileExt& type) noexcept
{
    if (HasAll(type.m_properties, kSavableScene))
        type.m_properties |= kMarkOfSavableScene;
}

void FileTypes::Register(const CFileExt& type)
{
    const LockGuard guard(m_lock);
    RegisterLocked(type);
}

void FileTypes::RegisterLocked(CFileExt type)
{
    const unsigned fileClass = type.m_class;
    const bool isPreferred = (type.m_properties & xFilePreferred) != 0;
    std::vector<Text> added; // to be taken back where a later step fails
    for (const Text& extension : ExtensionsOf(type))
    {
        Text folded = FoldedExtension(extension);
        if (!HasClass(folded, fileClass))
            added.push_back(std::move(folded));
    }
    std::size_t done = 0;
    try
    {
        for (; done < added.size(); ++done)
            AddClass(added[done], fileClass, isPreferred);
        StoreRecord(std::move(type));
    }
    catch (...)
    {
        while (done != 0)
            TakeClass(added[--done], fileClass);
        throw;
    }
}

// The last step of a registration.
void FileTypes::StoreRecord(CFileExt type)
{
    Entry* const former = m_types.Find(type.m_class);
    if (former == nullptr)
    {
        if (m_types.Insert(type.m_class, {type, m_registered}) == 0)
            CXInvalidArgException::Throw(); // there is no memory
        ++m_registered;
        return;
    }
    const CFileExt& merged = former->m_type;
    if (type.m_loader == xFileCodeUnknown && merged.m_loader != xFileCodeUnknown)
    {
        type.m_loader = merged.m_loader;
        type.m_properties |= merged.m_properties;
    }
    if (type.m_saver == xFileCodeUnknown && merged.m_saver != xFileCodeUnknown)
    {
        type.m_saver = merged.m_saver;
        type.m_properties |= merged.m_properties;
    }
    former->m_type = std::move(type);
}

bool FileTypes::HasClass(const Text& extension, unsigned fileClass) const
{
    const std::vector<unsigned>* const classes = m_classes.Find(extension);
    return classes != nullptr && std::find(classes->begin(), classes->end(), fileClass) != classes->end();
}

// To the front or the end of the extension's list, unless it is there.
void FileTypes::AddClass(const Text& extension, unsigned fileClass, bool isPreferred)
{
    std::vector<unsigned>* classes = m_classes.Find(extension);
    if (classes == nullptr)
    {
        if (m_classes.Insert(extension, {fileClass}) == 0)
            CXInvalidArgException::Throw(); // there is no memory
        return;
    }
    if (HasClass(extension, fileClass))
        return;
    try
    {
        classes->insert(isPreferred ? classes->begin() : classes->end(), fileClass);
    }
    catch (const std::bad_alloc&)
    {
        CXInvalidArgException::Throw();
    }
}

// Allocates nothing.
void FileTypes::TakeClass(const Text& extension, unsigned fileClass)
{
    std::vector<unsigned>* const classes = m_classes.Find(extension);
    if (classes == nullptr)
        return;
    classes->erase(std::remove(classes->begin(), classes->end(), fileClass), classes->end());
    if (classes->empty())
        m_classes.Remove(extension);
}

void FileTypes::Unregister(unsigned fileClass, unsigned mode)
{
    const LockGuard guard(m_lock);
    if (HasAll(mode, 3))
        return RemoveClass(fileClass);
    Entry* const entry = m_types.Find(fileClass);
    if (entry == nullptr)
        return;
    if (mode == 1)
    {
        entry->m_type.m_loader = xFileCodeUnknown;
        entry->m_type.m_properties &= ~xFileLoadable;
    }
    else if (mode == 2)
    {
        entry->m_type.m_saver = xFileCodeUnknown;
        entry->m_type.m_properties &= ~xFileSavable;
    }
}

void FileTypes::RemoveClass(unsigned fileClass)
{
    // Copied before anything changes: this may find no memory.
    std::vector<Text> extensions;
    const Text* extension = nullptr;
    std::vector<unsigned>* classes = nullptr;
    for (unsigned position = m_classes.GetFirst(); m_classes.GetNext(position, extension, classes);)
    {
        if (std::find(classes->begin(), classes->end(), fileClass) != classes->end())
            extensions.push_back(*extension);
    }
    for (const Text& registered : extensions)
        TakeClass(registered, fileClass);
    m_types.Remove(fileClass);
}

std::vector<const CFileExt*> FileTypes::SelectLocked(unsigned filter) const
{
    std::vector<const Entry*> entries;
    const Entry* entry = nullptr;
    for (unsigned position = m_types.GetFirst(); m_types.GetNext(position, entry);)
    {
        if (PassesFilter(entry->m_type.m_properties, filter))
            entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) { return a->m_order < b->m_order; });
    std::vector<const CFileExt*> types;
    std::transform(entries.begin(), entries.end(), std::back_inserter(types),
                   [](const Entry* e) { return &e->m_type; });
    return types;
}

std::vector<CFileExt> FileTypes::Select(unsigned filter) const
{
    const LockGuard guard(m_lock);
    std::vector<CFileExt> types;
    for (const CFileExt* type : SelectLocked(filter))
        types.push_back(*type);
    return types;
}

std::vector<Text> FileTypes::ExtensionsOfTypes(unsigned properties, bool allTypes) const
{
    const LockGuard guard(m_lock);
    std::vector<Text> extensions;
    std::unordered_set<std::wstring> known; // which throws without memory instead of leaving an extension out
    for (const CFileExt* type : SelectLocked(properties & xFileKinds))
    {
        if (!HasAll(type->m_properties, properties & ~xFileKinds))
            continue;
        for (const Text& extension : ExtensionsOf(*type))
        {
            const Text folded = FoldedExtension(extension);
            const std::vector<unsigned>* classes = m_classes.Find(folded);
            const bool isDefault = classes != nullptr && classes->front() == type->m_class;
            if ((allTypes || isDefault) && known.emplace(ViewOf(folded)).second)
                extensions.push_back(extension);
        }
    }
    return extensions;
}

const std::vector<unsigned>* FileTypes::ClassesOf(const Text& name) const
{
    const std::wstring_view extension = ExtensionOf(ViewOf(name));
    return m_classes.Find(extension.substr(extension.empty() ? 0 : 1));
}
} // namespace tev
