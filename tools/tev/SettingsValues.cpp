#include "tools/tev/SettingsValues.h"

#include "tools/tev/Tool.h"
#include "values/CXTime.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <type_traits>

namespace tev::tool
{
namespace
{
using Texts = std::vector<std::string>;

/// Something that is set from one text.
const std::string& OnlyText(const Texts& texts)
{
    if (texts.size() != 1)
        throw Failure("value", "one is needed for this kind");
    return texts.front();
}

template <class T>
std::string NumberText(T value)
{
    char digits[64];
    return std::string(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

template <class T>
T ParseNumber(const std::string& text)
{
    T value = T();
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc::result_out_of_range)
        throw Failure(text, "is out of the range of this kind");
    if (error != std::errc() || stop != end)
        throw Failure(text, "is no number of this kind");
    return value;
}

// Characters are numbers here.
template <class T>
using NumberOf = std::conditional_t<sizeof(T) == 1, int, T>;

template <class T, bool (CCustomData::*GET)(unsigned, T&, T) const>
std::string GetNumber(const CCustomData& store, unsigned id)
{
    T value = T();
    (store.*GET)(id, value, T());
    return NumberText(static_cast<NumberOf<T>>(value));
}

template <class T, bool (CCustomData::*SET)(unsigned, T)>
bool SetNumber(CCustomData& store, unsigned id, const Texts& texts)
{
    const auto number = ParseNumber<NumberOf<T>>(OnlyText(texts));
    const T value = static_cast<T>(number);
    if (static_cast<NumberOf<T>>(value) != number && number == number)
        throw Failure(texts.front(), "is out of the range of this kind");
    return (store.*SET)(id, value);
}

// `long` carries 32 bits of value.
template <class T, class LONG, bool (CCustomData::*SET)(unsigned, LONG)>
bool SetShortLong(CCustomData& store, unsigned id, const Texts& texts)
{
    return (store.*SET)(id, ParseNumber<T>(OnlyText(texts)));
}

std::string GetBool(const CCustomData& store, unsigned id)
{
    bool value = false;
    store.GetBool(id, value, false);
    return value ? "true" : "false";
}

bool SetBool(CCustomData& store, unsigned id, const Texts& texts)
{
    const std::string& text = OnlyText(texts);
    if (text != "true" && text != "false")
        throw Failure(text, "is neither true nor false");
    return store.SetBool(id, text == "true");
}

std::string GetWideText(const CCustomData& store, unsigned id)
{
    CXTString<wchar_t> text;
    store.GetStringW(id, text, nullptr);
    return Narrow(text);
}

bool SetWideText(CCustomData& store, unsigned id, const Texts& texts)
{
    return store.SetStringW(id, Widen(OnlyText(texts)).c_str());
}

std::string GetNarrowText(const CCustomData& store, unsigned id)
{
    CXTString<char> text;
    store.GetStringA(id, text, nullptr);
    return std::string(text.GetConstBuffer());
}

bool SetNarrowText(CCustomData& store, unsigned id, const Texts& texts)
{
    return store.SetStringA(id, OnlyText(texts).c_str());
}

Texts ListOf(const CCustomData& store, unsigned id)
{
    std::vector<CXTString<wchar_t>> strings;
    store.GetStringList(id, strings);
    Texts texts;
    for (const CXTString<wchar_t>& string : strings)
        texts.push_back(Narrow(string));
    return texts;
}

std::string GetList(const CCustomData& store, unsigned id)
{
    std::string lines;
    for (const std::string& text : ListOf(store, id))
        lines += (lines.empty() ? "" : "\n") + text;
    return lines;
}

bool SetList(CCustomData& store, unsigned id, const Texts& texts)
{
    std::vector<CXTString<wchar_t>> strings;
    for (const std::string& text : texts)
        strings.emplace_back(Widen(text).c_str());
    return store.SetStringList(id, strings);
}

std::string GetTime(const CCustomData& store, unsigned id)
{
    CXTime time;
    store.GetXTime(id, time, time);
    return NumberText(time.GetTime());
}

bool SetTime(CCustomData& store, unsigned id, const Texts& texts)
{
    return store.SetXTime(id, ParseNumber<__int64>(OnlyText(texts)));
}

std::string GetUtcFields(const CCustomData& store, unsigned id)
{
    struct tm time = {};
    store.GetUTCTime(id, time, time);
    CXTString<char> text;
    text.Format("%I64d-%02I64d-%02dT%02d:%02d:%02dZ", 1900LL + time.tm_year, time.tm_mon + 1LL, time.tm_mday,
                time.tm_hour, time.tm_min, time.tm_sec);
    return text.GetConstBuffer();
}

std::string GetBytes(const CCustomData& store, unsigned id)
{
    unsigned size = 0;
    const auto* bytes = static_cast<const unsigned char*>(store.GetCustomPtr(id, size));
    return Hexadecimal(bytes, size);
}

bool SetBytes(CCustomData& store, unsigned id, const Texts& texts)
{
    const std::string& text = OnlyText(texts);
    std::vector<unsigned char> bytes;
    for (std::size_t at = 0; at < text.size(); at += 2)
    {
        unsigned char byte = 0;
        const char* const pair = text.data() + at;
        if (at + 2 > text.size() || std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2)
            throw Failure(text, "is no list of bytes of two hexadecimal digits each");
        bytes.push_back(byte);
    }
    return store.SetBinary(id, bytes.data(), static_cast<unsigned>(bytes.size()));
}

std::string GetStore(const CCustomData& store, unsigned id)
{
    CCustomData within;
    if (!store.GetCustomData(id, within))
        return "damaged";
    return std::to_string(within.GetIDCount()) + (within.GetIDCount() == 1 ? " value" : " values");
}

/// How a value stands in JSON.
enum class JsonForm
{
    kNumber,
    kBool,
    kText,
    kList,
    kStore
};

struct KindRow
{
    CCustomData::Kind m_kind;
    JsonForm m_json;
    const char* m_name;
    std::string (*m_get)(const CCustomData& store, unsigned id);
    bool (*m_set)(CCustomData& store, unsigned id, const Texts& texts); ///< null where it cannot be set
};

constexpr KindRow kKindRows[] = {
    {CCustomData::kInt, JsonForm::kNumber, "int", GetNumber<int, &CCustomData::GetInt>,
     SetNumber<int, &CCustomData::SetInt>},
    {CCustomData::kUInt, JsonForm::kNumber, "uint", GetNumber<unsigned, &CCustomData::GetUInt>,
     SetNumber<unsigned, &CCustomData::SetUInt>},
    {CCustomData::kLong, JsonForm::kNumber, "long", GetNumber<long, &CCustomData::GetLong>,
     SetShortLong<int, long, &CCustomData::SetLong>},
    {CCustomData::kULong, JsonForm::kNumber, "ulong", GetNumber<unsigned long, &CCustomData::GetULong>,
     SetShortLong<unsigned, unsigned long, &CCustomData::SetULong>},
    {CCustomData::kLongInt, JsonForm::kNumber, "int64", GetNumber<__int64, &CCustomData::GetLongInt>,
     SetNumber<__int64, &CCustomData::SetLongInt>},
    {CCustomData::kULongInt, JsonForm::kNumber, "uint64", GetNumber<unsigned __int64, &CCustomData::GetULongInt>,
     SetNumber<unsigned __int64, &CCustomData::SetULongInt>},
    {CCustomData::kChar, JsonForm::kNumber, "char", GetNumber<char, &CCustomData::GetChar>,
     SetNumber<char, &CCustomData::SetChar>},
    {CCustomData::kUChar, JsonForm::kNumber, "uchar", GetNumber<unsigned char, &CCustomData::GetUChar>,
     SetNumber<unsigned char, &CCustomData::SetUChar>},
    {CCustomData::kBool, JsonForm::kBool, "bool", GetBool, SetBool},
    {CCustomData::kFloat, JsonForm::kNumber, "float", GetNumber<float, &CCustomData::GetFloat>,
     SetNumber<float, &CCustomData::SetFloat>},
    {CCustomData::kDouble, JsonForm::kNumber, "double", GetNumber<double, &CCustomData::GetDouble>,
     SetNumber<double, &CCustomData::SetDouble>},
    {CCustomData::kStringW, JsonForm::kText, "text", GetWideText, SetWideText},
    {CCustomData::kStringA, JsonForm::kText, "ansi", GetNarrowText, SetNarrowText},
    {CCustomData::kStringList, JsonForm::kList, "list", GetList, SetList},
    {CCustomData::kXTime, JsonForm::kNumber, "time", GetTime, SetTime},
    {CCustomData::kUTCTime, JsonForm::kText, "utc", GetUtcFields, nullptr},
    {CCustomData::kBinary, JsonForm::kText, "binary", GetBytes, SetBytes},
    {CCustomData::kArray, JsonForm::kText, "array", GetBytes, nullptr},
    {CCustomData::kPtr, JsonForm::kText, "pointer", GetBytes, nullptr},
    {CCustomData::kCustomData, JsonForm::kStore, "store", GetStore, nullptr},
};

/// Values of other kinds are shown as bytes.
constexpr KindRow kOtherKind = {CCustomData::kAnyKind, JsonForm::kText, nullptr, GetBytes, nullptr};

const KindRow& RowOf(unsigned kind)
{
    const auto* found = std::find_if(std::begin(kKindRows), std::end(kKindRows),
                                     [kind](const KindRow& row) { return row.m_kind == kind; });
    return found == std::end(kKindRows) ? kOtherKind : *found;
}

} // namespace

std::string KindName(unsigned kind)
{
    const KindRow& row = RowOf(kind);
    if (row.m_name != nullptr)
        return row.m_name;
    std::string code;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const char character = static_cast<char>(kind >> shift);
        code += character >= ' ' && character <= '~' ? character : '?';
    }
    return "'" + code + "'";
}

std::string SettableKinds()
{
    std::string names;
    for (const KindRow& row : kKindRows)
    {
        if (row.m_set != nullptr)
            names += (names.empty() ? "" : ", ") + std::string(row.m_name);
    }
    return names;
}

std::string ValueText(const CCustomData& store, unsigned id)
{
    return RowOf(store.GetDataKindOf(id)).m_get(store, id);
}

Json ValueJson(const CCustomData& store, unsigned id, int depth)
{
    const KindRow& row = RowOf(store.GetDataKindOf(id));
    if (row.m_json == JsonForm::kStore)
    {
        CCustomData within;
        return depth < kDeepestStore && store.GetCustomData(id, within) ? StoreJson(within, depth + 1) : Json();
    }
    if (row.m_json == JsonForm::kList)
        return Json::ListOf(ListOf(store, id));
    const std::string text = row.m_get(store, id);
    if (row.m_json == JsonForm::kBool)
        return text == "true";
    return row.m_json == JsonForm::kNumber ? Json::Number(text) : Json(text);
}

Json StoreJson(const CCustomData& store, int depth)
{
    std::vector<Json> values;
    unsigned kind = 0;
    for (unsigned index = 0; index < store.GetIDCount(); ++index)
    {
        const unsigned id = store.GetIDByIndex(index, kind);
        values.push_back(Json::Object({{"id", id},
                                       {"kind", KindName(kind)},
                                       {"size", store.GetDataSize(id)},
                                       {"value", ValueJson(store, id, depth)}}));
    }
    return Json::List(values);
}

void SetValue(CCustomData& store, unsigned id, const std::string& kind, const std::vector<std::string>& texts)
{
    const auto* row = std::find_if(std::begin(kKindRows), std::end(kKindRows),
                                   [&](const KindRow& candidate) { return candidate.m_name == kind; });
    if (row == std::end(kKindRows) || row->m_set == nullptr)
        throw Failure(kind, "is no kind that can be set; there are " + SettableKinds());
    if (!row->m_set(store, id, texts))
        throw Failure("value", LastFailureText());
}

} // namespace tev::tool
