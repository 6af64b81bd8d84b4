#include "text/FormatString.h"

#include "text/CXTString.h"
#include "text/OtherWidth.h"

#include <cwchar>
#include <string>
#include <type_traits>

using namespace tev;

namespace
{
template <class Source>
size_t AsciiRun(const Source* text, size_t length) noexcept
{
    size_t run = 0;
    while (run < length && static_cast<std::make_unsigned_t<Source>>(text[run]) < 0x80)
        ++run;
    return run;
}

// Text of the other width.
template <class T, class Source>
bool AppendConverted(FormatOutput<T>& output, const Source* text, size_t length)
{
    const size_t ascii = AsciiRun(text, length);
    if (!Append(output, text, ascii))
        return false;
    if (ascii == length)
        return true;
    CXTString<T> converted;
    return ConvertText(text + ascii, length - ascii, converted) &&
           Append(output, converted.GetConstBuffer(), converted.GetLength64());
}

constexpr wchar_t kReplacementCharacter = 0xFFFD;

bool IsHighSurrogate(wchar_t unit) noexcept
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(wchar_t unit) noexcept
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// How many units the character at `text` has. Reads no unit after it that could not be part of it.
size_t CharacterLength(const wchar_t* text)
{
    return IsHighSurrogate(text[0]) && IsLowSurrogate(text[1]) ? 2 : 1;
}

size_t Utf8CharacterLength(const char* text) noexcept
{
    const auto lead = static_cast<unsigned char>(text[0]);
    const size_t announced = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 1;
    size_t length = 1;
    while (length < announced && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

// The rules of the code page are known to its converter only: the character is the shortest sequence that can be
// converted.
size_t CodePageCharacterLength(const char* text)
{
    constexpr size_t kLongest = 4;
    CXTString<wchar_t> converted;
    for (size_t length = 1; length <= kLongest; ++length)
    {
        if (ConvertText(text, length, converted) && converted.Find(kReplacementCharacter) < 0)
            return length;
        if (text[length] == 0)
            break;
    }
    return 1;
}

size_t CharacterLength(const char* text)
{
    constexpr unsigned kUtf8CodePage = 65001;
    return XGetAnsiCodePage() == kUtf8CodePage ? Utf8CharacterLength(text) : CodePageCharacterLength(text);
}

// The units of the first character of converted text. A wide one may be the replacement of one of several bad bytes.
size_t FirstCharacterLength(const char*, size_t length)
{
    return length;
}

size_t FirstCharacterLength(const wchar_t* text, size_t length)
{
    return length > 1 ? CharacterLength(text) : length;
}

// As much text of the other width as gives at most `limit` units. The source is read character by character, because it
// need not have an end when the limit stops it before.
template <class T, class Source>
bool AppendConvertedWithin(FormatOutput<T>& output, const Source* text, size_t limit)
{
    CXTString<T> converted;
    while (limit > 0 && *text != 0)
    {
        if (static_cast<std::make_unsigned_t<Source>>(*text) < 0x80)
        {
            if (!AppendFill(output, static_cast<T>(*text), 1))
                return false;
            ++text;
            --limit;
            continue;
        }
        const size_t sourceLength = CharacterLength(text);
        if (!ConvertText(text, sourceLength, converted))
            return false;
        text += sourceLength;
        const T* rest = converted.GetConstBuffer();
        for (size_t left = converted.GetLength64(); left > 0;)
        {
            const size_t length = FirstCharacterLength(rest, left);
            if (length > limit)
                return true;
            if (!Append(output, rest, length))
                return false;
            limit -= length;
            rest += length;
            left -= length;
        }
    }
    return true;
}

template <class Source>
size_t LengthWithin(const Source* text, int precision) noexcept
{
    if (precision == FormatSpec::kNoPrecision)
        return std::char_traits<Source>::length(text);
    const auto limit = static_cast<size_t>(precision);
    size_t length = 0;
    while (length < limit && text[length] != 0)
        ++length;
    return length;
}

template <class T, class Source>
bool WriteText(FormatOutput<T>& output, const FormatSpec& spec, const Source* text)
{
    const size_t start = output.Length();
    bool written;
    if constexpr (std::is_same_v<T, Source>)
        written = Append(output, text, LengthWithin(text, spec.precision));
    else if (spec.precision == FormatSpec::kNoPrecision)
        written = AppendConverted(output, text, std::char_traits<Source>::length(text));
    else
        written = AppendConvertedWithin(output, text, static_cast<size_t>(spec.precision));
    return written && Pad(output, start, spec);
}

template <class T, class Source>
bool AppendCharacter(FormatOutput<T>& output, Source character)
{
    if constexpr (std::is_same_v<T, Source>)
        return AppendFill(output, character, 1);
    else
        return AppendConverted(output, &character, 1);
}

template <class T>
bool WriteNullText(FormatOutput<T>& output, const FormatSpec& spec)
{
    static constexpr char kNull[] = "(null)";
    constexpr int kLength = sizeof(kNull) - 1;
    // Where it does not fit whole it is left out, as the C library does.
    const bool fits = spec.precision == FormatSpec::kNoPrecision || spec.precision >= kLength;
    const size_t start = output.Length();
    return Append(output, kNull, fits ? kLength : 0) && Pad(output, start, spec);
}

} // namespace

template <class T>
bool tev::WriteString(FormatOutput<T>& output, const FormatSpec& spec, const void* text)
{
    if (text == nullptr)
        return WriteNullText(output, spec);
    if (TextWidthOf<T>(spec.modifier, spec.letter == 'S') == TextWidth::Narrow)
        return WriteText(output, spec, static_cast<const char*>(text));
    return WriteText(output, spec, static_cast<const wchar_t*>(text));
}

template <class T>
bool tev::WriteCharacter(FormatOutput<T>& output, const FormatSpec& spec, long long value)
{
    const size_t start = output.Length();
    const bool narrow = TextWidthOf<T>(spec.modifier, spec.letter == 'C') == TextWidth::Narrow;
    const bool written = narrow ? AppendCharacter(output, static_cast<char>(value))
                                : AppendCharacter(output, static_cast<wchar_t>(value));
    return written && Pad(output, start, spec);
}

template bool tev::WriteString(FormatOutput<char>&, const FormatSpec&, const void*);
template bool tev::WriteString(FormatOutput<wchar_t>&, const FormatSpec&, const void*);
template bool tev::WriteCharacter(FormatOutput<char>&, const FormatSpec&, long long);
template bool tev::WriteCharacter(FormatOutput<wchar_t>&, const FormatSpec&, long long);
