#include "platform/PathNames.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace
{
constexpr char32_t kEscapeBase = 0xDC00; // a raw byte b stands as the code point kEscapeBase + b
constexpr char32_t kHighestCodePoint = 0x10FFFF;

bool IsHighSurrogate(char32_t c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char32_t c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}
bool IsEscapedByte(char32_t c)
{
    return c >= kEscapeBase + 0x80 && c <= kEscapeBase + 0xFF;
}
bool IsContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

/// The element as a code unit, whatever the signedness of wchar_t.
char32_t UnitAt(const wchar_t* text)
{
    return static_cast<char32_t>(*text) & (sizeof(wchar_t) == 2 ? 0xFFFFu : 0xFFFFFFFFu);
}

/// Calls `append` with each byte of what is not ASCII.
template <class Append>
void AppendUtf8(Append&& append, char32_t c)
{
    const auto continuation = [](char32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    if (c < 0x800)
    {
        append(static_cast<char>(0xC0 | (c >> 6)));
    }
    else
    {
        if (c < 0x10000)
        {
            append(static_cast<char>(0xE0 | (c >> 12)));
        }
        else
        {
            append(static_cast<char>(0xF0 | (c >> 18)));
            append(continuation(c >> 12));
        }
        append(continuation(c >> 6));
    }
    append(continuation(c));
}

/// Calls `append` with each byte of the system's form. False for a path that no name can have.
template <class Append>
bool EncodePath(const wchar_t* path, Append&& append)
{
    if (path == nullptr)
        return true;
    for (; *path != L'\0'; ++path)
    {
        char32_t c = UnitAt(path);
        if (c < 0x80)
        {
            append(static_cast<char>(c == U'\\' ? U'/' : c));
            continue;
        }
        if (IsHighSurrogate(c) && IsLowSurrogate(UnitAt(path + 1)))
        {
            ++path;
            c = 0x10000 + ((c - 0xD800) << 10) + (UnitAt(path) - 0xDC00);
        }
        if (IsEscapedByte(c))
            append(static_cast<char>(c - kEscapeBase));
        else if (IsHighSurrogate(c) || IsLowSurrogate(c) || c > kHighestCodePoint)
            return false;
        else
            AppendUtf8(append, c);
    }
    return true;
}

/// Returns what follows.
wchar_t* PutWide(wchar_t* at, char32_t c)
{
    if constexpr (sizeof(wchar_t) == 2)
    {
        if (c >= 0x10000)
        {
            *at++ = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
            c = 0xDC00 + ((c - 0x10000) & 0x3FF);
        }
    }
    *at++ = static_cast<wchar_t>(c);
    return at;
}

/// Length in bytes of the valid sequence at `bytes`, with its code point; 0 when there is none.
size_t DecodeUtf8(const unsigned char* bytes, char32_t& c)
{
    const unsigned char lead = bytes[0];
    if (lead < 0x80)
    {
        c = lead;
        return 1;
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    c = lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; ++i)
    {
        if (!IsContinuation(bytes[i])) // a terminator ends the loop here
            return 0;
        c = (c << 6) | (bytes[i] & 0x3F);
    }
    const char32_t lowest = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
    const bool isCharacter = c >= lowest && c <= kHighestCodePoint && !IsHighSurrogate(c) && !IsLowSurrogate(c);
    return isCharacter ? length : 0;
}
} // namespace

bool tev::platform::WidePathToSystem(const wchar_t* path, std::string& result)
{
    result.clear();
    return EncodePath(path, [&result](char byte) { result += byte; });
}

bool tev::platform::WidePathToSystem(const wchar_t* path, char* buffer, std::size_t size, bool& isTooLong) noexcept
{
    std::size_t length = 0;
    const bool isName = EncodePath(path, [&](char byte) {
        if (length < size)
            buffer[length] = byte;
        ++length;
    });
    isTooLong = length >= size;
    if (!isName || isTooLong)
        return false;
    buffer[length] = '\0';
    return true;
}

std::string tev::platform::SystemPathOf(const wchar_t* path)
{
    std::string name;
    return WidePathToSystem(path, name) ? name : std::string();
}

std::wstring tev::platform::SystemPathToWide(const char* path)
{
    std::wstring result;
    if (path == nullptr)
        return result;
    result.resize(std::strlen(path)); // no character is longer than its bytes
    wchar_t* at = result.data();
    for (auto bytes = reinterpret_cast<const unsigned char*>(path); *bytes != 0;)
    {
        char32_t c = 0;
        size_t length = DecodeUtf8(bytes, c);
        if (length == 0)
        {
            length = 1;
            c = kEscapeBase + *bytes;
        }
        at = PutWide(at, c);
        bytes += length;
    }
    result.resize(static_cast<std::size_t>(at - result.data()));
    return result;
}

bool tev::platform::IsUtf8(const char* text)
{
    char32_t c = 0;
    for (auto bytes = reinterpret_cast<const unsigned char*>(text); *bytes != 0;)
    {
        const size_t length = DecodeUtf8(bytes, c);
        if (length == 0)
            return false;
        bytes += length;
    }
    return true;
}

std::wstring tev::platform::FullPath(const wchar_t* path)
{
    std::wstring given = path != nullptr ? path : L"";
    if (!given.empty() && (given[0] == L'/' || given[0] == L'\\'))
        return given;
    char* const current = getcwd(nullptr, 0);
    const std::wstring folder = SystemPathToWide(current);
    std::free(current);
    return folder.empty() ? given : folder + kPathSeparator + given;
}
