#pragma once

#include "files/CXFile.h"
#include "text/TextDetection.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tev::tool
{
constexpr wchar_t kByteOrderMark = 0xFEFF;

/// Opens a file, or takes standard input for "-". Throws CXFileException, and Failure for a folder.
std::unique_ptr<CXFile> OpenInput(const std::string& name);

/// 0 if it is not known before the end.
std::uint64_t SizeOf(const std::string& name);

/// Reads a text file or standard input once from front to back, in blocks of complete characters. The block size is
/// bounded, except for a text in a code page without any space or line feed.
class TextSource
{
public:
    /// Opens the source and looks for a byte-order mark. Throws as OpenInput and reading do.
    explicit TextSource(const std::string& name);

    const XTextMark& Mark() const noexcept { return m_mark; }
    /// 0 if it is not known before the end.
    std::uint64_t Size() const noexcept { return m_size; }
    std::uint64_t BytesRead() const noexcept { return m_read; }

    /// The next bytes after the mark, complete characters of the encoding; none at the end. Valid until the next call.
    /// An incomplete character at the end of the file is returned as it is.
    std::string_view Next(xStringEncoding encoding);

private:
    void Fill();

    std::unique_ptr<CXFile> m_file;
    std::vector<char> m_buffer;
    std::size_t m_start = 0;  // the first byte not handed out
    std::size_t m_filled = 0; // the end of the bytes read
    bool m_atEnd = false;
    std::uint64_t m_size = 0;
    std::uint64_t m_read = 0;
    XTextMark m_mark;
};

} // namespace tev::tool
