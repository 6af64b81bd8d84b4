#include "zip/engine/ZipDecoder.h"

#include "zip/engine/ZipRecords.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include <bzlib.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

namespace tev::platform
{
namespace
{
constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kBzip2 = 12;
constexpr std::uint16_t kLzma = 14;
constexpr std::uint16_t kOldZstd = 20;
constexpr std::uint16_t kZstd = 93;
constexpr std::uint16_t kXz = 95;
constexpr std::uint64_t kMostMemory = std::uint64_t{192} << 20; // for a window of 128 MiB

class StoredDecoder final : public ZipDecoder
{
public:
    ZipDecoding Run(ZipStreams& streams) override
    {
        const std::size_t count = std::min(streams.inLeft, streams.outLeft);
        if (count != 0)
            std::memcpy(streams.out, streams.in, count);
        streams.in += count;
        streams.inLeft -= count;
        streams.out += count;
        streams.outLeft -= count;
        return streams.isLast && streams.inLeft == 0 ? ZipDecoding::AtEnd : ZipDecoding::Running;
    }
};

class DeflateDecoder final : public ZipDecoder
{
public:
    DeflateDecoder() : m_isReady(inflateInit2(&m_stream, -MAX_WBITS) == Z_OK) {}
    ~DeflateDecoder() override { inflateEnd(&m_stream); }

    ZipDecoding Run(ZipStreams& streams) override
    {
        if (!m_isReady)
            return ZipDecoding::NoMemory;
        constexpr std::size_t kMost = std::numeric_limits<uInt>::max();
        m_stream.next_in = const_cast<Bytef*>(streams.in); // zlib only reads it
        m_stream.avail_in = static_cast<uInt>(std::min(streams.inLeft, kMost));
        m_stream.next_out = streams.out;
        m_stream.avail_out = static_cast<uInt>(std::min(streams.outLeft, kMost));
        const int state = inflate(&m_stream, Z_NO_FLUSH);
        streams.inLeft -= static_cast<std::size_t>(m_stream.next_in - streams.in);
        streams.in = m_stream.next_in;
        streams.outLeft -= static_cast<std::size_t>(m_stream.next_out - streams.out);
        streams.out = m_stream.next_out;
        if (state == Z_OK || state == Z_BUF_ERROR)
            return ZipDecoding::Running;
        if (state == Z_MEM_ERROR)
            return ZipDecoding::NoMemory;
        return state == Z_STREAM_END ? ZipDecoding::AtEnd : ZipDecoding::Damaged;
    }

private:
    z_stream m_stream = {};
    bool m_isReady;
};

class Bzip2Decoder final : public ZipDecoder
{
public:
    Bzip2Decoder() : m_isReady(BZ2_bzDecompressInit(&m_stream, 0, 0) == BZ_OK) {}
    ~Bzip2Decoder() override { BZ2_bzDecompressEnd(&m_stream); }

    ZipDecoding Run(ZipStreams& streams) override
    {
        if (!m_isReady)
            return ZipDecoding::NoMemory;
        constexpr std::size_t kMost = std::numeric_limits<unsigned>::max();
        const auto in = static_cast<unsigned>(std::min(streams.inLeft, kMost));
        const auto out = static_cast<unsigned>(std::min(streams.outLeft, kMost));
        // libbz2 only reads the input.
        m_stream.next_in = const_cast<char*>(reinterpret_cast<const char*>(streams.in));
        m_stream.avail_in = in;
        m_stream.next_out = reinterpret_cast<char*>(streams.out);
        m_stream.avail_out = out;
        const int state = BZ2_bzDecompress(&m_stream);
        streams.in += in - m_stream.avail_in;
        streams.inLeft -= in - m_stream.avail_in;
        streams.out += out - m_stream.avail_out;
        streams.outLeft -= out - m_stream.avail_out;
        switch (state)
        {
        case BZ_OK:
            return ZipDecoding::Running;
        case BZ_STREAM_END:
            return ZipDecoding::AtEnd;
        case BZ_MEM_ERROR:
            return ZipDecoding::NoMemory;
        default:
            return ZipDecoding::Damaged;
        }
    }

private:
    bz_stream m_stream = {};
    bool m_isReady;
};

/// XZ, and LZMA in the form of a file of its own, whose header differs from the one in an archive.
class LzmaDecoder final : public ZipDecoder
{
public:
    enum class Form
    {
        Xz,
        Lzma
    };
    LzmaDecoder(Form form, std::uint64_t size, bool isSizeUnknown)
        : m_form(form), m_size(size), m_isSizeUnknown(isSizeUnknown)
    {
    }
    ~LzmaDecoder() override { lzma_end(&m_stream); }

    ZipDecoding Run(ZipStreams& streams) override
    {
        if (!m_isReady)
        {
            if (streams.outLeft == 0) // liblzma reads no header then
                return ZipDecoding::Running;
            if (m_form == Form::Lzma && !GatherHeader(streams))
                return streams.isLast ? ZipDecoding::Damaged : ZipDecoding::Running;
            const ZipDecoding started = Start(streams);
            if (started != ZipDecoding::Running)
                return started;
        }
        m_stream.next_in = streams.in;
        m_stream.avail_in = streams.inLeft;
        m_stream.next_out = streams.out;
        m_stream.avail_out = streams.outLeft;
        const lzma_ret state = lzma_code(&m_stream, LZMA_RUN);
        streams.in = m_stream.next_in;
        streams.inLeft = m_stream.avail_in;
        streams.out = m_stream.next_out;
        streams.outLeft = m_stream.avail_out;
        return DecodingOf(state);
    }

private:
    // In an archive: a version of two bytes, a size of two bytes, which is 5, and as many bytes of properties.
    static constexpr std::size_t kHeaderSize = 9;
    static constexpr std::size_t kPropertiesAt = 4;
    static constexpr std::size_t kPropertiesSize = 5;

    static ZipDecoding DecodingOf(lzma_ret state)
    {
        switch (state)
        {
        case LZMA_OK:
        case LZMA_BUF_ERROR:
            return ZipDecoding::Running;
        case LZMA_STREAM_END:
            return ZipDecoding::AtEnd;
        case LZMA_MEM_ERROR:
            return ZipDecoding::NoMemory;
        case LZMA_MEMLIMIT_ERROR:
        case LZMA_OPTIONS_ERROR:
            return ZipDecoding::Unsupported;
        default:
            return ZipDecoding::Damaged;
        }
    }

    bool GatherHeader(ZipStreams& streams)
    {
        const std::size_t count = std::min(kHeaderSize - m_gathered, streams.inLeft);
        std::copy_n(streams.in, count, m_header.begin() + static_cast<std::ptrdiff_t>(m_gathered));
        m_gathered += count;
        streams.in += count;
        streams.inLeft -= count;
        return m_gathered == kHeaderSize;
    }

    ZipDecoding Start(const ZipStreams& streams)
    {
        if (m_form == Form::Xz)
        {
            m_isReady = true;
            return DecodingOf(lzma_stream_decoder(&m_stream, kMostMemory, 0));
        }
        if (LoadLittleEndian<std::uint16_t>(m_header.data() + 2) != kPropertiesSize)
            return ZipDecoding::Damaged;
        // No window need be larger than what it looks back on.
        constexpr std::uint32_t kSmallestWindow = 4096;
        const auto window = LoadLittleEndian<std::uint32_t>(m_header.data() + kPropertiesAt + 1);
        const std::uint64_t useful = std::max<std::uint64_t>(m_size, kSmallestWindow);
        std::array<unsigned char, kPropertiesSize + 8> header;
        header[0] = m_header[kPropertiesAt];
        StoreLittleEndian(header.data() + 1, static_cast<std::uint32_t>(std::min<std::uint64_t>(window, useful)));
        StoreLittleEndian(header.data() + kPropertiesSize, m_isSizeUnknown ? ~std::uint64_t{0} : m_size);
        m_isReady = true;
        const lzma_ret started = lzma_alone_decoder(&m_stream, kMostMemory);
        if (started != LZMA_OK)
            return DecodingOf(started);
        m_stream.next_in = header.data();
        m_stream.avail_in = header.size();
        m_stream.next_out = streams.out; // which takes nothing yet
        m_stream.avail_out = streams.outLeft;
        return DecodingOf(lzma_code(&m_stream, LZMA_RUN));
    }

    const Form m_form;
    const std::uint64_t m_size;
    const bool m_isSizeUnknown; ///< to the stream, which has a mark at its end
    lzma_stream m_stream = LZMA_STREAM_INIT;
    std::array<unsigned char, kHeaderSize> m_header = {};
    std::size_t m_gathered = 0;
    bool m_isReady = false;
};

class ZstdDecoder final : public ZipDecoder
{
public:
    ZipDecoding Run(ZipStreams& streams) override
    {
        if (m_context == nullptr)
            return ZipDecoding::NoMemory;
        ZSTD_inBuffer in = {streams.in, streams.inLeft, 0};
        ZSTD_outBuffer out = {streams.out, streams.outLeft, 0};
        const std::size_t wanted = ZSTD_decompressStream(m_context.get(), &out, &in);
        streams.in += in.pos;
        streams.inLeft -= in.pos;
        streams.out += out.pos;
        streams.outLeft -= out.pos;
        if (ZSTD_isError(wanted) != 0)
        {
            switch (ZSTD_getErrorCode(wanted))
            {
            case ZSTD_error_memory_allocation:
                return ZipDecoding::NoMemory;
            case ZSTD_error_frameParameter_windowTooLarge:
                return ZipDecoding::Unsupported;
            default:
                return ZipDecoding::Damaged;
            }
        }
        return wanted == 0 && streams.inLeft == 0 && streams.isLast ? ZipDecoding::AtEnd : ZipDecoding::Running;
    }

private:
    struct Free
    {
        void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
    };
    std::unique_ptr<ZSTD_DCtx, Free> m_context{ZSTD_createDCtx()};
};
} // namespace

bool IsZipMethodKnown(std::uint16_t method)
{
    constexpr std::uint16_t kKnown[] = {kStored, kZipDeflated, kBzip2, kLzma, kOldZstd, kZstd, kXz};
    return std::find(std::begin(kKnown), std::end(kKnown), method) != std::end(kKnown);
}

std::unique_ptr<ZipDecoder> MakeZipDecoder(std::uint16_t method, std::uint16_t flags, std::uint64_t size)
{
    switch (method)
    {
    case kStored:
        return std::make_unique<StoredDecoder>();
    case kZipDeflated:
        return std::make_unique<DeflateDecoder>();
    case kBzip2:
        return std::make_unique<Bzip2Decoder>();
    case kLzma:
        return std::make_unique<LzmaDecoder>(LzmaDecoder::Form::Lzma, size, (flags & kZipEndMarkedFlag) != 0);
    case kXz:
        return std::make_unique<LzmaDecoder>(LzmaDecoder::Form::Xz, size, false);
    case kOldZstd:
    case kZstd:
        return std::make_unique<ZstdDecoder>();
    default:
        return nullptr;
    }
}
} // namespace tev::platform
