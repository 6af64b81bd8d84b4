#include "zip/engine/ZipEngine.h"

#include "platform/SystemErrors.h"
#include "zip/engine/OpenSslState.h"
#include "zip/engine/ZipDeflation.h"
#include "zip/engine/ZipDirectory.h"
#include "zip/engine/ZipEntries.h"
#include "zip/engine/ZipFields.h"
#include "zip/engine/ZipRecords.h"
#include "zip/engine/ZipSources.h"
#include "zip/engine/ZipVolumes.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <numeric>
#include <utility>
#include <vector>

#include <zlib.h>

namespace tev::platform
{
namespace
{
constexpr std::uint32_t kUnixFileMode = 0100000u << 16;
constexpr std::uint32_t kUnixFolderMode = 040000u << 16 | kZipFolderAttribute;
constexpr int kDefaultLevel = 6;                  // most of what 9 saves, in a third of its time
constexpr std::int64_t kFirstDosTime = 315619200; // a day inside the range at both ends, whatever the time zone
constexpr std::int64_t kLastDosTime = 4354732799;

ZipFailure FailureOf(int code)
{
    switch (code)
    {
    case ZIP_ER_NOZIP:
        return ZipFailure::NoArchive;
    case ZIP_ER_MULTIDISK:
    case ZIP_ER_COMPNOTSUPP:
    case ZIP_ER_ENCRNOTSUPP:
    case ZIP_ER_OPNOTSUPP:
        return ZipFailure::Unsupported;
    case ZIP_ER_NOPASSWD:
        return ZipFailure::PasswordNeeded;
    case ZIP_ER_WRONGPASSWD:
        return ZipFailure::WrongPassword;
    case ZIP_ER_EXISTS:
        return ZipFailure::Exists;
    case ZIP_ER_CANCELLED:
        return ZipFailure::Cancelled;
    case ZIP_ER_INVAL:
    case ZIP_ER_NOENT:
    case ZIP_ER_DELETED:
        return ZipFailure::InvalidArgument;
    default:
        return ZipFailure::Damaged; // failures of the system are asked of the source itself
    }
}

/// After a failure. libzip gives some of those for lack of memory no code at all.
ZipError ErrorOf(const zip_error_t* error, int systemFailure)
{
    const int code = zip_error_code_zip(error);
    const bool isOutOfMemory =
        code == ZIP_ER_MEMORY || (code == ZIP_ER_ZLIB && zip_error_code_system(error) == Z_MEM_ERROR);
    if (systemFailure != 0 && !isOutOfMemory)
        return {ZipFailure::System, SystemErrorFromErrno(systemFailure)};
    // Of the key of AES it says no more than that it could not be made.
    if (isOutOfMemory || code == ZIP_ER_INTERNAL || code == ZIP_ER_OK)
        return {ZipFailure::System, kNotEnoughMemory};
    return {FailureOf(code), 0};
}

std::int64_t DosTime(const ZipAddition& addition)
{
    return std::clamp(addition.modified, kFirstDosTime, kLastDosTime);
}

std::uint32_t AttributesOf(const ZipAddition& addition, bool isFolder)
{
    return (isFolder ? kUnixFolderMode : kUnixFileMode) | (addition.permissions & kZipPermissions) << 16;
}

/// What was added and not saved is read where it comes from.
class AdditionReader final : public ZipReader
{
public:
    explicit AdditionReader(std::unique_ptr<ZipBytes> bytes) : m_bytes(std::move(bytes)) {}

    bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) override
    {
        if (!m_bytes->ReadAt(m_position, buffer, count, delivered))
        {
            error = {ZipFailure::System, LastSystemError()};
            return false;
        }
        m_position += delivered;
        return true;
    }

    std::uint64_t Consumed() const override { return m_position; }

private:
    std::unique_ptr<ZipBytes> m_bytes;
    std::uint64_t m_position = 0;
};

class LibZipEngine final : public ZipEngine
{
public:
    /// libzip reads the archive from `bytes`, which are null for one that is not changed, and for one that does not exist.
    LibZipEngine(ZipContents contents, std::unique_ptr<ZipBytes> bytes)
        : m_contents(std::move(contents)), m_source(std::move(bytes))
    {
        const std::uint64_t count = m_contents.directory != nullptr ? m_contents.directory->Count() : 0;
        m_slots.resize(static_cast<std::size_t>(count));
        std::iota(m_slots.begin(), m_slots.end(), zip_uint64_t{0});
    }
    ~LibZipEngine() override
    {
        if (m_archive != nullptr)
            zip_discard(m_archive);
    }

    bool OpenArchive(int flags, ZipError& error)
    {
        OwnedZipSource source = m_source.Make();
        zip_error_t failure;
        zip_error_init(&failure);
        m_archive = zip_open_from_source(source.get(), flags, &failure);
        error = m_archive != nullptr ? ZipError() : ErrorOf(&failure, m_source.TakeSystemFailure());
        zip_error_fini(&failure);
        if (m_archive == nullptr)
            return false;
        static_cast<void>(source.release()); // the archive's now
        if (static_cast<std::uint64_t>(zip_get_num_entries(m_archive, 0)) == m_slots.size())
            return true;
        error = {ZipFailure::Damaged, 0};
        return false;
    }

    std::uint64_t Count() const override { return m_slots.size(); }
    std::string Name(std::uint64_t index) const override
    {
        const zip_uint64_t slot = m_slots[index];
        const auto renamed = m_newNames.find(slot);
        if (renamed != m_newNames.end())
            return renamed->second;
        return IsNew(slot) ? ZipSlotName(m_archive, slot) : m_contents.directory->Name(slot);
    }

    ZipEntryKind Kind(std::uint64_t index) const override
    {
        const zip_uint64_t slot = m_slots[index];
        return IsNew(slot) ? ZipSlotKind(m_archive, slot) : m_contents.directory->Kind(slot);
    }

    bool Describe(std::uint64_t index, ZipEntry& entry, ZipError& error) override
    {
        const zip_uint64_t slot = m_slots[index];
        const auto addition = m_additions.find(slot);
        if (addition == m_additions.end())
        {
            entry = DescribeZipHeader(m_contents, slot);
            const auto renamed = m_newNames.find(slot);
            if (renamed != m_newNames.end())
                entry.name = renamed->second;
            return true;
        }
        if (!DescribeZipSlot(m_archive, slot, entry))
            return Failed(error);
        entry.size = addition->second.size;
        entry.compressedSize = 0;
        entry.encryption = addition->second.encryption;
        return true;
    }

    std::unique_ptr<ZipReader> OpenEntry(std::uint64_t index, const std::string& password, ZipError& error) override
    {
        const zip_uint64_t slot = m_slots[index];
        const auto addition = m_additions.find(slot);
        if (addition != m_additions.end())
            return OpenAddition(addition->second, error);
        return OpenZipEntry(m_contents, slot, password, error);
    }

    bool Add(ZipAddition addition, ZipError& error) override
    {
        const bool isFolder = !addition.name.empty() && addition.name.back() == '/';
        addition.level = addition.level < 0 ? kDefaultLevel : addition.level;
        // Nothing after libzip has the entry may run out of memory but libzip itself.
        if (m_slots.size() == m_slots.capacity())
            m_slots.reserve(2 * m_slots.size() + 16);
        std::map<zip_uint64_t, ZipAddition> noted;
        noted.emplace(0, addition);
        auto note = noted.extract(0);
        note.mapped().password.Clear();
        const zip_int64_t slot =
            isFolder ? zip_dir_add(m_archive, addition.name.c_str(), ZIP_FL_ENC_UTF_8) : AddSource(addition);
        if (slot < 0)
            return Failed(error);
        const auto index = static_cast<zip_uint64_t>(slot);
        if (!SetDetails(index, addition, isFolder))
        {
            Failed(error);
            m_isSpoiled = zip_delete(m_archive, index) != 0;
            m_sources.erase(index);
            return false;
        }
        m_slots.push_back(index);
        note.key() = index;
        m_additions.insert(std::move(note));
        return true;
    }

    bool Delete(std::uint64_t index, ZipError& error) override
    {
        const zip_uint64_t slot = m_slots[index];
        m_sources.erase(slot);
        if (zip_delete(m_archive, slot) != 0)
            return Failed(error);
        m_additions.erase(slot);
        m_slots.erase(m_slots.begin() + static_cast<std::ptrdiff_t>(index));
        m_isChanged = true;
        return true;
    }

    bool Rename(std::uint64_t index, const std::string& name, ZipError& error) override
    {
        std::string& newName = m_newNames.emplace(m_slots[index], Name(index)).first->second;
        std::string given = name;
        if (zip_file_rename(m_archive, m_slots[index], name.c_str(), ZIP_FL_ENC_UTF_8) != 0)
            return Failed(error);
        newName.swap(given);
        m_isChanged = true;
        return true;
    }

    bool IsChanged() const override { return m_isChanged || !m_additions.empty(); }

    std::uint64_t SaveSize() const override
    {
        std::uint64_t total = 0;
        for (const zip_uint64_t slot : m_slots)
        {
            zip_stat_t status;
            const auto addition = m_additions.find(slot);
            if (addition != m_additions.end())
                total += addition->second.size;
            else if (zip_stat_index(m_archive, slot, 0, &status) == 0)
                total += status.comp_size;
        }
        return total;
    }

    bool Save(ZipTarget& target, const Progress& progress, ZipError& error) override
    {
        if (m_isSpoiled)
        {
            error = {ZipFailure::System, kNotEnoughMemory};
            return false;
        }
        if (HasDamagedEntry())
        {
            error = {ZipFailure::Damaged, 0};
            return false;
        }
        if (HasNewAes() && !IsOpenSslReady())
        {
            error = {ZipFailure::System, kNotEnoughMemory};
            return false;
        }
        ZipSaving saving(progress, SaveSize());
        m_source.SetTarget(&target);
        m_source.SetSaving(&saving);
        for (auto& [slot, source] : m_sources)
            source->SetSaving(&saving);
        m_deflation.Begin(saving, DeflatedEntries());
        // Where the progress ends its thread, libzip's data is left as it is, never used and never freed.
        zip_t* const archive = std::exchange(m_archive, nullptr);
        const bool isSaved = zip_close(archive) == 0;
        if (!isSaved)
        {
            m_archive = archive;
            error = ErrorOf(zip_get_error(m_archive), TakeSystemFailure());
        }
        m_source.SetSaving(nullptr);
        m_source.SetTarget(nullptr);
        for (auto& [slot, source] : m_sources)
        {
            if (!isSaved)
                source->SetSaving(nullptr);
        }
        m_sources.clear();
        m_deflation.End();
        saving.RethrowFailure();
        return isSaved;
    }

private:
    bool IsNew(zip_uint64_t slot) const { return m_additions.count(slot) != 0; }

    /// One that libzip could not copy.
    bool HasDamagedEntry() const
    {
        return std::any_of(m_slots.begin(), m_slots.end(), [this](zip_uint64_t slot) {
            return !IsNew(slot) && !m_contents.directory->Header(slot).isSound;
        });
    }

    /// In the order in which libzip writes them.
    std::vector<ZipDeflation::Entry> DeflatedEntries() const
    {
        std::vector<ZipDeflation::Entry> entries;
        for (const auto& [slot, addition] : m_additions)
        {
            if (IsDeflatedHere(addition))
                entries.push_back({slot, &addition});
        }
        return entries;
    }

    static bool IsDeflatedHere(const ZipAddition& addition)
    {
        return addition.open && addition.level != 0 && addition.encryption == ZipEncryption::None;
    }

    bool HasNewAes() const
    {
        return std::any_of(m_additions.begin(), m_additions.end(),
                           [](const auto& addition) { return IsAes(addition.second.encryption); });
    }

    bool Failed(ZipError& error)
    {
        error = ErrorOf(zip_get_error(m_archive), m_source.TakeSystemFailure());
        zip_error_clear(m_archive);
        return false;
    }

    int TakeSystemFailure()
    {
        int failure = m_source.TakeSystemFailure();
        for (const auto& [slot, source] : m_sources)
            failure = failure != 0 ? failure : source->TakeSystemFailure();
        return failure;
    }

    static std::unique_ptr<ZipReader> OpenAddition(const ZipAddition& addition, ZipError& error)
    {
        std::unique_ptr<ZipBytes> bytes = addition.open ? addition.open() : nullptr;
        if (bytes != nullptr)
            return std::make_unique<AdditionReader>(std::move(bytes));
        error =
            addition.open ? ZipError{ZipFailure::System, LastSystemError()} : ZipError{ZipFailure::InvalidArgument, 0};
        return nullptr;
    }

    zip_int64_t AddSource(const ZipAddition& addition)
    {
        std::map<zip_uint64_t, ZipSource*> noted;
        noted.emplace(0, nullptr);
        auto note = noted.extract(0);
        std::unique_ptr<ZipSource> object;
        if (IsDeflatedHere(addition))
            object = std::make_unique<ZipDeflatedSource>(addition, DosTime(addition), m_deflation);
        else
            object = std::make_unique<ZipAdditionSource>(addition, DosTime(addition));
        OwnedZipSource source = object->Make();
        note.mapped() = object.release(); // the source frees it
        const zip_int64_t slot = zip_file_add(m_archive, addition.name.c_str(), source.get(), ZIP_FL_ENC_UTF_8);
        if (slot < 0)
            return -1;
        static_cast<void>(source.release());
        note.key() = static_cast<zip_uint64_t>(slot);
        note.mapped()->SetSlot(note.key());
        m_sources.insert(std::move(note));
        return slot;
    }

    bool SetDetails(zip_uint64_t slot, const ZipAddition& addition, bool isFolder)
    {
        const bool isStored = isFolder || addition.level == 0;
        const auto level = static_cast<zip_uint32_t>(addition.level);
        return zip_file_set_mtime(m_archive, slot, DosTime(addition), 0) == 0 &&
               SetTimeStamp(slot, addition.modified) &&
               zip_file_set_external_attributes(m_archive, slot, 0, ZIP_OPSYS_UNIX, AttributesOf(addition, isFolder)) ==
                   0 &&
               zip_set_file_compression(m_archive, slot, isStored ? ZIP_CM_STORE : ZIP_CM_DEFLATE,
                                        isStored ? 0 : level) == 0 &&
               (isFolder || addition.encryption == ZipEncryption::None ||
                zip_file_set_encryption(m_archive, slot, LibZipEncryption(addition.encryption),
                                        addition.password.Utf8().c_str()) == 0);
    }

    /// The time to the second and in UTC, which the archive's own does not have.
    bool SetTimeStamp(zip_uint64_t slot, std::int64_t modified)
    {
        const auto seconds = static_cast<std::int32_t>(modified);
        if (seconds != modified)
            return true;
        zip_uint8_t field[5] = {1};
        for (unsigned i = 0; i < 4; ++i)
            field[1 + i] = static_cast<zip_uint8_t>(static_cast<std::uint32_t>(seconds) >> 8 * i);
        return zip_file_extra_field_set(m_archive, slot, kZipTimestampField, ZIP_EXTRA_FIELD_NEW, field, sizeof field,
                                        ZIP_FL_LOCAL | ZIP_FL_CENTRAL) == 0;
    }

    ZipContents m_contents; ///< of the archive that was opened; empty for a new one
    ZipDeflation m_deflation;
    ZipArchiveSource m_source;
    zip_t* m_archive = nullptr;        ///< null for an archive that is not changed
    std::vector<zip_uint64_t> m_slots; ///< libzip's numbers of the entries that are there
    std::map<zip_uint64_t, std::string> m_newNames;
    std::map<zip_uint64_t, ZipAddition> m_additions;
    std::map<zip_uint64_t, ZipSource*> m_sources; ///< of the additions; libzip's, and gone once it has closed
    bool m_isChanged = false;
    bool m_isSpoiled = false; ///< an addition that failed could not be taken back
};

/// The archive with a directory that libzip reads as we do.
std::unique_ptr<ZipBytes> BytesForLibZip(const ZipContents& contents)
{
    const ZipDirectory& directory = *contents.directory;
    return directory.IsPlain() ? WithDirectory(contents.bytes, contents.bytes->Size(), {})
                               : WithDirectory(contents.bytes, directory.Start(), directory.Rewritten());
}
} // namespace

std::unique_ptr<ZipEngine> ZipEngine::Open(std::unique_ptr<ZipBytes> last, const ZipVolumeOpener& openVolume,
                                           bool& isReadOnly, ZipError& error)
{
    ZipContents contents;
    if (!OpenZipContents(std::move(last), openVolume, contents, error))
        return nullptr;
    isReadOnly = isReadOnly || contents.directory->LastVolume() != 0 || contents.directory->HasPrefix() ||
                 contents.directory->FloodsLibZip();
    // libzip has not always a code for lack of memory: only what it refuses twice, it does not read.
    for (unsigned attempt = 0; attempt < 2 && !isReadOnly; ++attempt)
    {
        auto engine = std::make_unique<LibZipEngine>(contents, BytesForLibZip(contents));
        if (engine->OpenArchive(0, error))
            return engine;
        if (error.failure == ZipFailure::System)
            return nullptr;
    }
    isReadOnly = true;
    return std::make_unique<LibZipEngine>(std::move(contents), nullptr);
}

std::unique_ptr<ZipEngine> ZipEngine::Create()
{
    ZipError error;
    auto engine = std::make_unique<LibZipEngine>(ZipContents(), nullptr);
    if (!engine->OpenArchive(ZIP_CREATE | ZIP_TRUNCATE, error))
        return nullptr;
    return engine;
}
} // namespace tev::platform
