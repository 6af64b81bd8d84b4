#pragma once

#include "files/FileReplacement.h"
#include "platform/FileInformation.h"
#include "platform/FileSystem.h"
#include "zip/engine/ZipEngine.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The files that the engine for archives reads and replaces. One thread at a time.

namespace tev
{
/// Identifies a file and its state, to find out whether it was changed or replaced.
struct FileStamp
{
    platform::FileInformation m_information;
    std::uint64_t m_size = 0;
    /// Of the file's last bytes: a changed archive has another directory, whatever its time.
    std::uint64_t m_tailHash = 0;

    /// Nothing, with the error in errno, when the file cannot be read.
    static std::optional<FileStamp> Take(const wchar_t* path);
    bool IsSameState(const FileStamp& other) const noexcept;
    bool IsSameFile(const platform::FileInformation& other) const noexcept;
};

/// A file that is read.
class ZipFileBytes final : public platform::ZipBytes
{
public:
    /// Null, with the error in errno, when it is not a regular file or cannot be opened.
    static std::unique_ptr<ZipFileBytes> Open(const wchar_t* path);
    ~ZipFileBytes() override;

    std::uint64_t Size() const override { return m_size; }
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override;
    platform::FileHandle Handle() const noexcept { return m_handle; }

private:
    ZipFileBytes() = default;

    platform::FileHandle m_handle = nullptr;
    std::uint64_t m_size = 0;
    std::uint64_t m_position = 0;
};

/// A file that is replaced by a new archive, unless it was changed since it was opened.
class ZipFileTarget final : public platform::ZipTarget
{
public:
    /// Without a stamp any existing file is replaced, or none may be there where `expectsNone` is set.
    ZipFileTarget(const wchar_t* path, const std::optional<FileStamp>& expected, bool expectsNone)
        : m_path(path), m_expected(expected), m_expectsNone(expectsNone)
    {
    }

    bool Begin() override;
    bool BeginWithStart(std::uint64_t size, const std::function<bool(std::uint64_t)>& advance) override;
    bool WriteAt(std::uint64_t offset, const void* bytes, std::size_t count) override;
    bool Commit() override;

    /// Whether an operation failed because the file was changed.
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
    bool m_expectsNone;
    std::optional<FileReplacement> m_replacement;
    CXFile* m_file = nullptr;
    std::vector<char> m_buffer; ///< to be written at m_bufferStart
    std::uint64_t m_bufferStart = 0;
    std::uint64_t m_filePosition = 0;
    bool m_isReplacedByOthers = false;
};
} // namespace tev
