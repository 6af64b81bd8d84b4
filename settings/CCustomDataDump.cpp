#include "base/LittleEndian.h"
#include "settings/CCustomData.h"
#include "values/CXTime.h"

#include <algorithm>
#include <iterator>

using tev::LockGuard;
using Text = CXTString<wchar_t>;

namespace
{
constexpr unsigned kShownBytes = 16;
constexpr unsigned kShownStrings = 8;
constexpr int kNestedIndent = 4;
constexpr int kDeepest = 32; // stores within each other
constexpr unsigned kSpelled = 4;

Text SpellKind(unsigned kind)
{
    Text text;
    for (unsigned i = 0; i < kSpelled; ++i)
    {
        const unsigned byte = (kind >> (8 * (kSpelled - 1 - i))) & 0xFF;
        text += byte >= 0x20 && byte < 0x7F ? static_cast<wchar_t>(byte) : L'?';
    }
    return text;
}

template <class T, bool (CCustomData::*GET)(unsigned, T&, T) const>
void AppendNumber(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    T value = T();
    if ((data.*GET)(id, value, T()))
        line.AppendFormat(format, value);
}

void AppendQuoted(const Text& text, Text& line)
{
    line += L'"';
    for (const wchar_t* c = text; *c != L'\0'; ++c)
    {
        if (*c < L' ')
            line.AppendFormat(L"\\x%02X", static_cast<unsigned>(*c));
        else
            line += *c;
    }
    line += L'"';
}

void AppendWide(const CCustomData& data, unsigned id, const wchar_t*, Text& line)
{
    Text text;
    data.GetStringW(id, text, nullptr);
    AppendQuoted(text, line);
}

void AppendNarrow(const CCustomData& data, unsigned id, const wchar_t*, Text& line)
{
    CXTString<char> text;
    data.GetStringA(id, text, nullptr);
    AppendQuoted(text.GetConstBuffer(), line);
}

void AppendList(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    std::vector<Text> strings;
    line.AppendFormat(format, data.GetStringList(id, strings));
    for (std::size_t i = 0; i < std::min<std::size_t>(strings.size(), kShownStrings); ++i)
    {
        line += i == 0 ? L": " : L", ";
        AppendQuoted(strings[i], line);
    }
    if (strings.size() > kShownStrings)
        line += L", ...";
}

void AppendMoment(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    CXTime time;
    data.GetXTime(id, time, time);
    line += time.FormatGmt(format);
}

void AppendFields(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    struct tm time = {};
    data.GetUTCTime(id, time, time);
    line.AppendFormat(format, 1900LL + time.tm_year, time.tm_mon + 1LL, time.tm_mday, time.tm_hour, time.tm_min,
                      time.tm_sec);
}

void AppendBytes(const CCustomData& data, unsigned id, Text& line)
{
    unsigned size = 0;
    const auto* bytes = static_cast<const unsigned char*>(data.GetCustomPtr(id, size));
    for (unsigned i = 0; i < std::min(size, kShownBytes); ++i)
        line.AppendFormat(i == 0 ? L"%02X" : L" %02X", bytes[i]);
    if (size > kShownBytes)
        line += L" ...";
}

void AppendArray(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    unsigned count = 0;
    data.GetArray(id, count);
    line.AppendFormat(format, count);
}

void AppendStore(const CCustomData& data, unsigned id, const wchar_t* format, Text& line)
{
    CCustomData nested;
    const bool isSound = data.GetCustomData(id, nested);
    line.AppendFormat(isSound ? format : L"damaged", nested.GetIDCount());
}

struct KindFormat
{
    CCustomData::Kind m_kind;
    void (*m_append)(const CCustomData& data, unsigned id, const wchar_t* format, Text& line);
    const wchar_t* m_format;
};

constexpr KindFormat kFormats[] = {
    {CCustomData::kInt, AppendNumber<int, &CCustomData::GetInt>, L"%d"},
    {CCustomData::kUInt, AppendNumber<unsigned, &CCustomData::GetUInt>, L"%u"},
    {CCustomData::kLong, AppendNumber<long, &CCustomData::GetLong>, L"%ld"},
    {CCustomData::kULong, AppendNumber<unsigned long, &CCustomData::GetULong>, L"%lu"},
    {CCustomData::kLongInt, AppendNumber<__int64, &CCustomData::GetLongInt>, L"%I64d"},
    {CCustomData::kULongInt, AppendNumber<unsigned __int64, &CCustomData::GetULongInt>, L"%I64u"},
    {CCustomData::kChar, AppendNumber<char, &CCustomData::GetChar>, L"%hhd"},
    {CCustomData::kUChar, AppendNumber<unsigned char, &CCustomData::GetUChar>, L"%hhu"},
    {CCustomData::kBool, AppendNumber<int, &CCustomData::GetBool>, L"%d"},
    {CCustomData::kFloat, AppendNumber<float, &CCustomData::GetFloat>, L"%.9g"},
    {CCustomData::kDouble, AppendNumber<double, &CCustomData::GetDouble>, L"%.17g"},
    {CCustomData::kStringW, AppendWide, nullptr},
    {CCustomData::kStringA, AppendNarrow, nullptr},
    {CCustomData::kStringList, AppendList, L"%u strings"},
    {CCustomData::kXTime, AppendMoment, L"%Y-%m-%d %H:%M:%S UTC"},
    {CCustomData::kUTCTime, AppendFields, L"%I64d-%02I64d-%02d %02d:%02d:%02d UTC"},
    {CCustomData::kArray, AppendArray, L"%u elements"},
    {CCustomData::kCustomData, AppendStore, L"%u values"},
};

void AppendValue(const CCustomData& data, unsigned id, unsigned kind, Text& line)
{
    const auto* found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                     [kind](const KindFormat& format) { return format.m_kind == kind; });
    if (found != std::end(kFormats))
        found->m_append(data, id, found->m_format, line);
    else
        AppendBytes(data, id, line);
}

void AppendStore(const CCustomData& data, bool nested, int indent, int depth, Text& dump)
{
    unsigned kind = 0;
    const unsigned count = data.GetIDCount();
    for (unsigned i = 0; i < count; ++i)
    {
        const unsigned id = data.GetIDByIndex(i, kind);
        dump += Text(L' ', std::max(indent, 0));
        dump.AppendFormat(L"%08X \"%s\" %u: ", id, SpellKind(kind).GetConstBuffer(), data.GetDataSize(id));
        AppendValue(data, id, kind, dump);
        dump += L'\n';
        CCustomData within;
        if (nested && kind == CCustomData::kCustomData && depth < kDeepest && data.GetCustomData(id, within))
            AppendStore(within, nested, indent + kNestedIndent, depth + 1, dump);
    }
}
} // namespace

CXTString<wchar_t> CCustomData::DumpCustomData(bool nested, int indent) const
{
    const LockGuard lock(m_lock);
    Text dump;
    AppendStore(*this, nested, indent, 0, dump);
    return dump;
}
