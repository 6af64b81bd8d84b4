#pragma once

#include "zip/engine/ZipEngine.h"

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <zip.h>

// Bytes and targets in the form in which libzip takes them.

namespace tev::platform
{
/// Owns a source until it is handed over.
struct FreeZipSource
{
    void operator()(zip_source_t* source) const { zip_source_free(source); }
};
using OwnedZipSource = std::unique_ptr<zip_source_t, FreeZipSource>;

/// Counts what is read while an archive is saved, and says when that is to end. What the progress throws ends it, too, and
/// is kept, because nothing may be thrown through libzip.
class ZipSaving
{
public:
    ZipSaving(const ZipEngine::Progress& progress, std::uint64_t total) : m_progress(progress), m_total(total) {}
    /// False to cancel.
    bool Advance(std::uint64_t count);
    /// All is written: reports the total, which what was read need not add up to. False to cancel.
    bool Finish();
    void RethrowFailure() const;

private:
    bool Report();

    const ZipEngine::Progress& m_progress;
    std::uint64_t m_total;
    std::uint64_t m_processed = 0;
    bool m_isCancelled = false;
    std::exception_ptr m_failure;
};

/// What libzip asks of a source, answered from ZipBytes.
class ZipSource
{
public:
    ZipSource();
    virtual ~ZipSource();
    ZipSource(const ZipSource&) = delete;
    ZipSource& operator=(const ZipSource&) = delete;

    /// The source that calls this object; libzip's `zip_source_free` ends it, which is passed on to Freed().
    OwnedZipSource Make();
    /// The errno of the first failure to read or write since the last call; 0 when there was none.
    int TakeSystemFailure() { return std::exchange(m_systemFailure, 0); }
    void SetSaving(ZipSaving* saving) { m_saving = saving; }
    /// libzip's number of the entry that the source was added as.
    virtual void SetSlot(std::uint64_t) noexcept {}

protected:
    virtual zip_int64_t Supported() const = 0;
    virtual zip_int64_t Open() = 0;
    virtual void Close() = 0;
    virtual zip_int64_t Stat(zip_stat_t& status) = 0;
    virtual void Freed() {}
    virtual zip_int64_t Read(void* buffer, zip_uint64_t count);
    virtual zip_int64_t Attributes(zip_file_attributes_t& attributes);
    virtual zip_int64_t Write(const void* bytes, zip_uint64_t count, zip_source_cmd_t command);

    zip_int64_t Fail(int zipError, int errnoValue = 0);
    /// Fails with what errno says.
    zip_int64_t FailSystem(int zipError);

    ZipBytes* m_bytes = nullptr;   ///< what Read reads
    ZipSaving* m_saving = nullptr; ///< while the archive is saved
    zip_error_t m_error;

private:
    static zip_int64_t Answer(void* object, void* data, zip_uint64_t size, zip_source_cmd_t command);
    zip_int64_t ReadThroughBlock(char* buffer, std::size_t count);

    int m_systemFailure = 0;
    std::uint64_t m_position = 0;
    std::vector<char> m_block; ///< bytes from m_blockStart on: libzip asks for little at a time
    std::uint64_t m_blockStart = 0;
};

/// The archive itself, of which the new one is made.
class ZipArchiveSource final : public ZipSource
{
public:
    /// Without bytes there is no archive yet.
    explicit ZipArchiveSource(std::unique_ptr<ZipBytes> bytes);
    void SetTarget(ZipTarget* target) { m_target = target; }

protected:
    zip_int64_t Supported() const override;
    zip_int64_t Open() override;
    void Close() override {}
    zip_int64_t Stat(zip_stat_t& status) override;
    zip_int64_t Write(const void* bytes, zip_uint64_t count, zip_source_cmd_t command) override;

private:
    zip_int64_t BeginWithStart(std::uint64_t size);
    zip_int64_t Append(const void* bytes, zip_uint64_t count);
    const void* DropAesChecksum(void* header, std::size_t size);
    zip_int64_t WriteEmptyArchive();
    zip_int64_t Commit();

    std::unique_ptr<ZipBytes> m_archive;
    ZipTarget* m_target = nullptr;
    std::uint64_t m_writePosition = 0;
    std::uint64_t m_writtenSize = 0;
    bool m_isCompleted = false; ///< a local header is written again, now that its entry's data is known
    std::map<std::uint64_t, std::uint32_t> m_aesEntries; ///< where their headers are, and the checksums that they lose
};

/// What is added as it is, or is encrypted. Belongs to libzip.
class ZipAdditionSource final : public ZipSource
{
public:
    /// `modified` is a time that the archive's own form of times can hold.
    ZipAdditionSource(const ZipAddition& addition, std::int64_t modified)
        : m_open(addition.open), m_size(addition.size), m_modified(modified)
    {
    }

protected:
    zip_int64_t Supported() const override;
    zip_int64_t Open() override;
    void Close() override;
    zip_int64_t Stat(zip_stat_t& status) override;
    void Freed() override { delete this; }

private:
    std::function<std::unique_ptr<ZipBytes>()> m_open;
    std::uint64_t m_size;
    std::int64_t m_modified;
    std::unique_ptr<ZipBytes> m_opened;
};
} // namespace tev::platform
