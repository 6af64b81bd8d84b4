#include "text/TextEncoding.h"

#include "base/LittleEndian.h"
#include "platform/CodePages.h"
#include "platform/PathNames.h"
#include "text/CXTString.h"
#include "text/CodePageText.h"
#include "text/FailureRecord.h"
#include "text/MessageTexts.h"
#include "text/Utf.h"

#include <algorithm>
#include <atomic>
#include <string>

namespace
{
std::atomic<unsigned> g_ansiCodePage{tev::kCodePageUtf8};

// Makes room in a string, of which more than the length may be written to; then the terminator comes last.
template <class T, class Convert>
void ConvertInto(CXTString<T>& target, size_t length, Convert convert)
{
    T* const text = target.GetBufferSetLength64(length);
    convert(text, static_cast<CXTCharArray<T>&>(target).m_capacity);
    text[length] = T();
}

void DecodeUtf8(const char* bytes, size_t size, CXTString<wchar_t>& text)
{
    const tev::TextMeasure measure = tev::MeasureUtf8(bytes, size);
    ConvertInto(text, measure.m_length,
                [=](wchar_t* wide, size_t room) { tev::Utf8ToWide(bytes, size, measure, wide, room); });
}

void EncodeUtf8(const wchar_t* text, size_t length, CXTString<char>& bytes)
{
    const tev::TextMeasure measure = tev::MeasureWide(text, length);
    ConvertInto(bytes, measure.m_length,
                [=](char* narrow, size_t room) { tev::WideToUtf8(text, length, measure, narrow, room); });
}

void DecodeUtf16(const char* bytes, size_t size, CXTString<wchar_t>& text)
{
    const size_t length = tev::MeasureUtf16(bytes, size);
    tev::Utf16ToWide(bytes, size, length, text.GetBufferSetLength64(length));
}

void EncodeUtf16(const wchar_t* text, size_t length, CXTString<char>& bytes)
{
    const size_t size = tev::MeasureWideInUtf16(text, length);
    tev::WideToUtf16(text, length, size, bytes.GetBufferSetLength64(size));
}

template <class Form, class Reader>
void Convert(const Reader& reader, CXTString<typename Form::Unit>& target)
{
    tev::Write<Form>(reader, target.GetBufferSetLength64(tev::Measure<Form>(reader)));
}

template <class Reader>
void DecodeWith(const char* bytes, size_t size, CXTString<wchar_t>& text)
{
    Convert<tev::WideForm<>>(Reader(bytes, size), text);
}

template <class Form>
void EncodeWith(const wchar_t* text, size_t length, CXTString<char>& bytes)
{
    Convert<Form>(tev::WideReader<>(text, length), bytes);
}

bool DecodeSystem(unsigned codePage, const char* bytes, size_t size, CXTString<wchar_t>& text)
{
    std::wstring converted;
    if (!tev::platform::DecodeCodePage(codePage, bytes, size, converted))
        return false;
    text.Assign(converted.data(), converted.size());
    return true;
}

bool EncodeSystem(unsigned codePage, const wchar_t* text, size_t length, CXTString<char>& bytes)
{
    std::wstring joined;
    if (tev::HoldsSurrogates(text, length))
    {
        joined = tev::WithoutSurrogates(text, length);
        text = joined.data();
        length = joined.size();
    }
    std::string converted;
    if (!tev::platform::EncodeCodePage(codePage, text, length, converted))
        return false;
    bytes.Assign(converted.data(), converted.size());
    return true;
}

template <class T>
bool Fail(CXTString<T>& target)
{
    target.Empty();
    return false;
}
} // namespace

bool tev::HoldsSurrogates(const wchar_t* text, size_t length) noexcept
{
    return std::any_of(text, text + length, [](wchar_t c) { return IsSurrogate(static_cast<char32_t>(c)); });
}

std::wstring tev::WithoutSurrogates(const wchar_t* text, size_t length)
{
    std::wstring joined;
    joined.reserve(length);
    WideReader<> reader(text, length);
    while (!reader.AtEnd())
    {
        const char32_t c = reader.Next();
        wchar_t units[2];
        joined.append(units, WideForm<>::Write(IsSurrogate(c) ? kSubstitute : c, units));
    }
    return joined;
}

unsigned XGetAnsiCodePage() noexcept
{
    return g_ansiCodePage.load(std::memory_order_relaxed);
}

void XSetAnsiCodePage(unsigned codePage) noexcept
{
    g_ansiCodePage.store(codePage, std::memory_order_relaxed);
}

bool tev::DecodeCodePage(const void* bytes, size_t byteCount, unsigned codePage, CXTString<wchar_t>& text)
{
    const char* const from = static_cast<const char*>(bytes);
    if (from == nullptr)
        return Fail(text);
    switch (NamedCodePage(codePage))
    {
    case kCodePageUtf8:
        DecodeUtf8(from, byteCount, text);
        return true;
    case kCodePageUtf16:
        DecodeUtf16(from, byteCount, text);
        return true;
    case kCodePageUtf16BE:
        DecodeWith<Utf16Reader<ByteOrder::big>>(from, byteCount, text);
        return true;
    case kCodePageUtf32:
        DecodeWith<Utf32Reader<ByteOrder::little>>(from, byteCount, text);
        return true;
    case kCodePageUtf32BE:
        DecodeWith<Utf32Reader<ByteOrder::big>>(from, byteCount, text);
        return true;
    default:
        return DecodeSystem(NamedCodePage(codePage), from, byteCount, text) || Fail(text);
    }
}

bool tev::EncodeCodePage(const wchar_t* text, size_t length, unsigned codePage, CXTString<char>& bytes)
{
    if (text == nullptr)
        return Fail(bytes);
    switch (NamedCodePage(codePage))
    {
    case kCodePageUtf8:
        EncodeUtf8(text, length, bytes);
        return true;
    case kCodePageUtf16:
        EncodeUtf16(text, length, bytes);
        return true;
    case kCodePageUtf16BE:
        EncodeWith<Utf16Form<ByteOrder::big>>(text, length, bytes);
        return true;
    case kCodePageUtf32:
        EncodeWith<Utf32Form<ByteOrder::little>>(text, length, bytes);
        return true;
    case kCodePageUtf32BE:
        EncodeWith<Utf32Form<ByteOrder::big>>(text, length, bytes);
        return true;
    default:
        return EncodeSystem(NamedCodePage(codePage), text, length, bytes) || Fail(bytes);
    }
}

// No early return nor table: the compiler does these loops in vectors.

bool tev::IsAnsiAscii(const char* text, size_t size) noexcept
{
    if (XGetAnsiCodePage() != kCodePageUtf8)
        return false;
    unsigned char bits = 0;
    for (size_t i = 0; i < size; ++i)
        bits |= static_cast<unsigned char>(text[i]);
    return bits < 0x80;
}

void tev::AsciiToUtf16(const char* text, size_t size, CXTString<char>& bytes)
{
    auto* const units = reinterpret_cast<unsigned char*>(bytes.GetBufferSetLength64(2 * size));
    for (size_t i = 0; i < size; ++i)
        StoreLittleEndian(units + 2 * i, static_cast<uint16_t>(text[i]));
}

bool tev::NoteNoConversion(const char* operation, const void* text) noexcept
{
    return NoteFailure({operation, XFailureKind::kArgument, 0, 0, text != nullptr ? kTextNoEncoding : 0});
}

bool XDecodeText(const void* bytes, size_t byteCount, xStringEncoding encoding, CXTString<wchar_t>& text)
{
    return tev::DecodeCodePage(bytes, byteCount, tev::CodePageOf(encoding), text) ||
           tev::NoteNoConversion("XDecodeText", bytes);
}

bool XEncodeText(const wchar_t* text, size_t length, xStringEncoding encoding, CXTString<char>& bytes)
{
    return tev::EncodeCodePage(text, length, tev::CodePageOf(encoding), bytes) ||
           tev::NoteNoConversion("XEncodeText", text);
}

void XDecodePath(const char* path, CXTString<wchar_t>& text)
{
    text = tev::platform::SystemPathToWide(path);
}

bool XEncodePath(const wchar_t* text, CXTString<char>& path)
{
    std::string bytes;
    const bool isName = tev::platform::WidePathToSystem(text, bytes);
    path = isName ? bytes : std::string();
    return isName || tev::NoteBadArgument("XEncodePath", text);
}
