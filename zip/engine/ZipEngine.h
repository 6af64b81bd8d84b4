#pragma once

#include "zip/Password.h"
#include "zip/engine/ZipFields.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// ZIP archives: listed, read, and rewritten with entries added, deleted and renamed. The caller supplies the bytes and
// receives the new archive. Names are UTF-8 with '/' between components.

namespace tev::platform
{
enum class ZipFailure
{
    None,
    System, ///< reading or writing failed; see the system error code
    NoArchive,
    Damaged,
    Unsupported, ///< a method of compression or encryption, or a layout, that is not known here
    MissingVolume,
    PasswordNeeded,
    WrongPassword,
    WrongPasswordOrDamaged, ///< the short check accepts one wrong password in some hundreds, whose data is then invalid
    Exists,                 ///< the archive has an entry of that name
    Cancelled,
    InvalidArgument
};

struct ZipError
{
    ZipFailure failure = ZipFailure::None;
    unsigned systemError = 0; ///< of ZipFailure::System, else 0
};

/// Sets the error. Returns false.
inline bool Fail(ZipError& error, ZipFailure failure = ZipFailure::Damaged) noexcept
{
    error = {failure, 0};
    return false;
}

/// Bytes that are read at any position. Failures leave the error in errno. One thread at a time.
class ZipBytes
{
public:
    virtual ~ZipBytes() = default;
    ZipBytes(const ZipBytes&) = delete;
    ZipBytes& operator=(const ZipBytes&) = delete;

    virtual std::uint64_t Size() const = 0;
    /// Less than `count`, and true, only at the end.
    [[nodiscard]] virtual bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count,
                                      std::size_t& delivered) = 0;

protected:
    ZipBytes() = default;
};

/// Where a new archive goes. Failures leave the error in errno.
class ZipTarget
{
public:
    virtual ~ZipTarget() = default;
    ZipTarget(const ZipTarget&) = delete;
    ZipTarget& operator=(const ZipTarget&) = delete;

    [[nodiscard]] virtual bool Begin() = 0;
    /// Begins with the first bytes of the archive that is replaced; `advance` learns of them as they are copied, and ends it by
    /// false. False where that cannot be done in a better way than by reading and writing, too: Begin is called then.
    [[nodiscard]] virtual bool BeginWithStart(std::uint64_t, const std::function<bool(std::uint64_t)>&)
    {
        return false;
    }
    /// Bytes behind the end, or over what was written before.
    [[nodiscard]] virtual bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count) = 0;
    /// All is written. Only now is an existing archive replaced.
    [[nodiscard]] virtual bool Commit() = 0;

protected:
    ZipTarget() = default;
};

/// Opens the volume of that number, 0 for the first; null, with the error in errno, where it is missing.
using ZipVolumeOpener = std::function<std::unique_ptr<ZipBytes>(std::uint32_t number)>;

enum class ZipEncryption
{
    None,
    Traditional,
    Aes128,
    Aes192,
    Aes256,
    Unknown
};

constexpr bool IsAes(ZipEncryption encryption) noexcept
{
    return encryption == ZipEncryption::Aes128 || encryption == ZipEncryption::Aes192 ||
           encryption == ZipEncryption::Aes256;
}

constexpr std::uint32_t kZipFolderAttribute = 0x10;

struct ZipEntry
{
    std::string name; ///< from ZipEntryName; untrusted
    ZipEntryKind kind = ZipEntryKind::File;
    bool isNew = false;           ///< added since the archive was opened
    std::uint32_t attributes = 0; ///< 0x1 read-only, 0x10 folder, ..., also of entries from systems with other ones
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    ZipTimes times; ///< the last change always, where the header's time is one
    std::uint32_t checksum = 0;
    std::uint16_t method = 0; ///< 0 stored, 8 deflated, ...
    ZipEncryption encryption = ZipEncryption::None;
    std::optional<unsigned> permissions; ///< the nine bits, of entries made on Unix
};

/// One entry's contents, unpacked and checked.
class ZipReader
{
public:
    virtual ~ZipReader() = default;
    ZipReader(const ZipReader&) = delete;
    ZipReader& operator=(const ZipReader&) = delete;

    /// 0 bytes and true: the end, where size and checksum were right.
    [[nodiscard]] virtual bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) = 0;
    /// The compressed bytes that were really needed so far, which may be fewer than the archive declares.
    virtual std::uint64_t Consumed() const = 0;

protected:
    ZipReader() = default;
};

/// What is to become an entry. The bytes are opened and read when the archive is saved.
struct ZipAddition
{
    std::string name; ///< ends with '/' for a folder, which has no bytes
    std::function<std::unique_ptr<ZipBytes>()> open;
    std::uint64_t size = 0;
    std::int64_t modified = 0;   ///< seconds since 1970-01-01 UTC
    unsigned permissions = 0644; ///< the nine bits of Unix
    int level = -1;              ///< 0 stores, 1 is the fastest, 9 the smallest, -1 stands for 6
    ZipEncryption encryption = ZipEncryption::None;
    Password password;
};

/// An archive. Indexes run from 0 over the entries that are there; deleting moves those behind. One thread at a time; two
/// archives are independent of each other.
class ZipEngine
{
public:
    /// Called with the number of bytes read of entries so far, at the end with SaveSize(); false ends the operation.
    using Progress = std::function<bool(std::uint64_t)>;

    /// Opens an archive, or a split one by its last volume. `isReadOnly` is set for archives that saving would not keep: a
    /// split one, one behind a program, one that libzip cannot rewrite or would take too long over. Null with the error on
    /// failure.
    static std::unique_ptr<ZipEngine> Open(std::unique_ptr<ZipBytes> last, const ZipVolumeOpener& openVolume,
                                           bool& isReadOnly, ZipError& error);
    /// Null when memory ran out.
    static std::unique_ptr<ZipEngine> Create();

    virtual ~ZipEngine() = default;
    ZipEngine(const ZipEngine&) = delete;
    ZipEngine& operator=(const ZipEngine&) = delete;

    virtual std::uint64_t Count() const = 0;
    virtual std::string Name(std::uint64_t index) const = 0;
    virtual ZipEntryKind Kind(std::uint64_t index) const = 0;
    /// Everything about an entry but its contents.
    [[nodiscard]] virtual bool Describe(std::uint64_t index, ZipEntry& entry, ZipError& error) = 0;
    /// Null on failure. The reader must be destroyed before the archive.
    virtual std::unique_ptr<ZipReader> OpenEntry(std::uint64_t index, const std::string& password, ZipError& error) = 0;

    // Changes, which the saved archive will have.

    [[nodiscard]] virtual bool Add(ZipAddition addition, ZipError& error) = 0;
    [[nodiscard]] virtual bool Delete(std::uint64_t index, ZipError& error) = 0;
    /// A folder's name keeps its '/' at the end.
    [[nodiscard]] virtual bool Rename(std::uint64_t index, const std::string& name, ZipError& error) = 0;
    virtual bool IsChanged() const = 0;
    /// The bytes of entries that saving reads, as far as that is known.
    virtual std::uint64_t SaveSize() const = 0;

    /// Writes the archive. Nothing but the destructor may be called afterwards; without Commit nothing is to be replaced.
    [[nodiscard]] virtual bool Save(ZipTarget& target, const Progress& progress, ZipError& error) = 0;

protected:
    ZipEngine() = default;
};
} // namespace tev::platform
