#include "base/LittleEndian.h"
#include "platform/SystemErrors.h"
#include "zip/engine/OpenSslState.h"
#include "zip/engine/ZipCompressedBytes.h"
#include "zip/engine/ZipEntries.h"
#include "zip/engine/ZipRecords.h"
#include "zip/engine/ZipSources.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tev::platform
{
namespace
{
constexpr std::uint16_t kDescriptorFlag = 0x0008;

/// The fields that both headers have, from the version that is needed to the size of the extra field.
void AppendFields(const ZipHeader& header, std::uint16_t method, std::size_t extraSize, ZipBuffer& bytes)
{
    constexpr std::uint16_t kZip64Version = 45;
    const unsigned encrypted = header.encryption != ZipEncryption::None ? kZipEncryptedFlag : 0;
    AppendLittleEndian(bytes, kZip64Version);
    AppendLittleEndian(bytes, static_cast<std::uint16_t>(encrypted | (header.flags & kDescriptorFlag)));
    AppendLittleEndian(bytes, IsAes(header.encryption) ? kZipAesMethod : method);
    AppendLittleEndian(bytes, header.dosTime);
    AppendLittleEndian(bytes, header.dosDate);
    AppendLittleEndian(bytes, header.checksum.value_or(0));
    AppendLittleEndian(bytes, kZipFull32);
    AppendLittleEndian(bytes, kZipFull32);
    AppendLittleEndian<std::uint16_t>(bytes, 1); // the size of the name
    AppendLittleEndian(bytes, static_cast<std::uint16_t>(extraSize));
}

ZipBuffer ExtraOf(const ZipHeader& header, std::uint16_t method)
{
    ZipBuffer extra;
    AppendLittleEndian(extra, kZip64Field);
    AppendLittleEndian<std::uint16_t>(extra, 16);
    AppendLittleEndian(extra, header.size);
    AppendLittleEndian(extra, header.compressedSize);
    if (!IsAes(header.encryption))
        return extra;
    constexpr std::uint16_t kAesField = 0x9901;
    const auto strength = static_cast<unsigned>(header.encryption) - static_cast<unsigned>(ZipEncryption::Aes128) + 1;
    AppendLittleEndian(extra, kAesField);
    AppendLittleEndian<std::uint16_t>(extra, 7);
    AppendLittleEndian<std::uint16_t>(extra, 1); // the first form
    extra.push_back('A');
    extra.push_back('E');
    extra.push_back(static_cast<unsigned char>(strength));
    AppendLittleEndian(extra, method);
    return extra;
}

/// An archive of one entry, made around the data of an entry of another one: a directory, a local header, the data, and
/// the record of the end.
class SingleEntryBytes final : public ZipBytes
{
public:
    SingleEntryBytes(ZipBytes& archive, std::uint64_t position, const ZipHeader& header)
        : m_archive(archive), m_position(position), m_dataSize(header.compressedSize)
    {
        // Other methods than deflate are told apart from it only where libzip unpacks: without that, it checks nothing.
        constexpr std::uint16_t method = kZipDeflated;
        const ZipBuffer extra = ExtraOf(header, method);
        constexpr std::uint16_t kMadeOnDos = 45;
        AppendLittleEndian(m_head, kZipHeaderMark);
        AppendLittleEndian(m_head, kMadeOnDos);
        AppendFields(header, method, extra.size(), m_head);
        m_head.resize(m_head.size() + 10); // no comment, the first volume, no attributes
        const std::size_t directorySize = m_head.size() + 4 + 1 + extra.size();
        AppendLittleEndian(m_head, static_cast<std::uint32_t>(directorySize));
        m_head.push_back('x');
        m_head.insert(m_head.end(), extra.begin(), extra.end());
        AppendLittleEndian(m_head, kZipLocalMark);
        AppendFields(header, method, extra.size(), m_head);
        m_head.push_back('x');
        m_head.insert(m_head.end(), extra.begin(), extra.end());

        AppendLittleEndian(m_end, kZipEndMark);
        AppendLittleEndian<std::uint32_t>(m_end, 0); // volumes
        AppendLittleEndian<std::uint16_t>(m_end, 1);
        AppendLittleEndian<std::uint16_t>(m_end, 1);
        AppendLittleEndian(m_end, static_cast<std::uint32_t>(directorySize));
        AppendLittleEndian<std::uint32_t>(m_end, 0);
        AppendLittleEndian<std::uint16_t>(m_end, 0);
    }

    std::uint64_t Size() const override { return m_head.size() + m_dataSize + m_end.size(); }

    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        auto* next = static_cast<unsigned char*>(buffer);
        delivered = 0;
        const auto take = [&](const ZipBuffer& part, std::uint64_t at) {
            const std::uint64_t within = offset + delivered - at;
            if (offset + delivered < at || within >= part.size())
                return;
            const std::size_t taken = std::min(count - delivered, part.size() - static_cast<std::size_t>(within));
            std::memcpy(next + delivered, part.data() + within, taken);
            delivered += taken;
        };
        take(m_head, 0);
        const std::uint64_t dataAt = m_head.size();
        const std::uint64_t endAt = dataAt + m_dataSize;
        const std::uint64_t at = offset + delivered;
        if (delivered < count && at >= dataAt && at < endAt)
        {
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count - delivered, endAt - at));
            std::size_t got = 0;
            if (!m_archive.ReadAt(m_position + (at - dataAt), next + delivered, wanted, got))
                return false;
            delivered += got;
            if (got < wanted)
                return true;
        }
        take(m_end, endAt);
        return true;
    }

private:
    ZipBytes& m_archive;
    const std::uint64_t m_position;
    const std::uint64_t m_dataSize;
    ZipBuffer m_head;
    ZipBuffer m_end;
};

struct DiscardArchive
{
    void operator()(zip_t* archive) const { zip_discard(archive); }
};
struct CloseFile
{
    void operator()(zip_file_t* file) const { zip_fclose(file); }
};

class DecryptedBytes final : public ZipCompressedBytes
{
public:
    DecryptedBytes(ZipBytes& archive, std::uint64_t position, const ZipHeader& header)
        : m_source(std::make_unique<SingleEntryBytes>(archive, position, header))
    {
    }

    bool Open(const std::string& password, ZipError& error)
    {
        OwnedZipSource source = m_source.Make();
        zip_error_t failure;
        zip_error_init(&failure);
        m_archive.reset(zip_open_from_source(source.get(), ZIP_RDONLY, &failure));
        if (m_archive == nullptr)
            error = ErrorOf(failure);
        if (m_archive == nullptr && error.failure == ZipFailure::Damaged)
            error = {ZipFailure::System, kNotEnoughMemory};
        zip_error_fini(&failure);
        if (m_archive == nullptr)
            return false;
        static_cast<void>(source.release()); // the archive owns it
        const char* const secret = password.empty() ? nullptr : password.c_str();
        m_file.reset(zip_fopen_index_encrypted(m_archive.get(), 0, ZIP_FL_COMPRESSED, secret));
        if (m_file == nullptr)
            error = ErrorOf(*zip_get_error(m_archive.get()));
        // The archive around the data is valid: libzip has not always a code for lack of memory.
        if (m_file == nullptr && error.failure == ZipFailure::Damaged)
            error = {ZipFailure::System, kNotEnoughMemory};
        return m_file != nullptr;
    }

    bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) override
    {
        const zip_int64_t got = zip_fread(m_file.get(), buffer, count);
        delivered = static_cast<std::size_t>(std::max<zip_int64_t>(got, 0));
        if (got < 0)
            error = ErrorOf(*zip_file_get_error(m_file.get()));
        return got >= 0;
    }

private:
    ZipError ErrorOf(const zip_error_t& failure)
    {
        const int systemFailure = m_source.TakeSystemFailure();
        switch (zip_error_code_zip(&failure))
        {
        case ZIP_ER_OK: // after a failure
        case ZIP_ER_MEMORY:
            return {ZipFailure::System, kNotEnoughMemory};
        case ZIP_ER_NOPASSWD:
            return {ZipFailure::PasswordNeeded, 0};
        case ZIP_ER_WRONGPASSWD:
            return {ZipFailure::WrongPassword, 0};
        case ZIP_ER_COMPNOTSUPP:
        case ZIP_ER_ENCRNOTSUPP:
        case ZIP_ER_OPNOTSUPP:
            return {ZipFailure::Unsupported, 0};
        default:
            return systemFailure != 0 ? ZipError{ZipFailure::System, SystemErrorFromErrno(systemFailure)}
                                      : ZipError{ZipFailure::Damaged, 0};
        }
    }

    ZipArchiveSource m_source;
    std::unique_ptr<zip_t, DiscardArchive> m_archive;
    std::unique_ptr<zip_file_t, CloseFile> m_file; // closed first
};
} // namespace

bool IsZipEncryptionKnown(ZipEncryption encryption)
{
    return zip_encryption_method_supported(LibZipEncryption(encryption), 0) != 0;
}

std::unique_ptr<ZipCompressedBytes> DecryptZipEntry(ZipBytes& archive, std::uint64_t position, const ZipHeader& header,
                                                    const std::string& password, ZipError& error)
{
    if (!IsZipEncryptionKnown(header.encryption)) // libzip loses memory over what it does not know
    {
        error = {ZipFailure::Unsupported, 0};
        return nullptr;
    }
    if (IsAes(header.encryption) && !IsOpenSslReady())
    {
        error = {ZipFailure::System, kNotEnoughMemory};
        return nullptr;
    }
    auto bytes = std::make_unique<DecryptedBytes>(archive, position, header);
    if (!bytes->Open(password, error))
        return nullptr;
    return bytes;
}
} // namespace tev::platform
