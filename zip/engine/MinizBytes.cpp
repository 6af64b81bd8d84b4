#include "zip/engine/MinizBytes.h"

#ifdef TEVTOOLS_MINIZ

#include "platform/SystemErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <miniz.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kWindowSize = 64 * 1024;

/// Buffers reads of miniz, which are small.
class Window
{
public:
    explicit Window(std::shared_ptr<const InputFile> file) : m_file(std::move(file)) {}

    const InputFile& File() const { return *m_file; }
    const std::shared_ptr<const InputFile>& SharedFile() const { return m_file; }
    /// The errno of the first failure; 0 when there was none.
    int Error() const { return m_error; }
    void SetError(int error) { m_error = m_error != 0 ? m_error : error; }

    std::size_t Read(std::uint64_t position, void* bytes, std::size_t count)
    {
        if (count > kWindowSize)
            return ReadFile(position, bytes, count);
        if (position < m_start || position - m_start > m_size || m_size - (position - m_start) < count)
        {
            m_bytes.resize(kWindowSize);
            m_start = position;
            m_size = ReadFile(position, m_bytes.data(), kWindowSize);
        }
        const std::size_t at = static_cast<std::size_t>(position - m_start);
        const std::size_t delivered = std::min(count, m_size - at);
        std::memcpy(bytes, m_bytes.data() + at, delivered);
        return delivered;
    }

private:
    std::size_t ReadFile(std::uint64_t position, void* bytes, std::size_t count)
    {
        int error = 0;
        const std::size_t delivered = m_file->ReadAt(position, bytes, count, error);
        SetError(error);
        return delivered;
    }

    std::shared_ptr<const InputFile> m_file;
    std::vector<char> m_bytes;
    std::uint64_t m_start = 0;
    std::size_t m_size = 0;
    int m_error = 0;
};

std::size_t ReadThroughWindow(void* window, mz_uint64 position, void* bytes, std::size_t count) noexcept
{
    auto& mine = *static_cast<Window*>(window);
    try
    {
        return mine.Read(position, bytes, count);
    }
    catch (...) // not enough memory, in the form in which this process reports it
    {
        mine.SetError(ENOMEM);
        return 0;
    }
}

// miniz multiplies an untrusted number of entries without checking for overflow. What it needs is never more than the
// archive itself takes, and a little for its own records.

constexpr std::uint64_t kOwnRecords = 64 * 1024;

bool IsAllowed(const void* limit, std::size_t items, std::size_t size) noexcept
{
    return items != 0 && size != 0 && items <= *static_cast<const std::uint64_t*>(limit) / size;
}

void* Allocate(void* limit, std::size_t items, std::size_t size) noexcept
{
    return IsAllowed(limit, items, size) ? std::malloc(items * size) : nullptr;
}

void* Reallocate(void* limit, void* block, std::size_t items, std::size_t size) noexcept
{
    return IsAllowed(limit, items, size) ? std::realloc(block, items * size) : nullptr;
}

void Free(void*, void* block) noexcept
{
    std::free(block);
}

/// The opened archive, whose records nothing changes any more.
struct Archive
{
    explicit Archive(std::shared_ptr<const InputFile> file) : limit(file->Size() + kOwnRecords), window(std::move(file))
    {
        mz_zip_zero_struct(&zip);
        zip.m_pAlloc = Allocate;
        zip.m_pRealloc = Reallocate;
        zip.m_pFree = Free;
        zip.m_pAlloc_opaque = &limit;
        zip.m_pRead = ReadThroughWindow;
        zip.m_pIO_opaque = &window;
    }
    ~Archive() { mz_zip_reader_end(&zip); }
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    std::uint64_t limit;
    Window window;
    mz_zip_archive zip;
};

struct FreeIterator
{
    void operator()(mz_zip_reader_extract_iter_state* iterator) const { mz_zip_reader_extract_iter_free(iterator); }
};

/// The data as miniz reads it, still compressed: zlib unpacks twice as fast.
class EntryBytes final : public ZipCompressedBytes
{
public:
    /// The archive's record is for one entry at a time.
    EntryBytes(mz_zip_archive& zip, Window& window, mz_uint index)
        : m_zip(zip),
          m_window(window),
          m_iterator(mz_zip_reader_extract_iter_new(&zip, index, MZ_ZIP_FLAG_COMPRESSED_DATA)),
          m_left(m_iterator != nullptr ? m_iterator->comp_remaining : 0)
    {
    }

    bool IsOpen() const { return m_iterator != nullptr; }

    bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) override
    {
        delivered = m_left == 0 ? 0 : mz_zip_reader_extract_iter_read(m_iterator.get(), buffer, count);
        if (delivered == 0 && m_left != 0)
        {
            error = Failure();
            return false;
        }
        m_left -= delivered;
        return true;
    }

    ZipError Failure() const
    {
        if (m_window.Error() != 0)
            return {ZipFailure::System, SystemErrorFromErrno(m_window.Error())};
        if (mz_zip_peek_last_error(&m_zip) == MZ_ZIP_ALLOC_FAILED)
            return {ZipFailure::System, SystemErrorFromErrno(ENOMEM)};
        return {ZipFailure::Damaged, 0};
    }

private:
    mz_zip_archive& m_zip;
    const Window& m_window;
    std::unique_ptr<mz_zip_reader_extract_iter_state, FreeIterator> m_iterator;
    std::uint64_t m_left;
};

class OpenedMinizArchive final : public MinizArchive
{
public:
    /// The copy of the archive's record is for the one field that reading changes, the last error.
    explicit OpenedMinizArchive(std::shared_ptr<const Archive> archive)
        : m_archive(std::move(archive)), m_window(m_archive->window.SharedFile()), m_zip(m_archive->zip)
    {
        m_zip.m_pIO_opaque = &m_window;
    }

    std::shared_ptr<MinizArchive> Another() const override { return std::make_shared<OpenedMinizArchive>(m_archive); }

    std::unique_ptr<ZipCompressedBytes> OpenEntry(std::uint64_t index, ZipError& error) override
    {
        mz_zip_clear_last_error(&m_zip);
        auto bytes = std::make_unique<EntryBytes>(m_zip, m_window, static_cast<mz_uint>(index));
        if (bytes->IsOpen())
            return bytes;
        error = bytes->Failure();
        return nullptr;
    }

private:
    std::shared_ptr<const Archive> m_archive;
    Window m_window;
    mz_zip_archive m_zip;
};
} // namespace

std::shared_ptr<MinizArchive> MinizArchive::Open(std::shared_ptr<const InputFile> file, const ZipDirectory& directory)
{
    const std::uint64_t size = file->Size();
    const auto archive = std::make_shared<Archive>(std::move(file));
    const bool isSame = mz_zip_reader_init(&archive->zip, size, MZ_ZIP_FLAG_DO_NOT_SORT_CENTRAL_DIRECTORY) != 0 &&
                        archive->zip.m_total_files == directory.Count() &&
                        archive->zip.m_central_directory_file_ofs == directory.Start();
    if (!isSame)
        return nullptr;
    return std::make_shared<OpenedMinizArchive>(archive);
}
} // namespace tev::platform

#else

std::shared_ptr<tev::platform::MinizArchive> tev::platform::MinizArchive::Open(std::shared_ptr<const InputFile>,
                                                                               const ZipDirectory&)
{
    return nullptr;
}

#endif
