#include "zip/engine/EngineZipReader.h"

#include "zip/engine/InputFile.h"
#include "zip/engine/ZipEngine.h"
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

ZipReadResult ResultOf(const ZipError& error)
{
    switch (error.failure)
    {
    case ZipFailure::System:
        return ZipReadResult::SourceFailed;
    case ZipFailure::Unsupported:
        return ZipReadResult::Unsupported;
    case ZipFailure::PasswordNeeded:
    case ZipFailure::WrongPassword:
    case ZipFailure::WrongPasswordOrDamaged:
        return ZipReadResult::WrongPassword;
    default:
        return ZipReadResult::Damaged;
    }
}

class EngineZipReader final : public PlainZipReader
{
public:
    static std::unique_ptr<PlainZipReader> Open(std::shared_ptr<const InputFile> file, const std::wstring& path,
                                                const std::string& password)
    {
        const auto openVolume = [path](std::uint32_t number) -> std::unique_ptr<ZipBytes> {
            std::shared_ptr<const InputFile> volume = InputFile::Open(ZipVolumePath(path, number).c_str());
            return volume != nullptr ? std::make_unique<FileBytes>(std::move(volume)) : nullptr;
        };
        ZipError error;
        bool isReadOnly = false;
        std::unique_ptr<ZipBytes> bytes = std::make_unique<FileBytes>(file);
        if (!PrepareZip(bytes, openVolume, isReadOnly, error))
            return nullptr;
        const std::uint64_t size = bytes->Size();
        std::unique_ptr<ZipEngine> engine = ZipEngine::Open(std::move(bytes), error);
        if (engine == nullptr)
            return nullptr;
        return std::make_unique<EngineZipReader>(std::move(file), size, path, std::move(engine), password);
    }

    EngineZipReader(std::shared_ptr<const InputFile> file, std::uint64_t size, std::wstring path,
                    std::unique_ptr<ZipEngine> engine, std::string password)
        : m_file(std::move(file)),
          m_size(size),
          m_path(std::move(path)),
          m_engine(std::move(engine)),
          m_password(std::move(password))
    {
    }

    std::unique_ptr<PlainZipReader> Another() const override { return Open(m_file, m_path, m_password); }

    std::uint64_t Size() const override { return m_size; }
    std::uint64_t Count() const override { return m_engine->Count(); }

    bool GetEntry(std::uint64_t index, PlainZipEntry& entry) override
    {
        ZipEntry found;
        ZipError error;
        if (index >= Count() || !m_engine->Describe(index, found, error))
            return false;
        entry.name = std::move(found.name);
        entry.kind = found.kind;
        entry.isEncrypted = found.encryption != ZipEncryption::None;
        entry.size = found.size;
        entry.compressedSize = found.compressedSize;
        entry.offset.reset();
        entry.lastWrite = found.times.lastWrite;
        return true;
    }

    ZipReadResult Read(std::uint64_t index, const ZipSink& sink) override
    {
        ZipEntry entry;
        ZipError error;
        if (index >= Count())
            return ZipReadResult::Damaged;
        if (!m_engine->Describe(index, entry, error))
            return ResultOf(error);
        const std::unique_ptr<ZipReader> reader = m_engine->OpenEntry(index, m_password, error);
        if (reader == nullptr)
            return ResultOf(error);
        m_buffer.resize(kBufferSize);
        for (std::uint64_t left = entry.size;;)
        {
            std::size_t count = 0;
            if (!reader->Read(m_buffer.data(), m_buffer.size(), count, error))
                return ResultOf(error);
            if (count == 0)
                return left == 0 ? ZipReadResult::Done : ZipReadResult::Damaged;
            if (count > left)
                return ZipReadResult::Damaged;
            left -= count;
            if (!sink(m_buffer.data(), count))
                return ZipReadResult::Stopped;
        }
    }

private:
    std::shared_ptr<const InputFile> m_file; ///< the last volume of a split archive
    std::uint64_t m_size;
    std::wstring m_path;
    std::unique_ptr<ZipEngine> m_engine;
    std::string m_password;
    std::vector<char> m_buffer;
};
} // namespace

std::unique_ptr<PlainZipReader> OpenWithEngine(const wchar_t* path, const std::string& password)
{
    std::shared_ptr<const InputFile> file = InputFile::Open(path);
    return file == nullptr ? nullptr : EngineZipReader::Open(std::move(file), path, password);
}
} // namespace tev::platform
