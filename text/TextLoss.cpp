#include "text/TextLoss.h"

#include "platform/CodePages.h"
#include "text/CXTString.h"
#include "text/CodePageText.h"
#include "text/Utf.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace
{
void Note(XTextLoss& loss, std::size_t index) noexcept
{
    if (loss.m_count++ == 0)
        loss.m_first = index;
}

/// A reader that says where it is.
template <class Reader>
class Tracked : public Reader
{
public:
    using Reader::Reader;
    const unsigned char* Position() const noexcept { return this->m_next; }
};

/// Every U+FFFD that the reader gives, except for those whose own bytes are there.
template <class Reader, class Form>
XTextLoss DecodingLoss(const char* bytes, std::size_t size) noexcept
{
    char genuine[4];
    const auto genuineSize = Form::Write(tev::kReplacement, genuine) - genuine;
    XTextLoss loss;
    Tracked<Reader> reader(bytes, size);
    const unsigned char* const begin = reader.Position();
    while (!reader.AtEnd())
    {
        const unsigned char* const from = reader.Position();
        const bool isReplacement = reader.Next() == tev::kReplacement;
        if (isReplacement && (reader.Position() - from != genuineSize ||
                              std::memcmp(from, genuine, static_cast<std::size_t>(genuineSize)) != 0))
            Note(loss, static_cast<std::size_t>(from - begin));
    }
    return loss;
}

/// The wide characters of a text, which may be a pair each, with their positions.
template <class Visit>
void ForEachCharacter(const wchar_t* text, std::size_t length, Visit visit)
{
    for (std::size_t at = 0; at < length;)
    {
        const auto c = static_cast<char32_t>(text[at]);
        const bool isPair =
            tev::IsHighSurrogate(c) && at + 1 < length && tev::IsLowSurrogate(static_cast<char32_t>(text[at + 1]));
        visit(at, c, isPair);
        at += isPair ? 2 : 1;
    }
}

XTextLoss EncodingLoss(const wchar_t* text, std::size_t length, bool keepsSurrogates)
{
    XTextLoss loss;
    ForEachCharacter(text, length, [&](std::size_t at, char32_t c, bool isPair) {
        if (c > tev::kMaxCodePoint || (tev::IsSurrogate(c) && !isPair && !keepsSurrogates))
            Note(loss, at);
    });
    return loss;
}

/// Where a character of the joined text stands in the text with surrogates.
std::size_t PositionBeforeJoining(const wchar_t* text, std::size_t length, std::size_t joinedIndex)
{
    std::size_t position = 0;
    std::size_t index = 0;
    ForEachCharacter(text, length, [&](std::size_t at, char32_t, bool isPair) {
        if (index <= joinedIndex)
            position = at;
        index += isPair && sizeof(wchar_t) == 2 ? 2 : 1;
    });
    return position;
}

bool DecodeSystemText(unsigned codePage, const char* bytes, std::size_t size, CXTString<wchar_t>& text, XTextLoss& loss)
{
    std::wstring converted;
    tev::platform::ReplacedText replaced;
    if (!tev::platform::DecodeCodePage(codePage, bytes, size, converted, &replaced))
        return false;
    text.Assign(converted.data(), converted.size());
    loss = {replaced.m_count, replaced.m_first};
    return true;
}

bool EncodeSystemText(unsigned codePage, const wchar_t* text, std::size_t length, CXTString<char>& bytes,
                      XTextLoss& loss)
{
    std::string converted;
    tev::platform::ReplacedText replaced;
    if (!tev::HoldsSurrogates(text, length))
    {
        if (!tev::platform::EncodeCodePage(codePage, text, length, converted, &replaced))
            return false;
        loss = {replaced.m_count, replaced.m_first};
    }
    else
    {
        const std::wstring joined = tev::WithoutSurrogates(text, length);
        if (!tev::platform::EncodeCodePage(codePage, joined.data(), joined.size(), converted, &replaced))
            return false;
        // What joining has replaced is '?' already, which every code page has.
        loss = EncodingLoss(text, length, false);
        if (replaced.m_count != 0)
        {
            const std::size_t first = PositionBeforeJoining(text, length, replaced.m_first);
            loss.m_first = loss.m_count == 0 ? first : std::min<unsigned __int64>(first, loss.m_first);
            loss.m_count += replaced.m_count;
        }
    }
    bytes.Assign(converted.data(), converted.size());
    return true;
}
} // namespace

bool XDecodeText(const void* bytes, std::size_t byteCount, xStringEncoding encoding, CXTString<wchar_t>& text,
                 XTextLoss& loss)
{
    using tev::ByteOrder;
    loss = {};
    const auto* const from = static_cast<const char*>(bytes);
    const unsigned codePage = tev::NamedCodePage(tev::CodePageOf(encoding));
    if (from != nullptr && !tev::IsUnicode(codePage))
    {
        text.Empty();
        return DecodeSystemText(codePage, from, byteCount, text, loss) || tev::NoteNoConversion("XDecodeText", bytes);
    }
    if (!tev::DecodeCodePage(bytes, byteCount, codePage, text))
        return tev::NoteNoConversion("XDecodeText", bytes);
    switch (codePage)
    {
    case tev::kCodePageUtf8:
        if (!tev::MeasureUtf8(from, byteCount).m_valid)
            loss = DecodingLoss<tev::Utf8Reader, tev::Utf8Form>(from, byteCount);
        break;
    case tev::kCodePageUtf16:
    case tev::kCodePageUtf16BE: // only a last byte without its other half is lost
        if (byteCount % 2 != 0)
            loss = {1, byteCount - 1};
        break;
    case tev::kCodePageUtf32:
        loss = DecodingLoss<tev::Utf32Reader<ByteOrder::little>, tev::Utf32Form<ByteOrder::little>>(from, byteCount);
        break;
    default:
        loss = DecodingLoss<tev::Utf32Reader<ByteOrder::big>, tev::Utf32Form<ByteOrder::big>>(from, byteCount);
    }
    return true;
}

bool XEncodeText(const wchar_t* text, std::size_t length, xStringEncoding encoding, CXTString<char>& bytes,
                 XTextLoss& loss)
{
    loss = {};
    const unsigned codePage = tev::NamedCodePage(tev::CodePageOf(encoding));
    if (text != nullptr && !tev::IsUnicode(codePage))
    {
        bytes.Empty();
        return EncodeSystemText(codePage, text, length, bytes, loss) || tev::NoteNoConversion("XEncodeText", text);
    }
    if (!tev::EncodeCodePage(text, length, codePage, bytes))
        return tev::NoteNoConversion("XEncodeText", text);
    loss = EncodingLoss(text, length, codePage == tev::kCodePageUtf16 || codePage == tev::kCodePageUtf16BE);
    return true;
}
