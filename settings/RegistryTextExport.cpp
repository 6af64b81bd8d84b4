#include "base/LittleEndian.h"
#include "objects/FailureNote.h"
#include "platform/SystemErrors.h"
#include "settings/CRegUtil.h"
#include "settings/RegistryText.h"
#include "settings/engine/SettingsStore.h"
#include "text/TextView.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace
{
using tev::SettingsTreeKey;
using tev::SettingsTreeValue;
using tev::SettingsValue;

constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr std::size_t kLongestLine = 77; // before the comma and the backslash that continue it
constexpr std::wstring_view kDigits = L"0123456789abcdef";

/// Splits a path that may begin with the name of a root into the root and a path below it as the store expects it.
struct KeyPath
{
    explicit KeyPath(std::wstring_view text)
    {
        constexpr std::wstring_view kSeparators = L"\\/:";
        bool isFirst = true;
        for (std::size_t start = text.find_first_not_of(kSeparators); start != text.npos;
             start = text.find_first_not_of(kSeparators))
        {
            text.remove_prefix(start);
            const std::wstring name(text.substr(0, text.find_first_of(kSeparators)));
            text.remove_prefix(name.size());
            HKEY const named = isFirst ? CRegUtil::StrToRootKey(name.c_str()) : nullptr;
            isFirst = false;
            if (named != nullptr)
            {
                m_root = named;
                m_rootName = name;
            }
            else
                m_path += (m_path.empty() ? L"" : L"\\") + name;
        }
    }

    std::wstring m_rootName = L"HKEY_CURRENT_USER";
    HKEY m_root = CRegUtil::StrToRootKey(m_rootName.c_str());
    std::wstring m_path;
};

void AppendQuoted(std::wstring& line, std::wstring_view text)
{
    line += L'"';
    for (const wchar_t c : text)
    {
        if (c == L'"' || c == L'\\')
            line += L'\\';
        line += c;
    }
    line += L'"';
}

/// Whether data is a text that can be written in quotes: no control characters and no lone surrogates.
bool IsPlainText(const SettingsValue& value, CXTString<wchar_t>& text)
{
    if (value.type != CRegUtil::kTypeString || value.data.size() % 2 != 0 ||
        !XDecodeText(value.data.data(), value.data.size(), xEncodingUtf16, text) || text.IsEmpty())
        return false;
    const std::wstring_view view = tev::ViewOf(text);
    const auto isPlain = [](wchar_t c) { return c >= L' ' && (c < 0xD800 || c > 0xDFFF || sizeof c == 2); };
    return view.back() == L'\0' && std::all_of(view.begin(), view.end() - 1, isPlain);
}

void AppendBytes(std::wstring& text, const SettingsValue& value)
{
    const std::size_t lineStart = text.rfind(L'\n') + 1;
    text += L"hex";
    if (value.type != CRegUtil::kTypeBinary)
    {
        text += L'(';
        int shift = 28;
        while (shift > 0 && value.type >> shift == 0)
            shift -= 4;
        for (; shift >= 0; shift -= 4)
            text += kDigits[value.type >> shift & 15];
        text += L')';
    }
    text += L':';
    std::size_t column = text.size() - lineStart;
    for (std::size_t i = 0; i < value.data.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(value.data[i]);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
        if (i + 1 == value.data.size())
            return;
        text += L',';
        column += 3;
        if (column >= kLongestLine - 1)
        {
            text += L"\\\r\n  ";
            column = 2;
        }
    }
}

void AppendValue(std::wstring& text, const SettingsTreeValue& entry)
{
    if (entry.name.empty())
        text += L'@';
    else
        AppendQuoted(text, entry.name);
    text += L'=';
    CXTString<wchar_t> plain;
    if (entry.value.type == CRegUtil::kTypeInt && entry.value.data.size() == 4)
    {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(entry.value.data.data());
        const auto number = tev::LoadLittleEndian<unsigned>(bytes);
        text += L"dword:";
        for (int shift = 28; shift >= 0; shift -= 4)
            text += kDigits[number >> shift & 15];
    }
    else if (IsPlainText(entry.value, plain))
        AppendQuoted(text, tev::ViewOf(plain).substr(0, tev::ViewOf(plain).size() - 1));
    else
        AppendBytes(text, entry.value);
    text += kLineEnd;
}

// A line end in a name cannot be escaped, and would make the rest of the name a line of its own.
bool CanBeWritten(const KeyPath& key, const std::vector<SettingsTreeKey>& tree)
{
    const auto hasLineEnd = [](const std::wstring& path) { return path.find_first_of(L"\r\n") != path.npos; };
    return !hasLineEnd(key.m_path) &&
           std::none_of(tree.begin(), tree.end(), [&](const SettingsTreeKey& read) { return hasLineEnd(read.path); });
}

/// Hands out the text piece by piece.
template <class Take>
void WriteTree(const KeyPath& key, const std::vector<SettingsTreeKey>& tree, Take take)
{
    std::wstring text = L"Windows Registry Editor Version 5.00";
    text.append(kLineEnd);
    for (const SettingsTreeKey& read : tree)
    {
        text.append(kLineEnd).append(L"[").append(key.m_rootName);
        for (const std::wstring* const part : {&key.m_path, &read.path})
        {
            if (!part->empty())
                text.append(L"\\").append(*part);
        }
        text.append(L"]").append(kLineEnd);
        for (const SettingsTreeValue& value : read.values)
            AppendValue(text, value);
        take(text);
        text.clear();
    }
    take(std::wstring(kLineEnd));
}

CXTString<char> Encoded(std::wstring_view text, xStringEncoding encoding)
{
    CXTString<char> encoded;
    static_cast<void>(XEncodeText(text.data(), text.size(), encoding, encoded));
    return encoded;
}

void WriteText(CXFile& file, const std::wstring& text, xStringEncoding encoding)
{
    const CXTString<char> encoded = Encoded(text, encoding);
    std::string_view bytes = tev::ViewOf(encoded);
    constexpr std::size_t kLargestPiece = std::numeric_limits<int>::max();
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kLargestPiece)))
        file.Write(bytes.data(), static_cast<unsigned>(std::min(bytes.size(), kLargestPiece)));
}
} // namespace

bool XExportRegistry(const CXTString<wchar_t>& path, CXFile& file, xStringEncoding encoding, int& systemError)
{
    const KeyPath key(path.GetConstBuffer());
    std::vector<SettingsTreeKey> tree;
    unsigned error = tev::ReadSettingsTree(key.m_root, key.m_path.c_str(), tree);
    if (error == 0 && !CanBeWritten(key, tree))
        error = tev::platform::kInvalidData;
    systemError = static_cast<int>(error);
    if (error != 0)
        return tev::NoteSystemError("XExportRegistry", error, path);
    const xStringEncoding written = encoding == xEncodingUtf16 ? xEncodingUtf16 : xEncodingUtf8;
    if (written == xEncodingUtf16)
        WriteText(file, L"\uFEFF", written);
    WriteTree(key, tree, [&](const std::wstring& text) { WriteText(file, text, written); });
    return true;
}

// Compared as UTF-16, in which both halves of a pair are one text with the pair.
bool XRemoveRegistryKey(const CXTString<wchar_t>& path, const CXTString<wchar_t>& expected, int& systemError)
{
    const KeyPath key(path.GetConstBuffer());
    std::wstring_view text = tev::ViewOf(expected);
    if (!text.empty() && text.front() == L'\uFEFF')
        text.remove_prefix(1);
    const CXTString<char> encoded = Encoded(text, xEncodingUtf16);
    const unsigned error =
        tev::DeleteSettingsTree(key.m_root, key.m_path.c_str(), [&](const std::vector<SettingsTreeKey>& tree) {
            std::string_view left = tev::ViewOf(encoded);
            bool isEqual = CanBeWritten(key, tree);
            WriteTree(key, tree, [&](const std::wstring& piece) {
                const CXTString<char> bytes = Encoded(piece, xEncodingUtf16);
                const std::string_view next = tev::ViewOf(bytes);
                isEqual = isEqual && left.substr(0, next.size()) == next;
                left.remove_prefix(isEqual ? next.size() : 0);
            });
            return isEqual && left.empty();
        });
    systemError = static_cast<int>(error);
    return error == 0 || tev::NoteSystemError("XRemoveRegistryKey", error, path);
}
