#include "tools/tev/RegistryValues.h"

#include "base/LittleEndian.h"
#include "settings/CRegUtil.h"
#include "text/TextEncoding.h"
#include "tools/tev/Tool.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace tev::tool
{
namespace
{
constexpr std::size_t kBytesInALine = 32;

struct TypeName
{
    unsigned long m_type;
    const char* m_name;
};
constexpr TypeName kTypes[] = {
    {CRegUtil::kTypeString, "string"}, {CRegUtil::kTypeExpandString, "expand"}, {CRegUtil::kTypeMultiString, "multi"},
    {CRegUtil::kTypeInt, "int"},       {CRegUtil::kTypeInt64, "int64"},         {CRegUtil::kTypeBinary, "binary"},
    {CRegUtil::kTypeNone, "none"},
};

bool IsText(const RegistryValue& value)
{
    return value.m_type == CRegUtil::kTypeString || value.m_type == CRegUtil::kTypeExpandString;
}

bool IsNumber(const RegistryValue& value)
{
    return (value.m_type == CRegUtil::kTypeInt && value.m_data.size() == 4) ||
           (value.m_type == CRegUtil::kTypeInt64 && value.m_data.size() == 8);
}

std::string NumberText(const RegistryValue& value)
{
    const unsigned char* const bytes = value.m_data.data();
    return value.m_data.size() == 4 ? std::to_string(LoadLittleEndian<std::uint32_t>(bytes))
                                    : std::to_string(LoadLittleEndian<std::uint64_t>(bytes));
}

/// The texts of a value: one that ends at its first NUL, or all of a list, which ends with an empty one.
std::vector<std::string> TextsOf(const RegistryValue& value)
{
    CXTString<wchar_t> decoded;
    static_cast<void>(XDecodeText(value.m_data.data(), value.m_data.size() / 2 * 2, xEncodingUtf16, decoded));
    std::wstring_view rest(decoded.GetConstBuffer(), decoded.GetLength64());
    std::vector<std::string> texts;
    const bool isList = value.m_type == CRegUtil::kTypeMultiString;
    do
    {
        const std::wstring_view text = rest.substr(0, rest.find(L'\0'));
        if (isList && text.empty())
            break;
        texts.push_back(Narrow(text.data(), text.size()));
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    } while (isList);
    return texts;
}

void AppendText(std::vector<unsigned char>& data, const std::string& text)
{
    const std::wstring wide = Widen(text);
    CXTString<char> bytes;
    static_cast<void>(XEncodeText(wide.c_str(), wide.size() + 1, xEncodingUtf16, bytes));
    data.insert(data.end(), bytes.GetConstBuffer(), bytes.GetConstBuffer() + bytes.GetLength64());
}

template <class NUMBER, class SIGNED>
std::vector<unsigned char> ParseNumber(const std::string& text)
{
    const bool isNegative = !text.empty() && text.front() == '-';
    std::size_t used = 0;
    try
    {
        if (!text.empty() && text.find_first_of(" \t+") == text.npos)
        {
            const auto number =
                isNegative ? static_cast<unsigned long long>(std::stoll(text, &used, 0)) : std::stoull(text, &used, 0);
            const bool fits = isNegative ? static_cast<long long>(number) >= std::numeric_limits<SIGNED>::min()
                                         : number <= std::numeric_limits<NUMBER>::max();
            std::vector<unsigned char> bytes(sizeof(NUMBER));
            StoreLittleEndian(bytes.data(), static_cast<NUMBER>(number));
            if (used == text.size() && fits)
                return bytes;
        }
    }
    catch (const std::logic_error&) // no number, or one of more than 64 bits
    {
    }
    throw Failure(text, "is no number of " + std::to_string(sizeof(NUMBER) * 8) + " bits");
}

std::vector<unsigned char> ParseHexadecimal(const std::string& text)
{
    std::vector<unsigned char> bytes;
    const bool isGood = text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
    if (!isGood)
        throw Failure(text, "is not made of pairs of hexadecimal digits");
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}
} // namespace

std::string RegistryTypeName(unsigned long type)
{
    for (const TypeName& row : kTypes)
    {
        if (row.m_type == type)
            return row.m_name;
    }
    return std::to_string(type);
}

std::string RegistryTypeNames()
{
    std::string names;
    for (const TypeName& row : kTypes)
        names += (names.empty() ? "" : ", ") + std::string(row.m_name);
    return names;
}

RegistryValue ParseRegistryValue(const std::string& type, const std::vector<std::string>& texts)
{
    const auto* const row = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&](const TypeName& candidate) { return candidate.m_name == type; });
    if (row == std::end(kTypes))
        throw Failure(type, "is no type of values; there are " + RegistryTypeNames());
    RegistryValue value;
    value.m_type = row->m_type;
    if (value.m_type == CRegUtil::kTypeMultiString)
    {
        for (const std::string& text : texts)
        {
            if (text.empty())
                throw Failure(type, "an empty text would end the list");
            AppendText(value.m_data, text);
        }
        AppendText(value.m_data, {});
        return value;
    }
    if (value.m_type == CRegUtil::kTypeNone ? !texts.empty() : texts.size() != 1)
        throw Failure(type, value.m_type == CRegUtil::kTypeNone ? "takes no value" : "takes one value");
    if (IsText(value))
        AppendText(value.m_data, texts.front());
    else if (value.m_type == CRegUtil::kTypeInt)
        value.m_data = ParseNumber<std::uint32_t, std::int32_t>(texts.front());
    else if (value.m_type == CRegUtil::kTypeInt64)
        value.m_data = ParseNumber<std::uint64_t, std::int64_t>(texts.front());
    else if (value.m_type == CRegUtil::kTypeBinary)
        value.m_data = ParseHexadecimal(texts.front());
    return value;
}

std::string RegistryValueText(const RegistryValue& value)
{
    if (IsNumber(value))
        return NumberText(value);
    if (!IsText(value) && value.m_type != CRegUtil::kTypeMultiString)
        return Hexadecimal(value.m_data.data(), value.m_data.size());
    std::string lines;
    for (const std::string& text : TextsOf(value))
        lines += (lines.empty() ? "" : "\n") + text;
    return lines;
}

Json RegistryValueJson(const RegistryValue& value)
{
    if (IsNumber(value))
        return Json::Number(NumberText(value));
    if (IsText(value))
        return TextsOf(value).front();
    if (value.m_type != CRegUtil::kTypeMultiString)
        return Hexadecimal(value.m_data.data(), value.m_data.size());
    return Json::ListOf(TextsOf(value));
}

std::string RegistryValueLine(const RegistryValue& value)
{
    if (IsText(value) || value.m_type == CRegUtil::kTypeMultiString)
        return RegistryValueJson(value).Text();
    if (IsNumber(value))
        return NumberText(value);
    const std::size_t shown = std::min(value.m_data.size(), kBytesInALine);
    return Hexadecimal(value.m_data.data(), shown) + (shown < value.m_data.size() ? "..." : "");
}

} // namespace tev::tool
