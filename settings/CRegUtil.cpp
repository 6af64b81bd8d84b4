#include "settings/CRegUtil.h"

#include "base/LittleEndian.h"
#include "objects/FailureNote.h"
#include "platform/Cancellation.h"
#include "platform/EnvironmentText.h"
#include "platform/SystemErrors.h"
#include "services/UserMessage.h"
#include "settings/engine/SettingsBatch.h"
#include "settings/engine/SettingsStore.h"
#include "text/TextEncoding.h"
#include "text/TextView.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <limits>
#include <string_view>
#include <utility>

namespace
{
using namespace tev;
using tev::platform::ExpandEnvironmentText;
using tev::platform::kNotReady;

constexpr const wchar_t* kPathSeparators = L"\\/:";
constexpr unsigned kNoApplicationName = 0xF1D0; // a message text
constexpr std::size_t kExpandedTextSize = 260;  // characters, the terminator included
constexpr unsigned kIntSize = 4;
constexpr bool kLookUp = true;

constexpr struct
{
    const wchar_t* name;
    SettingsRoot root;
} kRoots[] = {
    {L"HKEY_CLASSES_ROOT", kClassesRoot},     {L"HKEY_CURRENT_USER", kCurrentUser},
    {L"HKEY_LOCAL_MACHINE", kLocalMachine},   {L"HKEY_USERS", kUsers},
    {L"HKEY_CURRENT_CONFIG", kCurrentConfig}, {L"HKEY_DYN_DATA", kDynData},
};

bool IsText(unsigned type)
{
    return type == CRegUtil::kTypeString || type == CRegUtil::kTypeExpandString || type == CRegUtil::kTypeMultiString;
}

/// The path of a key below the base, as the store expects it.
std::wstring StorePath(const wchar_t* subkey)
{
    std::wstring path = subkey != nullptr ? subkey : L"";
    std::replace_if(
        path.begin(), path.end(), [](wchar_t c) { return std::wcschr(kPathSeparators, c) != nullptr; }, L'\\');
    return path;
}
} // namespace

/// Opens the base for one operation; a base that was open already stays open.
class CRegUtil::OpenedBase
{
public:
    explicit OpenedBase(CRegUtil& owner) : m_use(owner.m_use), m_owner(owner), m_wasOpen(owner.m_base != nullptr)
    {
        m_isOpen = m_wasOpen || owner.OpenPath(false);
    }
    ~OpenedBase()
    {
        if (!m_wasOpen)
            m_owner.CloseBase();
    }
    OpenedBase(const OpenedBase&) = delete;
    OpenedBase& operator=(const OpenedBase&) = delete;

    explicit operator bool() const noexcept { return m_isOpen; }
    /// The base is to stay open.
    void Keep() noexcept { m_wasOpen = true; }

private:
    const tev::ExclusiveUse m_use;
    CRegUtil& m_owner;
    bool m_wasOpen;
    bool m_isOpen;
};

/// A key below the base for the length of one operation.
class CRegUtil::OpenedSubKey
{
public:
    OpenedSubKey(CRegUtil& owner, const wchar_t* subkey, unsigned long access, bool create) : m_base(owner)
    {
        if (!m_base)
            return;
        const std::wstring path = StorePath(subkey);
        const auto rights = static_cast<unsigned>(access);
        static_cast<void>(owner.OpenKey(owner.m_base, path, rights, create, m_key));
    }
    ~OpenedSubKey()
    {
        if (m_key != nullptr)
            CloseSettingsKey(m_key);
    }
    OpenedSubKey(const OpenedSubKey&) = delete;
    OpenedSubKey& operator=(const OpenedSubKey&) = delete;

    HKEY Get() const noexcept { return m_key; }
    HKEY Release() noexcept { return std::exchange(m_key, nullptr); }

private:
    OpenedBase m_base;
    HKEY m_key = nullptr;
};

CRegUtil::CRegUtil(CXTString<wchar_t> appName, unsigned long access)
    : m_appName(std::move(appName)), m_access(static_cast<unsigned>(access)), m_lastError(kNotReady)
{
}

CRegUtil::CRegUtil(unsigned long access) : m_access(static_cast<unsigned>(access)) {}

CRegUtil::CRegUtil(const CRegUtil& other) : m_access(other.m_access), m_root(RootKey(kCurrentUser))
{
    const tev::SharedUse use(other.m_use);
    SetPath(CPathString(other.m_path), false);
}

CRegUtil::~CRegUtil()
{
    CloseBase();
}

bool CRegUtil::SetPath(CPathString path, bool create)
{
    const tev::ExclusiveUse use(m_use);
    m_path = std::move(path);
    m_splitPath = m_path.GetConstBuffer();
    std::vector<const wchar_t*> components;
    wchar_t before = L'\0';
    for (int i = 0; i < m_splitPath.GetLength(); ++i)
    {
        if (std::wcschr(kPathSeparators, m_splitPath[i]) != nullptr)
            m_splitPath[i] = L'\0';
        else if (before == L'\0')
            components.push_back(m_splitPath.GetAtPtr(i));
        before = m_splitPath[i];
    }
    const wchar_t** first = components.data();
    auto count = static_cast<int>(components.size());
    if (HKEY const root = count > 0 ? StrToRootKey(*first) : nullptr)
    {
        m_root = root;
        ++first;
        --count;
    }
    return InitPath(first, count, create);
}

bool CRegUtil::SetRelPath(CPathString relPath, bool create)
{
    const tev::ExclusiveUse use(m_use);
    if (m_path.IsEmpty())
        return tev::NoteBadArgument("CRegUtil::SetRelPath", relPath);
    relPath = CPathString(m_path) / relPath;
    return SetPath(std::move(relPath), create) || Told("CRegUtil::SetRelPath", false);
}

bool CRegUtil::SetPath(wchar_t const** components, int count, HKEY root, bool create)
{
    const tev::ExclusiveUse use(m_use);
    m_root = root;
    CXTString<wchar_t> path;
    for (int i = 0; components != nullptr && i < count; ++i)
    {
        if (i > 0)
            path += L'\\';
        path += components[i];
    }
    m_path = path;
    return InitPath(components, count, create);
}

bool CRegUtil::SetPath()
{
    const tev::ExclusiveUse use(m_use);
    if (m_appName.IsEmpty())
    {
        CXTString<wchar_t> text;
        text.LoadString(kNoApplicationName);
        tev::ShowUserMessage(text);
        return tev::NoteBadArgument("CRegUtil::SetPath");
    }
    const CXTString<wchar_t> appName = m_appName;
    wchar_t const* components[] = {L"Software", L"Test", appName};
    return SetPath(components, 3, m_root, true);
}

bool CRegUtil::InitPath(wchar_t const** components, int count, bool create)
{
    CloseBase();
    m_components.RemoveAll();
    m_componentCount = 0;
    if (count < 1)
        return true;
    if (components == nullptr)
        return Told("CRegUtil::SetPath", Note(kSettingsBadParameter));
    for (; m_componentCount < count; ++m_componentCount)
        m_components.Add(components[m_componentCount]);
    const bool isThere = OpenPath(create);
    CloseBase();
    return Told("CRegUtil::SetPath", isThere);
}

bool CRegUtil::Told(const char* operation, bool isDone, bool isLookUp) const noexcept
{
    const auto error = static_cast<unsigned>(m_lastError);
    if (!isDone && error != kSettingsDone &&
        !(isLookUp && (error == kSettingsNotFound || error == kSettingsNoMoreItems)))
        tev::NoteSystemError(operation, error, m_path);
    return isDone;
}

bool CRegUtil::OpenBase(bool create)
{
    const tev::ExclusiveUse use(m_use);
    return Told("CRegUtil::OpenBase", OpenPath(create));
}

bool CRegUtil::OpenPath(bool create)
{
    tev::platform::PassCancellationPoint();
    if (m_base != nullptr)
        return true;
    HKEY const key = m_root != nullptr ? m_root : RootKey(kCurrentUser);
    if (m_componentCount == 0) // a handle of its own, since it holds the position of an enumeration
        return Note(OpenSettingsKey(key, L"", kAllAccess, m_base));
    std::wstring path;
    for (int i = 0; i < m_componentCount; ++i)
        (path += m_components[i].GetConstBuffer()) += L'\\';
    return OpenKey(key, path, m_access, create, m_base);
}

// A key that cannot be opened for another reason than that it is missing cannot be made either: that would only fail, or wait for
// another process, once more.
bool CRegUtil::OpenKey(HKEY parent, const std::wstring& path, unsigned access, bool create, HKEY& key)
{
    return Note(OpenSettingsKey(parent, path.c_str(), access, key)) ||
           (create && static_cast<unsigned>(m_lastError) == kSettingsNotFound &&
            Note(CreateSettingsKey(parent, path.c_str(), access, key)));
}

void CRegUtil::CloseBase()
{
    const tev::ExclusiveUse use(m_use);
    if (m_base != nullptr)
        CloseSettingsKey(std::exchange(m_base, nullptr));
}

CXTString<wchar_t> CRegUtil::GetKeyString(wchar_t const* name, bool expand)
{
    CXTString<wchar_t> text;
    const OpenedBase base(*this);
    Told("CRegUtil::GetKeyString", base && ReadText(m_base, name, expand, text), kLookUp);
    return text;
}

bool CRegUtil::WriteKeyString(wchar_t const* name, wchar_t const* data)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::WriteKeyString", base && WriteText(m_base, name, data));
}

bool CRegUtil::WriteKeyInt(wchar_t const* name, unsigned long value)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::WriteKeyInt", base && WriteInt(m_base, name, static_cast<unsigned>(value)));
}

bool CRegUtil::GetKeyInt(wchar_t const* name, unsigned long& value)
{
    const OpenedBase base(*this);
    unsigned read = 0;
    if (!Told("CRegUtil::GetKeyInt", base && ReadInt(m_base, name, read), kLookUp))
        return false;
    value = read;
    return true;
}

bool CRegUtil::WriteKeyBin(wchar_t const* name, void const* data, unsigned long size)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::WriteKeyBin", base && WriteBytes(m_base, name, kTypeBinary, data, size));
}

bool CRegUtil::GetKeyBin(wchar_t const* name, void* data, unsigned long& size)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::GetKeyBin", base && ReadBytes(m_base, name, data, size), kLookUp);
}

bool CRegUtil::WriteRegNoneKey(wchar_t const* name)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::WriteRegNoneKey", base && WriteBytes(m_base, name, kTypeNone, nullptr, 0));
}

bool CRegUtil::KeyExists(wchar_t const* name)
{
    const OpenedBase base(*this);
    unsigned long size = 0;
    return Told("CRegUtil::KeyExists", base && ReadBytes(m_base, name, nullptr, size), kLookUp) && size != 0;
}

bool CRegUtil::ReadValue(wchar_t const* name, unsigned long& type, std::vector<unsigned char>& data)
{
    const OpenedBase base(*this);
    SettingsValue value;
    if (!Told("CRegUtil::ReadValue", base && Note(ReadSettingsValue(m_base, name, value)), kLookUp))
        return false;
    type = value.type;
    data.assign(value.data.begin(), value.data.end());
    return true;
}

bool CRegUtil::WriteValue(wchar_t const* name, unsigned long type, void const* data, unsigned long size)
{
    const OpenedBase base(*this);
    return Told("CRegUtil::WriteValue", base && WriteBytes(m_base, name, type, data, size));
}

bool CRegUtil::WriteSubKeyString(wchar_t const* subkey, wchar_t const* name, wchar_t const* data)
{
    const OpenedSubKey key(*this, subkey, kReadWrite, true);
    return Told("CRegUtil::WriteSubKeyString", key.Get() != nullptr && WriteText(key.Get(), name, data));
}

bool CRegUtil::WriteSubKeyInt(wchar_t const* subkey, wchar_t const* name, unsigned long value)
{
    const OpenedSubKey key(*this, subkey, kReadWrite, true);
    const bool isDone = key.Get() != nullptr && WriteInt(key.Get(), name, static_cast<unsigned>(value));
    return Told("CRegUtil::WriteSubKeyInt", isDone);
}

int CRegUtil::GetSubKeyInt(wchar_t const* subkey, wchar_t const* name, int defaultValue)
{
    const OpenedSubKey key(*this, subkey, kRead, false);
    unsigned char bytes[kIntSize];
    unsigned long size = sizeof bytes;
    const bool isRead =
        Told("CRegUtil::GetSubKeyInt", key.Get() != nullptr && ReadBytes(key.Get(), name, bytes, size), kLookUp);
    return isRead && size == kIntSize ? tev::LoadLittleEndian<int>(bytes) : defaultValue;
}

CXTString<wchar_t> CRegUtil::GetSubKeyString(wchar_t const* subkey, wchar_t const* name, wchar_t const* defaultValue,
                                             bool expand)
{
    CXTString<wchar_t> text;
    const OpenedSubKey key(*this, subkey, kRead, false);
    const bool isRead = key.Get() != nullptr && ReadText(key.Get(), name, expand, text);
    if (!Told("CRegUtil::GetSubKeyString", isRead, kLookUp))
        text = defaultValue;
    return text;
}

bool CRegUtil::DeleteValue(wchar_t const* subkey, wchar_t const* name)
{
    const OpenedSubKey key(*this, subkey, kReadWrite, false);
    return Told("CRegUtil::DeleteValue",
                key.Get() != nullptr &&
                    Note(m_batch != nullptr ? m_batch->Delete(key.Get(), name) : DeleteSettingsValue(key.Get(), name)),
                kLookUp);
}

bool CRegUtil::StartBatch()
{
    const tev::ExclusiveUse use(m_use);
    if (m_batch != nullptr)
        return Told("CRegUtil::StartBatch", Note(kSettingsBadParameter));
    m_batch = std::make_unique<SettingsBatch>();
    return Note(kSettingsDone);
}

bool CRegUtil::ExpectValue(wchar_t const* name, unsigned long type, void const* data, unsigned long size)
{
    if (data == nullptr && size != 0)
        return Told("CRegUtil::ExpectValue", Note(kSettingsBadParameter));
    const SettingsValue value = {static_cast<unsigned>(type), std::string(static_cast<const char*>(data), size)};
    return Told("CRegUtil::ExpectValue", Expect(name, &value));
}

bool CRegUtil::ExpectNoValue(wchar_t const* name)
{
    return Told("CRegUtil::ExpectNoValue", Expect(name, nullptr));
}

bool CRegUtil::Expect(wchar_t const* name, const SettingsValue* value)
{
    if (m_batch == nullptr)
        return Note(kSettingsBadParameter);
    const OpenedBase base(*this);
    return base && Note(m_batch->Expect(m_base, name, value));
}

bool CRegUtil::EndBatch(bool discard)
{
    const tev::ExclusiveUse use(m_use);
    tev::platform::PassCancellationPoint();
    const std::unique_ptr<SettingsBatch> batch = std::move(m_batch);
    if (batch == nullptr)
        return Told("CRegUtil::EndBatch", Note(kSettingsBadParameter));
    return Told("CRegUtil::EndBatch", Note(discard ? unsigned{kSettingsDone} : batch->Make()));
}

bool CRegUtil::DeleteKey(wchar_t const* subkey, bool recursive)
{
    const tev::ExclusiveUse use(m_use);
    if (subkey == nullptr)
        return Told("CRegUtil::DeleteKey", Note(kSettingsBadParameter));
    const OpenedBase base(*this);
    const bool isDone = base && Note(DeleteSettingsKey(m_base, StorePath(subkey).c_str(), recursive));
    return Told("CRegUtil::DeleteKey", isDone, kLookUp);
}

bool CRegUtil::StartSubKeyEnum()
{
    const tev::ExclusiveUse use(m_use);
    OpenedBase base(*this);
    m_enumIndex = 0;
    if (!Told("CRegUtil::StartSubKeyEnum", base && Note(QuerySettingsKey(m_base)), kLookUp))
        return false;
    base.Keep();
    return true;
}

bool CRegUtil::GetNextSubKeyName(wchar_t* buffer, unsigned long size)
{
    const tev::ExclusiveUse use(m_use);
    std::wstring name;
    const unsigned error = EnumerateSettingsKeys(m_base, m_enumIndex, name);
    return Told("CRegUtil::GetNextSubKeyName", GiveName(error, name, buffer, size), kLookUp);
}

void CRegUtil::EndSubKeyEnum()
{
    CloseBase();
}

bool CRegUtil::StartValueSection(wchar_t const* subkey)
{
    const tev::ExclusiveUse use(m_use);
    HKEY opened = nullptr;
    {
        OpenedSubKey key(*this, subkey, m_access, false);
        opened = key.Release();
    }
    if (opened == nullptr)
        return Told("CRegUtil::StartValueSection", false, kLookUp);
    CloseBase();
    m_base = opened;
    m_enumIndex = 0;
    return true;
}

bool CRegUtil::GetNextValueName(wchar_t* buffer, unsigned long size)
{
    const tev::ExclusiveUse use(m_use);
    std::wstring name;
    const unsigned error = EnumerateSettingsValues(m_base, m_enumIndex, name);
    return Told("CRegUtil::GetNextValueName", GiveName(error, name, buffer, size), kLookUp);
}

void CRegUtil::EndValueSection()
{
    CloseBase();
}

HKEY CRegUtil::StrToRootKey(wchar_t const* name)
{
    for (const auto& row : kRoots)
    {
        if (name != nullptr && std::wcscmp(name, row.name) == 0)
            return RootKey(row.root);
    }
    return nullptr;
}

CPathString CRegUtil::GetFilePath(HKEY root)
{
    const auto number = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(root));
    return CPathString(SettingsFile(static_cast<SettingsRoot>(number)).c_str());
}

bool CRegUtil::Note(unsigned systemError) noexcept
{
    m_lastError = static_cast<int>(systemError);
    return systemError == kSettingsDone;
}

bool CRegUtil::ReadText(HKEY key, wchar_t const* name, bool expand, CXTString<wchar_t>& text)
{
    SettingsValue value;
    if (!Note(ReadSettingsValue(key, name, value)) || !IsText(value.type))
        return false;
    static_cast<void>(XDecodeText(value.data.data(), value.data.size() / 2 * 2, xEncodingUtf16, text));
    text.ReleaseBuffer();
    if (expand && value.type == kTypeExpandString)
    {
        const std::wstring expanded = ExpandEnvironmentText(text);
        if (expanded.size() < kExpandedTextSize)
            text = expanded.c_str();
    }
    return true;
}

bool CRegUtil::ReadBytes(HKEY key, wchar_t const* name, void* data, unsigned long& size)
{
    unsigned type = 0;
    std::uint64_t size64 = size;
    const unsigned error = ReadSettingsValue(key, name, type, data, size64);
    if (error == kSettingsDone || error == kSettingsMoreData)
        size = static_cast<unsigned long>(size64);
    return Note(error);
}

bool CRegUtil::ReadInt(HKEY key, wchar_t const* name, unsigned& value)
{
    unsigned char bytes[kIntSize] = {};
    unsigned long size = sizeof bytes;
    if (!ReadBytes(key, name, bytes, size))
        return false;
    value = tev::LoadLittleEndian<unsigned>(bytes);
    return true;
}

bool CRegUtil::WriteBytes(HKEY key, wchar_t const* name, unsigned long type, void const* data, unsigned long size)
{
    if (std::uint64_t{size} > std::numeric_limits<std::uint32_t>::max())
        return Note(kSettingsBadParameter);
    return Note(m_batch != nullptr ? m_batch->Write(key, name, static_cast<unsigned>(type), data, size)
                                   : WriteSettingsValue(key, name, static_cast<unsigned>(type), data, size));
}

bool CRegUtil::WriteText(HKEY key, wchar_t const* name, wchar_t const* text)
{
    if (text == nullptr)
        return WriteBytes(key, name, kTypeString, nullptr, 0);
    CXTString<char> bytes;
    static_cast<void>(XEncodeText(text, std::wcslen(text) + 1, xEncodingUtf16, bytes));
    return WriteBytes(key, name, kTypeString, bytes.GetConstBuffer(), static_cast<unsigned long>(bytes.GetLength64()));
}

bool CRegUtil::WriteInt(HKEY key, wchar_t const* name, unsigned value)
{
    unsigned char bytes[kIntSize];
    tev::StoreLittleEndian(bytes, value);
    return WriteBytes(key, name, kTypeInt, bytes, sizeof bytes);
}

bool CRegUtil::GiveName(unsigned systemError, const std::wstring& name, wchar_t* buffer, unsigned long size)
{
    if (!Note(systemError))
        return false;
    if (buffer == nullptr)
        return Note(kSettingsBadParameter);
    if (name.size() >= size)
        return Note(kSettingsMoreData);
    std::copy_n(name.c_str(), name.size() + 1, buffer);
    ++m_enumIndex;
    return true;
}
