#pragma once

#include "arrays/CXArray.h"
#include "objects/ThreadUse.h"
#include "services/CPathString.h"
#include "text/CXTString.h"

#include <memory>
#include <string>
#include <vector>

namespace tev
{
class SettingsBatch;
struct SettingsValue;
} // namespace tev

/// The handle of a key in the settings registry; on Windows the system's own type. Opaque.
struct HKEY__;
using HKEY = HKEY__*;

/// Reads and writes settings in the system's registry: keys within keys, each with typed values. An object holds the
/// path of a base key; operations name a value of it, or a key below it and a value of that. Names are compared without
/// regard to case. The base is opened for each operation, unless OpenBase keeps it open, which is several times faster.
/// docs/registry.md says where the registry is stored, what happens when several programs change it at the same time,
/// and what the error codes mean.
///
/// Operations return false, or the default, when they fail, and GetLastError() says why, as XLastFailure() does for all but
/// names that are looked for and are not there. Names that are null are empty:
/// the empty name of a value is that of the key's default value, and an empty key below the base is the base itself. In
/// the name of a key below the base '\', '/' and ':' separate levels. Parameters of type unsigned long carry 32 bits.
/// One thread at a time; several objects may work at once.
class TEVTOOLS_API CRegUtil
{
public:
    // Rights to open the base with.
    static constexpr unsigned long kRead = 0x20019;
    static constexpr unsigned long kReadWrite = 0x2001F;
    static constexpr unsigned long kAllAccess = 0xF003F;

    // Types of values.
    static constexpr unsigned long kTypeNone = 0;
    static constexpr unsigned long kTypeString = 1;
    static constexpr unsigned long kTypeExpandString = 2; ///< holds variables of the environment as %NAME%
    static constexpr unsigned long kTypeBinary = 3;
    static constexpr unsigned long kTypeInt = 4; ///< 32 bits, as is a DWORD
    static constexpr unsigned long kTypeMultiString = 7;
    static constexpr unsigned long kTypeInt64 = 11;

    /// Made for SetPath() without arguments. The last error is 21 until something is done.
    CRegUtil(CXTString<wchar_t> appName, unsigned long access);
    explicit CRegUtil(unsigned long access);
    /// Copies rights and path only: the root is HKEY_CURRENT_USER unless the path names another, there is no
    /// application name, and the base is closed.
    CRegUtil(const CRegUtil& other);
    CRegUtil& operator=(const CRegUtil&) = delete;
    virtual ~CRegUtil();

    /// Chooses the base key. The path's components stand between '\', '/' or ':'; if the first is the name of a root,
    /// that becomes the root, else the root stays (HKEY_CURRENT_USER in a new object). Returns whether the key could be
    /// opened; with `create` it is created with all keys above it. The path is kept in any case.
    bool SetPath(CPathString path, bool create);
    /// False when there is no path to which this one could be relative.
    bool SetRelPath(CPathString relPath, bool create);
    /// A null root stands for HKEY_CURRENT_USER.
    bool SetPath(wchar_t const** components, int count, HKEY root, bool create);
    /// Chooses and makes Software, Test and the name of the application below the present root. An object that was made
    /// without a name shows a message that says so.
    bool SetPath();

    /// Keeps the base open until CloseBase. Without components the root is the base.
    bool OpenBase(bool create);
    void CloseBase();

    // Values of the base

    /// Texts of any of the three text types up to their first NUL. With `expand` the variables in a kTypeExpandString
    /// are replaced, unless the text then has 260 characters or more.
    CXTString<wchar_t> GetKeyString(wchar_t const* name, bool expand);
    /// Null writes a text of no bytes, without a terminator.
    bool WriteKeyString(wchar_t const* name, wchar_t const* data);
    bool WriteKeyInt(wchar_t const* name, unsigned long value);
    /// Reads a value of any type and at most 4 bytes; those that it lacks are 0.
    bool GetKeyInt(wchar_t const* name, unsigned long& value);
    bool WriteKeyBin(wchar_t const* name, void const* data, unsigned long size);
    /// Reads a value of any type. `size` is that of the buffer, and receives that of the value, also where the buffer
    /// is too small for it (error 234) or null.
    bool GetKeyBin(wchar_t const* name, void* data, unsigned long& size);
    /// Writes a value without type and data.
    bool WriteRegNoneKey(wchar_t const* name);
    /// Whether the base has a value of this name, of one byte at least.
    bool KeyExists(wchar_t const* name);
    /// Reads and writes values of any type; texts are UTF-16 little-endian with a terminator.
    bool ReadValue(wchar_t const* name, unsigned long& type, std::vector<unsigned char>& data);
    bool WriteValue(wchar_t const* name, unsigned long type, void const* data, unsigned long size);

    // Values of a key below the base. Writing makes the key where it is missing, and asks for no rights of the base.

    bool WriteSubKeyString(wchar_t const* subkey, wchar_t const* name, wchar_t const* data);
    bool WriteSubKeyInt(wchar_t const* subkey, wchar_t const* name, unsigned long value);
    /// The default unless the value has 4 bytes.
    int GetSubKeyInt(wchar_t const* subkey, wchar_t const* name, int defaultValue);
    CXTString<wchar_t> GetSubKeyString(wchar_t const* subkey, wchar_t const* name, wchar_t const* defaultValue,
                                       bool expand);
    bool DeleteValue(wchar_t const* subkey, wchar_t const* name);

    // Batches

    /// Collects what is written and deleted from now on, of the base and of keys below it, until EndBatch. Reading returns
    /// what was there before. Keys are made and deleted at once. False where a batch was begun already.
    bool StartBatch();
    /// Adds a condition to the batch: when its changes are made, the base has this value, or none of this name. Where it is not
    /// met, EndBatch makes none of them (error 1237), so that a change which another program made meanwhile is not lost. Where a
    /// change of the batch stands before it, that counts. False where no batch was begun.
    bool ExpectValue(wchar_t const* name, unsigned long type, void const* data, unsigned long size);
    bool ExpectNoValue(wchar_t const* name);
    /// Makes the changes of the batch, in one step: others see all of them or none, and where one of them fails none is made.
    /// With `discard` none is made either, as when the object ends before. False where no batch was begun.
    bool EndBatch(bool discard = false);

    // Keys

    /// Deletes a key with its values. One that has keys below it is deleted only with `recursive`, and then with all of
    /// them or not at all. False for null.
    bool DeleteKey(wchar_t const* subkey, bool recursive);

    // Enumerations open the base, or a key below it in its place, and close it at their end. Names come in the order of
    // their folded spelling. Deleting or adding names meanwhile repeats or skips none of the others. `size` counts
    // characters, the terminator included; where it is too small (error 234) the same name can be asked for again. The
    // last error behind the last name is 259.

    bool StartSubKeyEnum();
    bool GetNextSubKeyName(wchar_t* buffer, unsigned long size);
    void EndSubKeyEnum();
    bool StartValueSection(wchar_t const* subkey);
    bool GetNextValueName(wchar_t* buffer, unsigned long size);
    void EndValueSection();

    /// The handle of a root by its exact name, null for any other text.
    static HKEY StrToRootKey(wchar_t const* name);

    /// The file in which a root has its keys, or will have them; empty where the system keeps them elsewhere.
    static CPathString GetFilePath(HKEY root);

    /// The system's code of the last call to the registry, 0 for success. Closing changes nothing.
    int GetLastError() const noexcept
    {
        const tev::SharedUse use(m_use);
        return m_lastError;
    }

protected:
    bool InitPath(wchar_t const** components, int count, bool create);

private:
    class OpenedBase;
    class OpenedSubKey;

    bool OpenPath(bool create);
    bool OpenKey(HKEY parent, const std::wstring& path, unsigned access, bool create, HKEY& key);
    /// Notes the last error as the reason of an operation that was not done. Of one that only looks, what is not there is none.
    bool Told(const char* operation, bool isDone, bool isLookUp = false) const noexcept;
    /// Keeps the code of a call as the last error and returns whether it succeeded.
    bool Note(unsigned systemError) noexcept;
    bool ReadText(HKEY key, wchar_t const* name, bool expand, CXTString<wchar_t>& text);
    bool ReadBytes(HKEY key, wchar_t const* name, void* data, unsigned long& size);
    bool ReadInt(HKEY key, wchar_t const* name, unsigned& value);
    bool WriteBytes(HKEY key, wchar_t const* name, unsigned long type, void const* data, unsigned long size);
    bool WriteText(HKEY key, wchar_t const* name, wchar_t const* text);
    bool WriteInt(HKEY key, wchar_t const* name, unsigned value);
    bool Expect(wchar_t const* name, const tev::SettingsValue* value);
    bool GiveName(unsigned systemError, const std::wstring& name, wchar_t* buffer, unsigned long size);

    CXTString<wchar_t> m_path;
    CXTString<wchar_t> m_splitPath; ///< the path with a terminator for each separator
    CXTString<wchar_t> m_appName;
    CXArray<CXTString<wchar_t>> m_components;
    int m_componentCount = 0;
    unsigned m_access;
    unsigned m_enumIndex = 0;
    tev::ThreadUse m_use;
    HKEY m_base = nullptr;
    HKEY m_root = nullptr;
    int m_lastError = 0;
    std::unique_ptr<tev::SettingsBatch> m_batch;
};
