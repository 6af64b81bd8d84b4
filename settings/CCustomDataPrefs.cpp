// Stores in preference files.

#include "base/LittleEndian.h"
#include "files/CXFile.h"
#include "files/FileReplacement.h"
#include "objects/CXFileException.h"
#include "objects/ResultOr.h"
#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"
#include "settings/PreferenceRecords.h"

#include <algorithm>
#include <memory>

namespace
{
using Text = CXTString<wchar_t>;
using Bytes = std::vector<unsigned char>;
using Records = std::vector<XPreferenceRecord>;

constexpr std::size_t kReadStep = std::size_t(1) << 30;
constexpr unsigned __int64 kNoLength = ~0ULL; // of something that is not a file
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

/// In steps, since CXFile::Read takes a count of 32 bits; the file may be shorter than its length said.
Bytes ReadAll(CXFile& file)
{
    const unsigned __int64 length = file.GetLength();
    if (length == kNoLength)
        CXFileException::Throw(fileInvalidFile, file.GetFilePath());
    Bytes bytes(static_cast<std::size_t>(length));
    std::size_t done = 0;
    while (done < bytes.size())
    {
        const auto step = static_cast<unsigned>(std::min(bytes.size() - done, kReadStep));
        const unsigned got = file.Read(bytes.data() + done, step);
        if (got == 0)
            break;
        done += got;
    }
    bytes.resize(done);
    return bytes;
}

/// Reads the whole file, which is replaced as a whole and so never changes while it is open. False when there is none;
/// throws CXFileException when it cannot be read.
bool ReadFile(const Text& path, Bytes& bytes)
{
    if (tev::IsPipeOrDevice(path))
        CXFileException::Throw(fileInvalidFile, path);
    CXFile file;
    CXFileException error;
    if (!file.Open(path, CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit, &error))
    {
        if (error.GetCause() == fileNotFound)
            return false;
        CXFileException::Throw(error.GetCause(), path);
    }
    bytes = ReadAll(file);
    return true;
}

void WriteAll(CXFile& file, const unsigned char* bytes, std::size_t size)
{
    for (std::size_t done = 0; done < size;)
    {
        const std::size_t step = std::min(size - done, kReadStep);
        file.Write(bytes + done, static_cast<unsigned>(step));
        done += step;
    }
}

bool Matches(const XPreferenceRecord& record, unsigned key1, unsigned key2)
{
    return record.m_isSound && record.m_key1 == key1 && record.m_key2 == key2;
}

/// Rewrites a file: the store under one pair of keys is replaced or removed, every other sound record is copied.
class Rewriting
{
public:
    Rewriting(const Text& path, unsigned key1, unsigned key2) : m_replacement(path), m_key1(key1), m_key2(key2)
    {
        ReadFile(path, m_old);
        m_isSound = tev::SplitPreferences(m_old, m_records);
        const auto isLeftOut = [this](const XPreferenceRecord& record) {
            return !record.m_isSound || Matches(record, m_key1, m_key2);
        };
        const auto end = std::remove_if(m_records.begin(), m_records.end(), isLeftOut);
        m_replaces = end != m_records.end();
        m_records.erase(end, m_records.end());
    }

    bool IsSound() const { return m_isSound; }
    /// Whether the old file has a record of these keys, or a damaged one, that is left out.
    bool Replaces() const { return m_replaces; }

    /// Copies the old file to one with ".damaged" appended.
    void KeepDamaged()
    {
        WriteAll(m_replacement.Begin(), m_old.data(), m_old.size());
        m_replacement.Commit(kDamagedSuffix);
    }

    /// Writes the new file: the store, unless it is null, and then the kept records.
    void Write(const unsigned char* store, std::size_t size)
    {
        Bytes head(store == nullptr ? 4 : 4 + kKeysSize);
        tev::StoreLittleEndian(head.data(), static_cast<unsigned>(m_records.size() + (store == nullptr ? 0 : 1)));
        if (store != nullptr)
        {
            tev::StoreLittleEndian(head.data() + 4, m_key1);
            tev::StoreLittleEndian(head.data() + 8, m_key2);
        }
        CXFile& file = m_replacement.Begin();
        WriteAll(file, head.data(), head.size());
        WriteAll(file, store, size);
        for (const XPreferenceRecord& record : m_records)
            WriteAll(file, m_old.data() + record.m_offset, static_cast<std::size_t>(record.m_size));
        m_replacement.Commit();
    }

private:
    tev::FileReplacement m_replacement; // locks before the old file is read
    unsigned m_key1;
    unsigned m_key2;
    Bytes m_old;
    Records m_records;
    bool m_isSound;
    bool m_replaces;
};

} // namespace

bool XListPreferences(const CXTString<wchar_t>& path, std::vector<XPreferenceRecord>& records)
{
    Bytes file;
    if (!ReadFile(path, file))
        CXFileException::Throw(fileNotFound, path);
    return tev::SplitPreferences(file, records);
}

bool XRemovePreference(const CXTString<wchar_t>& path, unsigned key1, unsigned key2)
{
    return HasFileName(path) && tev::ResultOr(false, [&] {
               Rewriting rewriting(path, key1, key2);
               if (!rewriting.IsSound() || !rewriting.Replaces())
                   return false;
               rewriting.Write(nullptr, 0);
               return true;
           });
}

bool CCustomData::SaveToPrefs(const CXTString<wchar_t>& path, unsigned key1, unsigned key2) const
{
    if (!HasFileName(path))
        return false;
    unsigned __int64 size = 0;
    const std::unique_ptr<unsigned char, StoreFree> store(static_cast<unsigned char*>(SerializeToData(size)));
    return store != nullptr && tev::ResultOr(false, [&] {
               Rewriting rewriting(path, key1, key2);
               if (!rewriting.IsSound())
                   rewriting.KeepDamaged();
               rewriting.Write(store.get(), static_cast<std::size_t>(size));
               return true;
           });
}

bool CCustomData::LoadFromPrefs(CXTString<wchar_t> path, unsigned key1, unsigned key2, bool throwWhenDamaged)
{
    if (!throwWhenDamaged)
        return tev::ResultOr(false, [&] { return LoadFromPrefs(path, key1, key2, true); });
    Bytes file;
    if (!ReadFile(path, file))
        return false;
    XPreferenceRecord record;
    CCustomData loaded;
    const bool isSound = tev::FindPreference(file, key1, key2, record, loaded);
    if (!isSound && !record.m_isSound)
        CXFileException::Throw(fileInvalidFile, path);
    if (record.m_isSound)
        TakeFrom(loaded);
    return record.m_isSound;
}
