#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What handles of keys point to, as the public interface names it. Opaque.
struct HKEY__;

/// The hierarchical settings store: keys within keys, each with typed values. Names of keys and values are compared
/// without regard to case, by Unicode's simple case folding, and keep the spelling in which they were made. A value may
/// have the empty name. Where a path is taken, '\' separates keys, and an empty one (or null) means the key itself.
///
/// Handles are the numbers of the predefined roots below, and what OpenSettingsKey and CreateSettingsKey return.
/// Handles stay valid in a child process made by fork. Every operation returns a system error code, 0 for success;
/// outputs are unspecified after a failure unless stated otherwise. A missing store reads like an empty one and is
/// created by the first write. Operations wait up to 5 seconds for another process that writes. Safe from several
/// threads at once, as long as no thread changes the environment meanwhile.
namespace tev
{
using SettingsKey = ::HKEY__*;

enum SettingsRoot : std::uint32_t
{
    kClassesRoot = 0x80000000,
    kCurrentUser = 0x80000001,
    kLocalMachine = 0x80000002, ///< in the store of the machine where there is one, else in the user's like all others
    kUsers = 0x80000003,
    kCurrentConfig = 0x80000005,
    kDynData = 0x80000006
};

inline SettingsKey RootKey(SettingsRoot root) noexcept
{
    return reinterpret_cast<SettingsKey>(static_cast<std::uintptr_t>(root));
}

enum SettingsError : unsigned
{
    kSettingsDone = 0,
    kSettingsNotFound = 2,
    kSettingsAccessDenied = 5,
    kSettingsBadHandle = 6,
    kSettingsNoMemory = 8,
    kSettingsWriteProtected = 19,
    kSettingsBadParameter = 87,
    kSettingsOpenFailed = 110,
    kSettingsDiskFull = 112,
    kSettingsBusy = 170, ///< another process has been writing for 5 seconds
    kSettingsMoreData = 234,
    kSettingsNoMoreItems = 259,
    kSettingsDamaged = 1009, ///< the file is no database, or a damaged one; it is left as it is
    kSettingsForeign = 1017, ///< the file is the database of another program; it is left as it is
    kSettingsKeyDeleted = 1018,
    kSettingsDeviceError = 1117,
    kSettingsChanged = 1237,     ///< a value is not as a batch expects it
    kSettingsNewer = 1306,       ///< the file is of a later version; it is left as it is
    kSettingsTooLarge = 1450,    ///< a value of about 1 GB
    kSettingsReopen = 0xFFFFFFFF ///< no failure that anyone is told: see RetryWhileBusy
};

// Rights that a key is opened with. Creating and deleting keys asks for none, the rest of a mask has no meaning here.
constexpr unsigned kSettingsQueryValue = 0x0001;
constexpr unsigned kSettingsSetValue = 0x0002;
constexpr unsigned kSettingsEnumerateKeys = 0x0008;

constexpr std::size_t kLongestSettingsKeyName = 255;     ///< in 16-bit units
constexpr std::size_t kLongestSettingsValueName = 16383; ///< in 16-bit units
constexpr unsigned kDeepestSettingsKey = 512;            ///< levels below a root

struct SettingsValue
{
    unsigned type = 0;
    std::string data; ///< texts are UTF-16 little-endian
};

[[nodiscard]] unsigned OpenSettingsKey(SettingsKey parent, const wchar_t* path, unsigned access, SettingsKey& key);
/// Opens a key, which is made where it is missing, with all above it.
[[nodiscard]] unsigned CreateSettingsKey(SettingsKey parent, const wchar_t* path, unsigned access, SettingsKey& key);
/// Closing a root does nothing.
unsigned CloseSettingsKey(SettingsKey key);

[[nodiscard]] unsigned ReadSettingsValue(SettingsKey key, const wchar_t* name, SettingsValue& value);
/// `size` is that of the buffer, and receives that of the value. Where the buffer is too small nothing is written and
/// the result is kSettingsMoreData; without a buffer only type and size are returned. A failure for another reason
/// changes nothing.
[[nodiscard]] unsigned ReadSettingsValue(SettingsKey key, const wchar_t* name, unsigned& type, void* buffer,
                                         std::uint64_t& size);
[[nodiscard]] unsigned WriteSettingsValue(SettingsKey key, const wchar_t* name, unsigned type, const void* data,
                                          std::uint64_t size);
[[nodiscard]] unsigned DeleteSettingsValue(SettingsKey key, const wchar_t* name);

/// Deletes a key with its values. Refused (kSettingsAccessDenied) for roots and, unless `recursive`, for a key that has
/// keys below it; these are deleted all or none.
[[nodiscard]] unsigned DeleteSettingsKey(SettingsKey parent, const wchar_t* path, bool recursive);

// The keys below a key, and its values, by index, in the order of their names without case. Asking for one index after
// the other through one handle continues behind the previous name: deleting or adding names meanwhile repeats or skips
// none of the others. Each then takes the same time; an index out of order counts from the first.

[[nodiscard]] unsigned EnumerateSettingsKeys(SettingsKey key, unsigned index, std::wstring& name);
[[nodiscard]] unsigned EnumerateSettingsValues(SettingsKey key, unsigned index, std::wstring& name);
/// Whether a key can be enumerated.
[[nodiscard]] unsigned QuerySettingsKey(SettingsKey key);

/// The file in which a root's keys are, or will be; empty where the system keeps them elsewhere.
std::wstring SettingsFile(SettingsRoot root);

// Whole trees

struct SettingsTreeValue
{
    std::wstring name;
    SettingsValue value;
};

struct SettingsTreeKey
{
    std::wstring path; ///< below the key that was asked for, which has the empty one
    std::vector<SettingsTreeValue> values;
};

/// A key and all below it, each before those below it, as they were at one moment.
[[nodiscard]] unsigned ReadSettingsTree(SettingsKey key, const wchar_t* path, std::vector<SettingsTreeKey>& tree);

/// Deletes a key with all below it, in the step in which `isExpected` finds them as they are to be; kSettingsChanged where it
/// does not. It is called under the lock of the store.
[[nodiscard]] unsigned DeleteSettingsTree(SettingsKey key, const wchar_t* path,
                                          const std::function<bool(const std::vector<SettingsTreeKey>&)>& isExpected);

struct SettingsChange
{
    enum class Kind
    {
        CreateKey,
        DeleteKey, ///< with all below it
        SetValue,  ///< makes the key where it is missing
        DeleteValue
    };

    Kind kind = Kind::CreateKey;
    SettingsRoot root = kCurrentUser;
    std::wstring path;
    std::wstring name;
    SettingsValue value;
};

/// Makes changes one after the other, in each store all of them or none. To delete what is missing is no failure. A
/// failure says with `failed` which change it met, the number of changes where it was none of them.
[[nodiscard]] unsigned ChangeSettings(const std::vector<SettingsChange>& changes, std::size_t& failed);
} // namespace tev
