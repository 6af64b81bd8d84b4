#include "tools/tev/Json.h"

#include "tools/tev/Tool.h"
#include "values/CXTime.h"

namespace tev::tool
{
namespace
{
constexpr char kDigits[] = "0123456789abcdef";
constexpr const char* kReplacement = "\xEF\xBF\xBD";

std::string Escaped(char c)
{
    if (c == '"' || c == '\\')
        return {'\\', c};
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 ? std::string("\\u00") + kDigits[code >> 4] + kDigits[code & 15] : std::string(1, c);
}

std::string QuotedJson(std::string_view text)
{
    std::string quoted = "\"";
    while (!text.empty())
    {
        const std::size_t length = CharacterLength(text);
        if (length == 0)
            quoted += kReplacement;
        else if (length == 1)
            quoted += Escaped(text.front());
        else
            quoted += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return quoted + "\"";
}

std::string JoinedJson(const std::vector<std::string>& parts)
{
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ", ") + part;
    return text;
}
} // namespace

Json::Json(std::string_view text) : m_text(QuotedJson(text)) {}

Json::Json(const CXTString<wchar_t>& text) : Json(Narrow(text)) {}

Json Json::Number(const std::string& digits)
{
    Json number(digits);
    if (digits.find_first_of("in") == digits.npos) // inf, nan
        number.m_text = digits;
    return number;
}

Json Json::Object(const Members& members)
{
    std::vector<std::string> parts;
    for (const auto& [name, value] : members)
        parts.push_back("\"" + std::string(name) + "\": " + value.m_text);
    Json object;
    object.m_text = "{" + JoinedJson(parts) + "}";
    return object;
}

Json Json::List(const std::vector<Json>& items)
{
    std::vector<std::string> parts;
    parts.reserve(items.size());
    for (const Json& item : items)
        parts.push_back(item.m_text);
    Json list;
    list.m_text = "[" + JoinedJson(parts) + "]";
    return list;
}

std::string Hexadecimal(const unsigned char* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        (text += kDigits[bytes[i] >> 4]) += kDigits[bytes[i] & 15];
    return text;
}

std::string IsoTime(__int64 seconds)
{
    return Narrow(CXTime(seconds).FormatGmt(L"%Y-%m-%dT%H:%M:%SZ"));
}

} // namespace tev::tool
