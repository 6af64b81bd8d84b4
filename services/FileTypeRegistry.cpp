#include "services/FileTypeRegistry.h"

#include "arrays/StringArrays.h"
#include "base/NeverDestroyed.h"
#include "maps/CHashMap.h"
#include "maps/CHashTable.h"
#include "objects/CXCriticalSection.h"
#include "services/BuiltInFileTypes.h"
#include "text/TextView.h"

#include <algorithm>
#include <atomic>
#include <cwctype>
#include <string_view>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;
using TextArray = CXArray<Text, const Text&>;

constexpr unsigned kSavableScene = xFile3DScene | 0x2;
constexpr unsigned kMarkOfSavableScene = 0x80;
constexpr unsigned kLowestKind = 0x10000;
constexpr unsigned kFilterLoadable = 0x1;
constexpr unsigned kFilterSavable = 0x2;

using tev::ViewOf;

wchar_t Lower(wchar_t character) noexcept
{
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
}

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

/// With its dot; empty where there is none.
std::wstring_view ExtensionOf(std::wstring_view path) noexcept
{
    if (IsUrl(path))
        path = path.substr(0, path.find(L'?'));
    else
        path = path.substr(path.find_last_of(L"/\\") + 1);
    const std::size_t dot = path.rfind(L'.');
    return dot == path.npos ? std::wstring_view() : path.substr(dot);
}

/// Extensions are stored in lower case and looked up as they are in a name, without a copy.
struct ExtensionMethods
{
    class LookupKey
    {
    public:
        LookupKey(std::wstring_view extension) noexcept : m_text(extension) {}
        LookupKey(const Text& extension) noexcept : m_text(ViewOf(extension)) {}

        std::wstring_view m_text;
    };

    static unsigned HashKey(LookupKey key) noexcept
    {
        unsigned hash = 0;
        for (const wchar_t character : key.m_text)
            hash = tev::MixKey(hash ^ static_cast<unsigned>(Lower(character)));
        return hash;
    }
    static bool Compare(const Text& stored, LookupKey key) noexcept
    {
        const std::wstring_view text = ViewOf(stored);
        return std::equal(text.begin(), text.end(), key.m_text.begin(), key.m_text.end(),
                          [](wchar_t a, wchar_t b) { return a == Lower(b); });
    }
};

/// The extensions of a type, each with its dots.
TextArray ExtensionsOf(const CFileExt& type)
{
    TextArray extensions;
    ExtractString(type.GetExtension(), extensions);
    return extensions;
}

Text WithoutDots(Text extension)
{
    extension.Remove(L'.');
    return extension;
}

bool IsOfKind(unsigned properties, unsigned kinds) noexcept
{
    return (properties & kinds) >= kLowestKind;
}

/// Kinds and load and save filters as fileGetRegisteredFiles takes them.
bool PassesFilter(unsigned properties, unsigned filter) noexcept
{
    return ((filter & xFileKinds) == 0 || IsOfKind(properties, filter)) &&
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
/// The tables behind the functions. Each public member holds the lock.
class FileTypes
{
public:
    static FileTypes& Get();
    /// Null before the first call of Get.
    static FileTypes* GetIfThere() noexcept;

    /// Registers the library's own types.
    FileTypes();

    void Register(const CFileExt& type);
    void Unregister(unsigned fileClass, unsigned mode);

    static void MarkSavableScene(CFileExt& type) noexcept;

    /// Calls `use` with the record of a class, or not at all. False when there is none.
    template <class USE>
    bool Find(unsigned fileClass, USE use) const
    {
        const LockGuard guard(m_lock);
        const CFileExt* type = m_types.Find(fileClass);
        if (type != nullptr)
            use(*type);
        return type != nullptr;
    }

    /// As Find, with the first type for the extension of a name for which `accept` is true.
    template <class ACCEPT, class USE>
    bool FindForName(const Text& name, ACCEPT accept, USE use) const
    {
        const LockGuard guard(m_lock);
        const std::vector<unsigned>* classes = ClassesOf(ExtensionOf(ViewOf(name)));
        if (classes == nullptr)
            return false;
        for (const unsigned fileClass : *classes)
        {
            const CFileExt* type = m_types.Find(fileClass);
            if (type == nullptr || !accept(*type))
                continue;
            use(*type);
            return true;
        }
        return false;
    }

    /// Copies of the types that pass the filter.
    std::vector<CFileExt> Select(unsigned filter) const;

    /// Whether the class is the default of an extension.
    bool IsDefault(const Text& extension, unsigned fileClass) const;

private:
    void RegisterLocked(CFileExt type) X_REQUIRES(m_lock);
    void RemoveClass(unsigned fileClass) X_REQUIRES(m_lock);
    /// For an extension with or without its dot. Null when there are none.
    const std::vector<unsigned>* ClassesOf(std::wstring_view extension) const X_REQUIRES(m_lock);

    mutable LibraryLock m_lock;
    CHashMap<unsigned, unsigned, CFileExt> m_types X_GUARDED_BY(m_lock);
    // The first class is the default. No list is empty.
    CHashMap<Text, const Text&, std::vector<unsigned>, ExtensionMethods> m_classes X_GUARDED_BY(m_lock);
};

namespace
{
std::atomic<bool> g_isThere{false};
}

FileTypes& FileTypes::Get()
{
    static NeverDestroyed<FileTypes> types;
    g_isThere.store(true, std::memory_order_release);
    return types.Get();
}

FileTypes* FileTypes::GetIfThere() noexcept
{
    return g_isThere.load(std::memory_order_acquire) ? &Get() : nullptr;
}

FileTypes::FileTypes()
{
    const LockGuard guard(m_lock);
    for (const BuiltInFileType& row : kBuiltInFileTypes)
    {
        const unsigned loader = (row.m_properties & xFileLoadable) != 0 ? xFileCodeBuiltIn : xFileCodeUnknown;
        const unsigned saver = (row.m_properties & xFileSavable) != 0 ? xFileCodeBuiltIn : xFileCodeUnknown;
        RegisterLocked(CFileExt(row.m_description, row.m_extensions, row.m_class, row.m_properties, loader, saver));
    }
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
    for (const Text& piece : ExtensionsOf(type))
    {
        const Text extension = WithoutDots(piece).MakeLower();
        if (extension.IsEmpty())
            continue;
        std::vector<unsigned>* classes = m_classes.Find(extension);
        if (classes == nullptr)
        {
            m_classes.Insert(extension, {type.m_class});
            continue;
        }
        if (std::find(classes->begin(), classes->end(), type.m_class) != classes->end())
            continue;
        const bool first = (type.m_properties & xFilePreferred) != 0;
        classes->insert(first ? classes->begin() : classes->end(), type.m_class);
    }

    if (const CFileExt* former = m_types.Find(type.m_class))
    {
        if (type.m_loader == xFileCodeUnknown && former->m_loader != xFileCodeUnknown)
        {
            type.m_loader = former->m_loader;
            type.m_properties |= former->m_properties;
        }
        if (type.m_saver == xFileCodeUnknown && former->m_saver != xFileCodeUnknown)
        {
            type.m_saver = former->m_saver;
            type.m_properties |= former->m_properties;
        }
    }
    m_types.Insert(type.m_class, type);
}

void FileTypes::Unregister(unsigned fileClass, unsigned mode)
{
    const LockGuard guard(m_lock);
    CFileExt* type = m_types.Find(fileClass);
    if (HasAll(mode, 3))
    {
        RemoveClass(fileClass);
    }
    else if (mode == 1 && type != nullptr)
    {
        type->m_loader = xFileCodeUnknown;
        type->m_properties &= ~xFileLoadable;
    }
    else if (mode == 2 && type != nullptr)
    {
        type->m_saver = xFileCodeUnknown;
        type->m_properties &= ~xFileSavable;
    }
}

void FileTypes::RemoveClass(unsigned fileClass)
{
    std::vector<Text> emptied;
    const Text* extension = nullptr;
    std::vector<unsigned>* classes = nullptr;
    for (unsigned position = m_classes.GetFirst(); m_classes.GetNext(position, extension, classes);)
    {
        classes->erase(std::remove(classes->begin(), classes->end(), fileClass), classes->end());
        if (classes->empty())
            emptied.push_back(*extension);
    }
    for (const Text& unused : emptied)
        m_classes.Remove(unused);
    m_types.Remove(fileClass);
}

std::vector<CFileExt> FileTypes::Select(unsigned filter) const
{
    const LockGuard guard(m_lock);
    std::vector<CFileExt> types;
    const CFileExt* type = nullptr;
    for (unsigned position = m_types.GetFirst(); m_types.GetNext(position, type);)
    {
        if (PassesFilter(type->m_properties, filter))
            types.push_back(*type);
    }
    return types;
}

bool FileTypes::IsDefault(const Text& extension, unsigned fileClass) const
{
    const LockGuard guard(m_lock);
    const std::vector<unsigned>* classes = ClassesOf(ViewOf(extension));
    return classes != nullptr && classes->front() == fileClass;
}

const std::vector<unsigned>* FileTypes::ClassesOf(std::wstring_view extension) const
{
    if (!extension.empty() && extension.front() == L'.')
        extension.remove_prefix(1);
    return m_classes.Find(extension);
}
} // namespace tev

namespace
{
using tev::FileTypes;

bool Any(const CFileExt&) noexcept
{
    return true;
}

/// A number from the record of a name's default type, 0 when there is none.
unsigned NumberOfDefault(const Text& name, unsigned (CFileExt::*number)() const noexcept)
{
    unsigned result = 0;
    FileTypes::Get().FindForName(name, Any, [&](const CFileExt& type) { result = (type.*number)(); });
    return result;
}

unsigned NumberOfClass(unsigned fileClass, unsigned (CFileExt::*number)() const noexcept)
{
    unsigned result = 0;
    FileTypes::Get().Find(fileClass, [&](const CFileExt& type) { result = (type.*number)(); });
    return result;
}

} // namespace

Text fileGetExtension(const Text& path)
{
    const std::wstring_view extension = ExtensionOf(ViewOf(path));
    return Text(extension.data(), static_cast<int>(extension.size()));
}

void fileRegisterFile(CFileExt& type)
{
    FileTypes::MarkSavableScene(type);
    FileTypes::Get().Register(type);
}

void fileUnregisterFile(unsigned int fileClass, unsigned int mode)
{
    FileTypes* types = FileTypes::GetIfThere();
    if (types != nullptr && fileClass != 0)
        types->Unregister(fileClass, mode);
}

CFileExt* fileGetRegisteredFiles(unsigned int& count, unsigned int filter)
{
    std::vector<CFileExt> types = FileTypes::Get().Select(filter);
    std::stable_sort(types.begin(), types.end(), [](const CFileExt& a, const CFileExt& b) {
        return a.GetDescription().CompareNoCase(b.GetDescription()) < 0;
    });
    auto* result = new CFileExt[types.size()];
    std::move(types.begin(), types.end(), result);
    count = static_cast<unsigned>(types.size());
    return result;
}

void fileFreeRegisteredFiles(CFileExt* types, unsigned int)
{
    delete[] types;
}

bool fileGetExtensionInfo(unsigned int fileClass, CFileExt& type)
{
    return FileTypes::Get().Find(fileClass, [&](const CFileExt& found) { type = found; });
}

unsigned int fileGetProperties(unsigned int fileClass)
{
    return NumberOfClass(fileClass, &CFileExt::GetProperties);
}

unsigned int fileGetKindOf(unsigned int fileClass)
{
    return NumberOfClass(fileClass, &CFileExt::GetKindOf);
}

bool fileGetFileExt(const Text& name, CFileExt& type)
{
    return FileTypes::Get().FindForName(name, Any, [&](const CFileExt& found) { type = found; });
}

unsigned int fileGetClass(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetClass);
}

unsigned int fileGetLoader(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetLoader);
}

unsigned int fileGetSaver(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetSaver);
}

unsigned int fileGetProperties(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetProperties);
}

unsigned int fileGetKindOf(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetKindOf);
}

unsigned int fileFindParser(const Text& name, unsigned int kindMask, unsigned int propertyMask)
{
    unsigned fileClass = 0;
    FileTypes::Get().FindForName(
        name,
        [=](const CFileExt& type) {
            return IsOfKind(type.GetProperties(), kindMask) &&
                   (type.GetProperties() & propertyMask & 0xFFFF) == propertyMask;
        },
        [&](const CFileExt& type) { fileClass = type.GetClass(); });
    return fileClass;
}

unsigned int fileGetExtensionArray(unsigned int fileClass, TextArray& extensions, bool withDot)
{
    extensions.RemoveAll(false);
    CFileExt type;
    fileGetExtensionInfo(fileClass, type);
    for (const Text& extension : ExtensionsOf(type))
        extensions.Add(withDot ? extension : WithoutDots(extension), -1);
    return static_cast<unsigned>(extensions.GetSize());
}

unsigned int fileGetExtensionArrayByProperty(unsigned int properties, TextArray& extensions, bool withDot,
                                             bool allTypes)
{
    extensions.RemoveAll(false);
    CHashTable<Text> known;
    for (const CFileExt& type : FileTypes::Get().Select(properties & xFileKinds))
    {
        if (!HasAll(type.GetProperties(), properties & ~xFileKinds))
            continue;
        for (const Text& extension : ExtensionsOf(type))
        {
            if (!allTypes && !FileTypes::Get().IsDefault(extension, type.GetClass()))
                continue;
            if (known.Insert(extension) != 0)
                extensions.Add(withDot ? extension : WithoutDots(extension), -1);
        }
    }
    return static_cast<unsigned>(extensions.GetSize());
}

Text fileGetMainExtension(unsigned int fileClass)
{
    CFileExt type;
    fileGetExtensionInfo(fileClass, type);
    const TextArray extensions = ExtensionsOf(type);
    return extensions.IsEmpty() ? Text() : extensions[0];
}

Text fileGetMainExtension(const Text& name)
{
    return fileGetMainExtension(fileGetClass(name));
}
