#pragma once

#include "text/CXTString.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tev::tool
{

/// A value in JSON's own text. It is valid whatever the value holds: bytes that are no UTF-8 stand as U+FFFD, lone
/// surrogates as '?', infinities and NaN as texts.
class Json
{
public:
    /// null
    Json() : m_text("null") {}
    Json(std::string_view text);
    Json(const std::string& text) : Json(std::string_view(text)) {}
    Json(const char* text) : Json(std::string_view(text)) {}
    Json(const CXTString<wchar_t>& text);
    template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
    Json(Number number) : m_text(std::to_string(number))
    {
    }
    Json(bool truth) : m_text(truth ? "true" : "false") {}
    /// A number as std::to_chars writes it.
    static Json Number(const std::string& digits);

    using Members = std::vector<std::pair<const char*, Json>>;
    static Json Object(const Members& members);
    static Json List(const std::vector<Json>& items);
    /// A list of an item for each of some values.
    template <class Values, class MakeItem>
    static Json ListOf(const Values& values, const MakeItem& makeItem)
    {
        std::vector<Json> items;
        items.reserve(values.size());
        for (const auto& value : values)
            items.push_back(makeItem(value));
        return List(items);
    }
    template <class Values>
    static Json ListOf(const Values& values)
    {
        return ListOf(values, [](const auto& value) { return Json(value); });
    }

    const std::string& Text() const noexcept { return m_text; }
    std::string Line() const { return m_text + "\n"; }

private:
    std::string m_text;
};

/// Bytes as pairs of hexadecimal digits, as JSON has no binary values.
std::string Hexadecimal(const unsigned char* bytes, std::size_t count);

/// A time in seconds since 1970 as ISO 8601 has it, in UTC.
std::string IsoTime(__int64 seconds);

} // namespace tev::tool
