#include "zip/engine/PlainZipReader.h"

#include "platform/InputFile.h"
#include "platform/SystemErrors.h"
#include "zip/engine/MinizBytes.h"
#include "zip/engine/ZipCompressedBytes.h"
#include "zip/engine/ZipRecords.h"
#include "zip/engine/ZipVolumes.h"

#include <cerrno>
#include <vector>

namespace tev::platform
{
namespace
{
constexpr std::size_t kBufferSize = 128 * 1024;

class FileBytes final : public ZipBytes
{
public:
    explicit FileBytes(std::shared_ptr<const InputFile> file) : m_file(std::move(file)) {}

    std::uint64_t Size() const override { return m_file->Size(); }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        int error = 0;
        delivered = m_file->ReadAt(offset, buffer, count, error);
        errno = error;
        return error == 0;
    }

private:
    std::shared_ptr<const InputFile> m_file;
};

ZipVolumeOpener VolumesBeside(const std::wstring& path)
{
    return [path](std::uint32_t number) -> std::unique_ptr<ZipBytes> {
        std::shared_ptr<const InputFile> volume = InputFile::Open(ZipVolumePath(path, number).c_str());
        return volume != nullptr ? std::make_unique<FileBytes>(std::move(volume)) : nullptr;
    };
}

class DirectoryReader final : public PlainZipReader
{
public:
    DirectoryReader(std::shared_ptr<const InputFile> file, std::wstring path, ZipContents contents,
                    std::shared_ptr<MinizArchive> miniz, const Password& password)
        : m_file(std::move(file)),
          m_path(std::move(path)),
          m_contents(std::move(contents)),
          m_miniz(std::move(miniz)),
          m_password(password)
    {
    }

    std::unique_ptr<PlainZipReader> Another() const override
    {
        const auto volumes =
            std::make_shared<ZipVolumeBytes>(std::make_unique<FileBytes>(m_file), VolumesBeside(m_path));
        ZipError error;
        if (!volumes->Find(m_contents.directory->LastVolume(), error))
            return nullptr;
        return std::make_unique<DirectoryReader>(m_file, m_path, ZipContents{m_contents.directory, volumes},
                                                 m_miniz != nullptr ? m_miniz->Another() : nullptr, m_password);
    }

    std::uint64_t Count() const override { return m_contents.directory->Count(); }

    bool GetEntry(std::uint64_t index, PlainZipEntry& entry) const override
    {
        ZipHeader header = m_contents.directory->Header(index);
        entry.name = std::move(header.name);
        entry.kind = header.kind;
        entry.isReadable = IsZipEntryReadable(header, !m_password.IsEmpty());
        entry.sharesBytes = m_contents.directory->SharesBytes(index);
        entry.size = header.size;
        entry.compressedSize = header.compressedSize;
        entry.lastWrite = m_contents.directory->Times(index).lastWrite;
        entry.permissions = header.Permissions();
        return header.isSound;
    }

    ZipError Read(std::uint64_t index, const ZipSink& sink) override
    {
        ZipError error;
        const std::unique_ptr<ZipReader> reader = OpenEntry(index, error);
        if (reader == nullptr)
            return error;
        m_buffer.resize(kBufferSize);
        for (;;)
        {
            std::size_t count = 0;
            if (!reader->Read(m_buffer.data(), m_buffer.size(), count, error))
                return error;
            if (count == 0)
                return {};
            if (!sink(m_buffer.data(), count, reader->Consumed()))
                return {ZipFailure::Cancelled, 0};
        }
    }

private:
    std::unique_ptr<ZipReader> OpenEntry(std::uint64_t index, ZipError& error)
    {
        if (m_miniz == nullptr || m_contents.directory->SharesBytes(index))
            return OpenZipEntry(m_contents, index, m_password.Utf8(), error);
        const ZipHeader header = m_contents.directory->Header(index);
        const bool isPlain = header.isSound && (header.method == 0 || header.method == kZipDeflated) &&
                             (header.flags & (kZipEncryptedFlag | kZipPatchedFlag)) == 0;
        if (!isPlain)
            return OpenZipEntry(m_contents, index, m_password.Utf8(), error);
        std::uint64_t position = 0; // miniz does not mind data that reaches into the directory
        if (!FindZipData(m_contents, header, position, error))
            return nullptr;
        std::unique_ptr<ZipCompressedBytes> bytes = m_miniz->OpenEntry(index, error);
        return bytes != nullptr ? UnpackZipEntry(header, std::move(bytes)) : nullptr;
    }

    std::shared_ptr<const InputFile> m_file; ///< the last volume of a split archive
    std::wstring m_path;
    ZipContents m_contents;
    std::shared_ptr<MinizArchive> m_miniz;
    Password m_password;
    std::vector<unsigned char> m_buffer;
};
} // namespace

std::unique_ptr<PlainZipReader> PlainZipReader::Open(const wchar_t* path, const Password& password, ZipError& error,
                                                     By by)
{
    std::shared_ptr<const InputFile> file = InputFile::Open(path);
    if (file == nullptr)
    {
        error = {ZipFailure::System, LastSystemError()};
        return nullptr;
    }
    ZipContents contents;
    if (!OpenZipContents(std::make_unique<FileBytes>(file), VolumesBeside(path), contents, error))
        return nullptr;
    std::shared_ptr<MinizArchive> miniz;
    if (by == By::Miniz && contents.directory->LastVolume() == 0)
        miniz = MinizArchive::Open(file, *contents.directory);
    return std::make_unique<DirectoryReader>(std::move(file), path, std::move(contents), std::move(miniz), password);
}
} // namespace tev::platform
