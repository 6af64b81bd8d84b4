// What is detected in a text against what the decoders make of it, and in blocks against the whole. The first byte is the
// size of the blocks.

#include "text/CXTString.h"
#include "text/TextDetection.h"
#include "text/TextLoss.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>

namespace
{
void Check(bool condition)
{
    if (!condition)
        std::abort();
}

auto AllOf(const XTextInfo& info)
{
    return std::make_tuple(info.m_encoding, info.m_certainty, info.m_markSize, info.m_isValid, info.m_isUtf8,
                           info.m_isUtf16, info.m_isUtf16BE, info.m_isUtf32, info.m_isUtf32BE, info.m_isAscii,
                           info.m_holdsNul, info.m_byteCount, info.m_lineEnds.m_lf, info.m_lineEnds.m_crLf,
                           info.m_lineEnds.m_cr, info.m_lineCount);
}

XTextInfo ExamineInBlocks(const uint8_t* bytes, size_t size, size_t blockSize)
{
    CXTextExaminer examiner;
    for (size_t at = 0; at < size; at += blockSize)
    {
        const size_t count = std::min(blockSize, size - at);
        const std::unique_ptr<uint8_t[]> block(new uint8_t[count]);
        std::copy_n(bytes + at, count, block.get());
        examiner.Add(block.get(), count);
        static_cast<void>(examiner.GetInfo());
    }
    return examiner.GetInfo();
}

/// Valid: nothing is replaced by decoding, and no surrogate when it is encoded again.
bool Decodes(const uint8_t* bytes, size_t size, unsigned encoding, CXTString<wchar_t>& text)
{
    XTextLoss loss;
    XTextLoss surrogates;
    CXTString<char> again;
    Check(XDecodeText(bytes, size, static_cast<xStringEncoding>(encoding), text, loss));
    Check(XEncodeText(text.GetConstBuffer(), text.GetLength64(), xEncodingUtf8, again, surrogates));
    Check((loss.m_count != 0 || loss.m_first == 0) && (loss.m_count == 0 || loss.m_first < size));
    return loss.m_count == 0 && surrogates.m_count == 0;
}

void CheckLines(const XTextInfo& info, const CXTString<wchar_t>& text)
{
    XLineEnds ends;
    const wchar_t* const data = text.GetConstBuffer();
    const size_t length = text.GetLength64();
    for (size_t i = 0; i < length; ++i)
    {
        if (data[i] == L'\r')
            ++(i + 1 < length && data[i + 1] == L'\n' ? ends.m_crLf : ends.m_cr);
        else if (data[i] == L'\n' && (i == 0 || data[i - 1] != L'\r'))
            ++ends.m_lf;
    }
    const bool isInLine = length != 0 && data[length - 1] != L'\n' && data[length - 1] != L'\r';
    Check(ends.m_lf == info.m_lineEnds.m_lf && ends.m_crLf == info.m_lineEnds.m_crLf &&
          ends.m_cr == info.m_lineEnds.m_cr);
    Check(info.m_lineCount == ends.Total() + (isInLine ? 1 : 0));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t blockSize = data[0] % 64u + 1;
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size - 1]);
    std::copy_n(data + 1, size - 1, bytes.get());
    --size;
    const XTextInfo info = XExamineText(bytes.get(), size);
    Check(AllOf(info) == AllOf(ExamineInBlocks(bytes.get(), size, blockSize)));
    Check(info.m_byteCount == size && info.m_markSize <= size);

    const struct
    {
        unsigned m_encoding;
        bool m_isValid;
    } forms[] = {{xEncodingUtf8, info.m_isUtf8},
                 {xEncodingUtf16, info.m_isUtf16},
                 {xEncodingUtf16BE, info.m_isUtf16BE},
                 {12000, info.m_isUtf32},
                 {12001, info.m_isUtf32BE}};
    CXTString<wchar_t> text;
    for (const auto& form : forms)
    {
        const bool isChosen = form.m_encoding == info.m_encoding;
        if (info.m_markSize != 0 && !isChosen)
        {
            Check(!form.m_isValid);
            continue;
        }
        const bool isValid = Decodes(bytes.get() + info.m_markSize, size - info.m_markSize, form.m_encoding, text);
        Check(isValid == form.m_isValid);
        Check(!isChosen || info.m_isValid == isValid);
        if (isChosen)
            CheckLines(info, text);
    }
    return 0;
}
