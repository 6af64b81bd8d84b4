#include "base/LittleEndian.h"
#include "objects/FailureNote.h"
#include "platform/SystemErrors.h"
#include "settings/CRegUtil.h"
#include "settings/RegistryText.h"
#include "settings/engine/SettingsStore.h"
#include "text/MessageTexts.h"
#include "text/TextView.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
using namespace std::string_view_literals;
using tev::SettingsChange;

constexpr wchar_t kByteOrderMark = 0xFEFF;
constexpr std::wstring_view kBlanks = L" \t";
constexpr std::wstring_view kLineEnds = L"\r\n";

int HexDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9'   ? c - L'0'
           : c >= L'a' && c <= L'f' ? c - L'a' + 10
           : c >= L'A' && c <= L'F' ? c - L'A' + 10
                                    : -1;
}

wchar_t UpperAscii(wchar_t c)
{
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 32) : c;
}

std::wstring UpperAscii(std::wstring_view text)
{
    std::wstring upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), [](wchar_t c) { return UpperAscii(c); });
    return upper;
}

/// A text as the registry holds it.
std::string StoredBytes(std::wstring text)
{
    text += L'\0';
    CXTString<char> bytes;
    static_cast<void>(XEncodeText(text.data(), text.size(), xEncodingUtf16, bytes));
    return std::string(tev::ViewOf(bytes));
}

/// Ends a text, unless it has no bytes at all.
void AddTerminator(std::string& data)
{
    if (data.size() % 2 != 0)
        data += '\0';
    if (!data.empty() && (data[data.size() - 2] != '\0' || data.back() != '\0'))
        data.append(2, '\0');
}

/// Takes a text apart into changes of the registry, up to its first fault.
class Parser
{
public:
    explicit Parser(std::wstring_view text) : m_rest(text) {}

    XRegistryFault Parse();

    int Line() const noexcept { return m_line; }
    const std::vector<SettingsChange>& Changes() const noexcept { return m_changes; }
    int LineOf(std::size_t change) const { return m_lines[change]; }

private:
    bool AtEnd() const noexcept { return m_rest.empty(); }
    /// The next character, NUL at the end: Parse refuses texts that contain NUL.
    wchar_t Peek() const noexcept { return m_rest.empty() ? L'\0' : m_rest.front(); }
    void Skip(std::size_t count) { m_rest.remove_prefix(count); }
    void SkipBlanks() { Skip(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size())); }
    bool SkipLineEnd();
    void SkipToText();
    bool Take(std::wstring_view word);
    std::wstring_view TakeLine();
    bool EndOfValue();

    bool ParseHeader();
    XRegistryFault ParseKey();
    bool ParseValue();
    bool ParseData(SettingsChange& change);
    bool ParseQuoted(std::wstring& text);
    bool ParseInt(SettingsChange& change);
    bool ParseBytes(SettingsChange& change);
    bool ParseHexNumber(std::size_t mostDigits, unsigned& number);
    bool ParseByteList(std::string& data);
    bool SkipContinuation();
    void Add(SettingsChange change);

    std::wstring_view m_rest;
    int m_line = 1;
    bool m_isAnsi = false; // the bytes of texts are in the ANSI code page
    bool m_hasKey = false;
    SettingsChange m_key; // the one whose values follow
    std::vector<SettingsChange> m_changes;
    std::vector<int> m_lines;
};

XRegistryFault Parser::Parse()
{
    if (m_rest.find(L'\0') != m_rest.npos)
    {
        m_line += static_cast<int>(std::count(m_rest.begin(), m_rest.begin() + m_rest.find(L'\0'), L'\n'));
        return XRegistryFault::Value;
    }
    if (Peek() == kByteOrderMark)
        Skip(1);
    if (!ParseHeader())
        return XRegistryFault::Header;
    for (SkipToText(); !AtEnd(); SkipToText())
    {
        XRegistryFault fault = XRegistryFault::None;
        if (Peek() == L';')
            TakeLine();
        else if (Peek() == L'[')
            fault = ParseKey();
        else if (!m_hasKey)
            fault = XRegistryFault::NoKey;
        else if (!ParseValue())
            fault = XRegistryFault::Value;
        if (fault != XRegistryFault::None)
            return fault;
    }
    return XRegistryFault::None;
}

bool Parser::SkipLineEnd()
{
    if (AtEnd() || kLineEnds.find(Peek()) == kLineEnds.npos)
        return false;
    Skip(m_rest.substr(0, 2) == L"\r\n"sv ? 2 : 1);
    ++m_line;
    return true;
}

void Parser::SkipToText()
{
    do
        SkipBlanks();
    while (SkipLineEnd());
}

bool Parser::Take(std::wstring_view word)
{
    const auto isSame = [](wchar_t a, wchar_t b) { return UpperAscii(a) == UpperAscii(b); };
    if (m_rest.size() < word.size() || !std::equal(word.begin(), word.end(), m_rest.begin(), isSame))
        return false;
    Skip(word.size());
    return true;
}

/// Takes the rest of the line, and returns it without trailing blanks.
std::wstring_view Parser::TakeLine()
{
    const std::wstring_view line = m_rest.substr(0, m_rest.find_first_of(kLineEnds));
    Skip(line.size());
    return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

bool Parser::EndOfValue()
{
    SkipBlanks();
    return AtEnd() || Peek() == L';' || kLineEnds.find(Peek()) != kLineEnds.npos;
}

bool Parser::ParseHeader()
{
    SkipToText();
    const std::wstring_view line = m_rest.substr(0, m_rest.find_first_of(kLineEnds));
    const std::wstring_view version = line.substr(0, line.find_last_not_of(kBlanks) + 1);
    m_isAnsi = version == L"REGEDIT4";
    if (!m_isAnsi && version != L"Windows Registry Editor Version 5.00")
        return false;
    TakeLine();
    return true;
}

XRegistryFault Parser::ParseKey()
{
    std::wstring_view line = TakeLine();
    if (line.back() != L']')
        return XRegistryFault::Key;
    line = line.substr(1, line.size() - 2);
    const bool deletes = !line.empty() && line.front() == L'-';
    line.remove_prefix(deletes ? 1 : 0);
    const std::size_t rootEnd = std::min(line.find(L'\\'), line.size());
    HKEY const root = CRegUtil::StrToRootKey(UpperAscii(line.substr(0, rootEnd)).c_str());
    if (root == nullptr)
        return XRegistryFault::Key;
    m_key.root = static_cast<tev::SettingsRoot>(reinterpret_cast<std::uintptr_t>(root));
    m_key.path = line.substr(rootEnd);
    m_key.kind = deletes ? SettingsChange::Kind::DeleteKey : SettingsChange::Kind::CreateKey;
    m_hasKey = !deletes;
    Add(m_key);
    return XRegistryFault::None;
}

bool Parser::ParseValue()
{
    SettingsChange change = m_key;
    if (Peek() == L'@')
        Skip(1);
    else if (!ParseQuoted(change.name))
        return false;
    SkipBlanks();
    if (!Take(L"="))
        return false;
    SkipBlanks();
    change.kind = SettingsChange::Kind::SetValue;
    const int line = m_line;
    if (!ParseData(change) || !EndOfValue())
        return false;
    Add(std::move(change));
    m_lines.back() = line;
    return true;
}

bool Parser::ParseData(SettingsChange& change)
{
    if (Take(L"-"))
    {
        change.kind = SettingsChange::Kind::DeleteValue;
        return true;
    }
    if (Peek() == L'"')
    {
        std::wstring text;
        change.value.type = CRegUtil::kTypeString;
        const bool isGood = ParseQuoted(text);
        change.value.data = StoredBytes(std::move(text));
        return isGood;
    }
    return Take(L"dword:") ? ParseInt(change) : Take(L"hex") && ParseBytes(change);
}

/// The editor of Windows writes line ends within a text as they are.
bool Parser::ParseQuoted(std::wstring& text)
{
    if (!Take(L"\""))
        return false;
    for (;;)
    {
        const std::wstring_view plain = m_rest.substr(0, m_rest.find_first_of(L"\"\\\r\n"));
        text += plain;
        Skip(plain.size());
        if (AtEnd())
            return false;
        if (Take(L"\""))
            return true;
        const std::wstring_view before = m_rest;
        if (SkipLineEnd())
        {
            text += before.substr(0, before.size() - m_rest.size());
            continue;
        }
        Skip(1);
        if (Peek() != L'\\' && Peek() != L'"')
            return false;
        text += Peek();
        Skip(1);
    }
}

bool Parser::ParseHexNumber(std::size_t mostDigits, unsigned& number)
{
    std::size_t digits = 0;
    number = 0;
    for (; HexDigit(Peek()) >= 0 && digits < mostDigits; ++digits)
    {
        number = number << 4 | static_cast<unsigned>(HexDigit(Peek()));
        Skip(1);
    }
    return digits != 0 && HexDigit(Peek()) < 0;
}

bool Parser::ParseInt(SettingsChange& change)
{
    SkipBlanks();
    unsigned number = 0;
    if (!ParseHexNumber(8, number))
        return false;
    change.value.type = CRegUtil::kTypeInt;
    unsigned char bytes[4];
    tev::StoreLittleEndian(bytes, number);
    change.value.data.assign(std::begin(bytes), std::end(bytes));
    return true;
}

bool Parser::ParseBytes(SettingsChange& change)
{
    change.value.type = CRegUtil::kTypeBinary;
    if (Take(L"(") && !(ParseHexNumber(8, change.value.type) && Take(L")")))
        return false;
    if (!Take(L":") || !ParseByteList(change.value.data))
        return false;
    const unsigned type = change.value.type;
    const bool isEnded = type == CRegUtil::kTypeExpandString || type == CRegUtil::kTypeMultiString;
    if (m_isAnsi && (isEnded || type == CRegUtil::kTypeString))
    {
        CXTString<wchar_t> text;
        CXTString<char> bytes;
        if (!XDecodeText(change.value.data.data(), change.value.data.size(), xEncodingAnsi, text) ||
            !XEncodeText(text, static_cast<std::size_t>(text.GetLength64()), xEncodingUtf16, bytes))
            return false;
        change.value.data = tev::ViewOf(bytes);
    }
    if (isEnded)
        AddTerminator(change.value.data);
    return true;
}

/// Two digits each, with commas between them; one may stand behind the last too.
bool Parser::ParseByteList(std::string& data)
{
    for (;;)
    {
        unsigned byte = 0;
        if (!SkipContinuation())
            return false;
        if (HexDigit(Peek()) < 0)
            return true;
        if (!ParseHexNumber(2, byte) || !SkipContinuation())
            return false;
        data += static_cast<char>(byte);
        if (!Take(L","))
            return true;
    }
}

/// A backslash at the end of a line, which may have a comment, continues the list on the next line that is neither empty
/// nor a comment.
bool Parser::SkipContinuation()
{
    for (SkipBlanks(); Peek() == L'\\'; SkipBlanks())
    {
        Skip(1);
        SkipBlanks();
        if (Peek() == L';')
            TakeLine();
        if (!SkipLineEnd() && !AtEnd())
            return false;
        for (SkipToText(); Peek() == L';'; SkipToText())
            TakeLine();
    }
    return true;
}

void Parser::Add(SettingsChange change)
{
    m_changes.push_back(std::move(change));
    m_lines.push_back(m_line);
}
} // namespace

bool XImportRegistry(const CXTString<wchar_t>& text, XRegistryImport& result)
{
    result = {};
    Parser parser(tev::ViewOf(text));
    result.m_fault = parser.Parse();
    if (result.m_fault != XRegistryFault::None)
    {
        result.m_line = parser.Line();
        result.m_systemError = tev::platform::kInvalidData;
        return tev::NoteFailure({"XImportRegistry", XFailureKind::kData, tev::platform::kInvalidData, fileNone,
                                 tev::kTextRegistryFault + static_cast<unsigned>(result.m_fault)});
    }
    std::size_t failed = 0;
    const unsigned error = tev::ChangeSettings(parser.Changes(), failed);
    if (error == tev::kSettingsDone)
        return true;
    result.m_fault = XRegistryFault::Registry;
    result.m_systemError = static_cast<int>(error);
    if (failed < parser.Changes().size())
        result.m_line = parser.LineOf(failed);
    return tev::NoteSystemError("XImportRegistry", error);
}

CXTString<wchar_t> XGetText(XRegistryFault fault, XLanguage language)
{
    return tev::FindMessageText(tev::kTextRegistryFault + std::min(static_cast<unsigned>(fault), 15u), language);
}
