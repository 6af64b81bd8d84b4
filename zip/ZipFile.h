#pragma once

#include "files/FileReplacement.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "zip/engine/ZipEngine.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Files as the engine for archives reads and replaces them. One thread at a time.

namespace tev
{
/// By what a file is known again, and its being changed is found out.
struct FileStamp
{
    platform::FileInformation m_information;
    std::uint64_t m_size = 0;
    /// Of the file's last bytes: an archive that is changed has another directory, whatever its time.
    std::uint64_t m_tailHash = 0;

    /// Nothing, with the error in errno, where it cannot be had.
    static std::optional<FileStamp> Take(const wchar_t* path);
    bool IsSameState(const FileStamp& other) const noexcept;
    bool IsSameFile(const platform::FileInformation& other) const noexcept;
};

/// A file that is read.
class ZipFileBytes final : public platform::ZipBytes
{
public:
    /// Null, with the error in errno, when it is no ordinary file or cannot be opened.
    static std::unique_ptr<ZipFileBytes> Open(const wchar_t* path);
    ~ZipFileBytes() override;

    std::uint64_t Size() const override { return m_size; }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override;

private:
    ZipFileBytes(platform::FileHandle handle, std::uint64_t size) : m_handle(handle), m_size(size) {}

    platform::FileHandle m_handle;
    std::uint64_t m_size;
    std::uint64_t m_position = 0;
};

/// A file that is replaced by a new archive, if it still is what it was.
class ZipFileTarget final : public platform::ZipTarget
{
public:
    /// Without a stamp whatever stands there is replaced.
    ZipFileTarget(const wchar_t* path, const std::optional<FileStamp>& expected) : m_path(path), m_expected(expected) {}

    bool Begin() override;
    bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count) override;
    bool Commit() override;

    /// Whether that is why an operation failed.
    bool IsReplacedByOthers() const noexcept { return m_isReplacedByOthers; }

    /// Whether a new file could be written there; false with the error in errno.
    [[nodiscard]] static bool IsWritable(const wchar_t* path);

private:
    template <class Work>
    static bool Attempt(Work&& work);
    bool IsUnchanged();
    void WriteBuffered();

    std::wstring m_path;
    std::optional<FileStamp> m_expected;
    std::optional<FileReplacement> m_replacement;
    CXFile* m_file = nullptr;
    std::vector<char> m_buffer; ///< what is to be written from m_bufferStart on
    std::uint64_t m_bufferStart = 0;
    std::uint64_t m_filePosition = 0;
    bool m_isReplacedByOthers = false;
};
} // namespace tev
