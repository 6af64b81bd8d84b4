// Stores in preference files.

#include "base/LittleEndian.h"
#include "files/FileReplacement.h"
#include "files/RegularFile.h"
#include "objects/CXException.h"
#include "objects/CXFileException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "platform/SystemErrors.h"
#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "settings/PreferenceRecords.h"
#include "settings/engine/SettingsStore.h"
#include "text/MessageTexts.h"

#include <algorithm>
#include <memory>
#include <optional>

namespace
{
using Text = CXTString<wchar_t>;
using Bytes = std::vector<unsigned char>;
using Records = std::vector<XPreferenceRecord>;

constexpr std::size_t kFirstRead = std::size_t(1) << 20;
constexpr std::size_t kWriteStep = std::size_t(1) << 30; // a count of the file has 32 bits
constexpr unsigned __int64 kLargestFile = std::size_t(1) << 30;
constexpr std::size_t kCountSize = 4; ///< the number of records, at the start of the file
constexpr std::size_t kKeysSize = 8;
constexpr const wchar_t* kDamagedSuffix = L".damaged";

struct StoreFree
{
    void operator()(unsigned char* block) const noexcept { CCustomData::Free(block); }
};

bool HasFileName(const Text& path)
{
    const int length = path.GetLength();
    return length != 0 && path[length - 1] != L'/' && path[length - 1] != L'\\';
}

/// In growing steps, so that memory follows what the file has and not what it says.
Bytes ReadAll(CXFile& file)
{
    const unsigned __int64 length = file.GetLength();
    if (length == tev::platform::kNoPosition)
        CXFileException::ThrowOsError(fileGeneric, file.GetFilePath(), nullptr);
    if (length > kLargestFile)
        CXFileException::Throw(fileInvalidFile, file.GetFilePath());
    Bytes bytes;
    for (std::size_t done = 0; done < length; done = bytes.size())
    {
        const std::size_t step = std::min(static_cast<std::size_t>(length) - done, std::max(done, kFirstRead));
        bytes.resize(done + step);
        const unsigned got = file.Read(bytes.data() + done, static_cast<unsigned>(step));
        bytes.resize(done + got);
        if (got == 0)
            break;
    }
    return bytes;
}

/// Reads the whole file, which is replaced as a whole and so never changes while it is open. False when there is none;
/// throws CXFileException when it cannot be read.
bool ReadFile(const Text& path, Bytes& bytes)
{
    CXFileException error;
    tev::RegularFile file;
    if (file.Open(path, error))
        bytes = ReadAll(file);
    else if (error.GetCause() != fileNotFound)
        XThrow<CXFileException>(error);
    return file.IsOpen();
}

void WriteAll(CXFile& file, const unsigned char* bytes, std::size_t size)
{
    for (std::size_t done = 0; done < size;)
    {
        const std::size_t step = std::min(size - done, kWriteStep);
        file.Write(bytes + done, static_cast<unsigned>(step));
        done += step;
    }
}

bool Matches(const XPreferenceRecord& record, unsigned key1, unsigned key2)
{
    return record.m_isSound && record.m_key1 == key1 && record.m_key2 == key2;
}

CCustomData Loaded(const Bytes& file, const XPreferenceRecord& record)
{
    CCustomData store;
    const unsigned char* const bytes = file.data() + record.m_offset + kKeysSize;
    if (!store.SerializeFromData(bytes, record.m_size - kKeysSize))
        CXMemoryException::Throw(); // nothing else keeps a sound record from being loaded
    return store;
}

const XPreferenceRecord* FindRecord(const Records& records, unsigned key1, unsigned key2)
{
    const auto found = std::find_if(records.begin(), records.end(),
                                    [=](const XPreferenceRecord& record) { return Matches(record, key1, key2); });
    return found == records.end() ? nullptr : &*found;
}

/// A folder, by whatever path it is named, in which a preference file is updated by this thread.
class UpdatedFolder
{
public:
    explicit UpdatedFolder(const Text& path) : m_outer(t_innermost)
    {
        if (!Find(path, m_folder))
            CXFileException::ThrowOsError(fileBadPath, path, nullptr);
        t_innermost = this;
    }
    ~UpdatedFolder() { t_innermost = m_outer; }
    UpdatedFolder(const UpdatedFolder&) = delete;
    UpdatedFolder& operator=(const UpdatedFolder&) = delete;

    /// The thread would wait for the lock that it holds itself.
    static void RefuseWithin(const Text& path)
    {
        FileInformation folder;
        if (t_innermost == nullptr || !Find(path, folder))
            return;
        for (const UpdatedFolder* updated = t_innermost; updated != nullptr; updated = updated->m_outer)
        {
            if (updated->m_folder.device == folder.device && updated->m_folder.number == folder.number)
                CXFileException::Throw(fileSharingViolation, path);
        }
    }

private:
    using FileInformation = tev::platform::FileInformation;

    static bool Find(const Text& path, FileInformation& folder)
    {
        std::wstring target;
        if (!tev::platform::CurrentFileSystem().ResolveLinks(path, target))
            return false;
        const std::size_t nameStart = target.find_last_of(L"/\\") + 1;
        const std::wstring name = nameStart == 0 ? L"." : target.substr(0, nameStart);
        return tev::platform::GetFileInformation(name.c_str(), folder);
    }

    static thread_local const UpdatedFolder* t_innermost;

    FileInformation m_folder;
    const UpdatedFolder* m_outer;
};

thread_local const UpdatedFolder* UpdatedFolder::t_innermost = nullptr;

/// Rewrites a file: the store under one pair of keys is replaced or removed, every other sound record is copied.
class Rewriting
{
public:
    Rewriting(const Text& path, unsigned key1, unsigned key2)
        : m_replacement(Refused(path), tev::TemporaryName::Suffix), m_key1(key1), m_key2(key2)
    {
        ReadFile(path, m_old);
        m_isSound = tev::SplitPreferences(m_old, m_records);
    }

    bool IsSound() const { return m_isSound; }
    /// The present record of the keys, null when there is none.
    const XPreferenceRecord* Present() const { return FindRecord(m_records, m_key1, m_key2); }
    CCustomData LoadPresent() const { return Loaded(m_old, *Present()); }

    /// Puts the store in front of the other records. A damaged file is kept under another name first.
    void Replace(const CCustomData& store)
    {
        unsigned __int64 size = 0;
        const std::unique_ptr<unsigned char, StoreFree> bytes(static_cast<unsigned char*>(store.SerializeToData(size)));
        if (bytes == nullptr)
            CXMemoryException::Throw();
        KeepOthers();
        unsigned __int64 kept = kCountSize + kKeysSize;
        for (const XPreferenceRecord& record : m_records)
            kept += record.m_size;
        if (size > kLargestFile || kept > kLargestFile - size)
            CXFileException::Throw(fileGeneric, {});
        if (!m_isSound)
        {
            WriteAll(m_replacement.Begin(), m_old.data(), m_old.size());
            m_replacement.Commit(kDamagedSuffix);
        }
        Write(bytes.get(), static_cast<std::size_t>(size));
    }

    void Remove()
    {
        KeepOthers();
        Write(nullptr, 0);
    }

private:
    static const Text& Refused(const Text& path)
    {
        UpdatedFolder::RefuseWithin(path);
        return path;
    }

    /// Drops the records that are not copied.
    void KeepOthers()
    {
        const auto isLeftOut = [this](const XPreferenceRecord& record) {
            return !record.m_isSound || Matches(record, m_key1, m_key2);
        };
        m_records.erase(std::remove_if(m_records.begin(), m_records.end(), isLeftOut), m_records.end());
    }

    void Write(const unsigned char* store, std::size_t size)
    {
        Bytes head(store == nullptr ? kCountSize : kCountSize + kKeysSize);
        tev::StoreLittleEndian(head.data(), static_cast<unsigned>(m_records.size() + (store == nullptr ? 0 : 1)));
        if (store != nullptr)
        {
            tev::StoreLittleEndian(head.data() + kCountSize, m_key1);
            tev::StoreLittleEndian(head.data() + kCountSize + 4, m_key2);
        }
        CXFile& file = m_replacement.Begin();
        WriteAll(file, head.data(), head.size());
        WriteAll(file, store, size);
        for (const XPreferenceRecord& record : m_records)
            WriteAll(file, m_old.data() + record.m_offset, static_cast<std::size_t>(record.m_size));
        m_replacement.Commit();
    }

    tev::FileReplacement m_replacement; // locks before the old file is read
    unsigned m_key1;
    unsigned m_key2;
    Bytes m_old;
    Records m_records;
    bool m_isSound;
};

bool NoteNoStore(const char* operation, const CXTString<wchar_t>& path)
{
    return tev::NoteFailure({operation, XFailureKind::kData, 0, fileNone, tev::kTextNoStore}, path);
}
} // namespace

bool XListPreferences(const CXTString<wchar_t>& path, std::vector<XPreferenceRecord>& records)
{
    Bytes file;
    if (!ReadFile(path, file))
        CXFileException::Throw(fileNotFound, path);
    return tev::SplitPreferences(file, records) || tev::NoteBadData("XListPreferences", path);
}

namespace
{
bool RemoveStore(const CXTString<wchar_t>& path, unsigned key1, unsigned key2, const CCustomData* expected)
{
    constexpr const char* kOperation = "XRemovePreference";
    if (!HasFileName(path))
        return tev::NoteBadArgument(kOperation, path);
    return tev::ResultOrNote(kOperation, path, false, [&] {
        Rewriting rewriting(path, key1, key2);
        if (!rewriting.IsSound())
            return tev::NoteBadData(kOperation, path);
        if (rewriting.Present() == nullptr)
            return NoteNoStore(kOperation, path);
        if (expected != nullptr && !rewriting.LoadPresent().IsEqual(*expected))
            return tev::NoteSystemError(kOperation, tev::kSettingsChanged, path);
        rewriting.Remove();
        return true;
    });
}
} // namespace

bool XRemovePreference(const CXTString<wchar_t>& path, unsigned key1, unsigned key2)
{
    return RemoveStore(path, key1, key2, nullptr);
}

bool XRemovePreference(const CXTString<wchar_t>& path, unsigned key1, unsigned key2, const CCustomData& expected)
{
    return RemoveStore(path, key1, key2, &expected);
}

bool XUpdatePreferences(const CXTString<wchar_t>& path, unsigned key1, unsigned key2,
                        const std::function<void(CCustomData& store)>& change)
{
    constexpr const char* kOperation = "XUpdatePreferences";
    if (!HasFileName(path))
        return tev::NoteBadArgument(kOperation, path);
    std::optional<Rewriting> rewriting;
    CCustomData store;
    std::optional<UpdatedFolder> updated;
    const bool isLoaded = tev::ResultOrNote(kOperation, path, false, [&] {
        rewriting.emplace(path, key1, key2);
        updated.emplace(path);
        if (rewriting->Present() != nullptr)
            store = rewriting->LoadPresent();
        return rewriting->IsSound() || rewriting->Present() != nullptr || tev::NoteBadData(kOperation, path);
    });
    if (!isLoaded)
        return false;
    change(store);
    return tev::ResultOrNote(kOperation, path, false, [&] {
        rewriting->Replace(store);
        return true;
    });
}

// The store's lock before the folder's: of two threads that save one store the one that comes second saves what is newer.
bool CCustomData::SaveToPrefs(const CXTString<wchar_t>& path, unsigned key1, unsigned key2) const
{
    const tev::LockGuard lock(m_lock);
    if (!HasFileName(path))
        return tev::NoteBadArgument("CCustomData::SaveToPrefs", path);
    return tev::ResultOrNote("CCustomData::SaveToPrefs", path, false, [&] {
        Rewriting(path, key1, key2).Replace(*this);
        return true;
    });
}

bool CCustomData::LoadFromPrefs(CXTString<wchar_t> path, unsigned key1, unsigned key2, bool throwWhenDamaged)
{
    constexpr const char* kOperation = "CCustomData::LoadFromPrefs";
    const tev::LockGuard lock(m_lock);
    if (!throwWhenDamaged)
        return tev::ResultOrNote(kOperation, path, false, [&] { return LoadFromPrefs(path, key1, key2, true); });
    Bytes file;
    if (!ReadFile(path, file))
        return tev::NoteSystemError(kOperation, tev::platform::kNotFound, path);
    Records records;
    const bool isSound = tev::SplitPreferences(file, records);
    const XPreferenceRecord* const record = FindRecord(records, key1, key2);
    if (!isSound && record == nullptr)
        CXFileException::Throw(fileInvalidFile, path);
    if (record == nullptr)
        return NoteNoStore(kOperation, path);
    CCustomData loaded = Loaded(file, *record);
    TakeFrom(loaded);
    return true;
}
