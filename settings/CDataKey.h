#pragma once

#include "settings/CCustomData.h"
#include "values/CXTime.h"

#include <type_traits>
#include <utility>
#include <vector>

namespace tev
{
/// How values of a type lie in a store. A type without this is no type of a key.
template <class T, class = void>
struct StoredAs;

template <class T, unsigned KIND, bool (CCustomData::*SET)(unsigned, T),
          bool (CCustomData::*GET)(unsigned, T&, T) const>
struct StoredAsScalar
{
    using Default = T;
    static constexpr unsigned kKind = KIND;
    static bool Set(CCustomData& store, unsigned id, T value) { return (store.*SET)(id, value); }
    static T Get(const CCustomData& store, unsigned id, T defaultValue)
    {
        T value;
        (store.*GET)(id, value, defaultValue);
        return value;
    }
};

template <>
struct StoredAs<int> : StoredAsScalar<int, CCustomData::kInt, &CCustomData::SetInt, &CCustomData::GetInt>
{
};
template <>
struct StoredAs<unsigned> : StoredAsScalar<unsigned, CCustomData::kUInt, &CCustomData::SetUInt, &CCustomData::GetUInt>
{
};
template <>
struct StoredAs<__int64>
    : StoredAsScalar<__int64, CCustomData::kLongInt, &CCustomData::SetLongInt, &CCustomData::GetLongInt>
{
};
template <>
struct StoredAs<unsigned __int64>
    : StoredAsScalar<unsigned __int64, CCustomData::kULongInt, &CCustomData::SetULongInt, &CCustomData::GetULongInt>
{
};
template <>
struct StoredAs<char> : StoredAsScalar<char, CCustomData::kChar, &CCustomData::SetChar, &CCustomData::GetChar>
{
};
template <>
struct StoredAs<unsigned char>
    : StoredAsScalar<unsigned char, CCustomData::kUChar, &CCustomData::SetUChar, &CCustomData::GetUChar>
{
};
template <>
struct StoredAs<float> : StoredAsScalar<float, CCustomData::kFloat, &CCustomData::SetFloat, &CCustomData::GetFloat>
{
};
template <>
struct StoredAs<double> : StoredAsScalar<double, CCustomData::kDouble, &CCustomData::SetDouble, &CCustomData::GetDouble>
{
};

template <>
struct StoredAs<bool>
{
    using Default = bool;
    static constexpr unsigned kKind = CCustomData::kBool;
    static bool Set(CCustomData& store, unsigned id, bool value) { return store.SetBool(id, value ? 1 : 0); }
    static bool Get(const CCustomData& store, unsigned id, bool defaultValue)
    {
        bool value = false;
        store.GetBool(id, value, defaultValue);
        return value;
    }
};

/// Enumerations lie there as the integers that they are.
template <class T>
struct StoredAs<T, std::enable_if_t<std::is_enum_v<T>>>
{
    using Default = T;
    using Integer = StoredAs<std::underlying_type_t<T>>;
    static constexpr unsigned kKind = Integer::kKind;
    static bool Set(CCustomData& store, unsigned id, T value)
    {
        return Integer::Set(store, id, static_cast<std::underlying_type_t<T>>(value));
    }
    static T Get(const CCustomData& store, unsigned id, T defaultValue)
    {
        return static_cast<T>(Integer::Get(store, id, static_cast<std::underlying_type_t<T>>(defaultValue)));
    }
};

template <class CHAR, unsigned KIND, bool (CCustomData::*SET)(unsigned, const CXTString<CHAR>&),
          bool (CCustomData::*GET)(unsigned, CXTString<CHAR>&, const CXTString<CHAR>&) const>
struct StoredAsText
{
    using Default = const CHAR*; ///< a constant; null is the empty text
    static constexpr unsigned kKind = KIND;
    static bool Set(CCustomData& store, unsigned id, const CXTString<CHAR>& value) { return (store.*SET)(id, value); }
    static CXTString<CHAR> Get(const CCustomData& store, unsigned id, const CHAR* defaultValue)
    {
        CXTString<CHAR> value;
        (store.*GET)(id, value, CXTString<CHAR>(defaultValue));
        return value;
    }
};
template <>
struct StoredAs<CXTString<wchar_t>>
    : StoredAsText<wchar_t, CCustomData::kStringW, &CCustomData::SetStringW, &CCustomData::GetStringW>
{
};
template <>
struct StoredAs<CXTString<char>>
    : StoredAsText<char, CCustomData::kStringA, &CCustomData::SetStringA, &CCustomData::GetStringA>
{
};

template <>
struct StoredAs<std::vector<CXTString<wchar_t>>>
{
    struct Default ///< the empty list
    {
    };
    static constexpr unsigned kKind = CCustomData::kStringList;
    static bool Set(CCustomData& store, unsigned id, const std::vector<CXTString<wchar_t>>& value)
    {
        return store.SetStringList(id, value);
    }
    static std::vector<CXTString<wchar_t>> Get(const CCustomData& store, unsigned id, Default)
    {
        std::vector<CXTString<wchar_t>> value;
        store.GetStringList(id, value);
        return value;
    }
};

template <>
struct StoredAs<CXTime>
{
    using Default = __int64; ///< seconds since 1970
    static constexpr unsigned kKind = CCustomData::kXTime;
    static bool Set(CCustomData& store, unsigned id, const CXTime& value) { return store.SetXTime(id, value); }
    static CXTime Get(const CCustomData& store, unsigned id, __int64 defaultValue)
    {
        CXTime value;
        store.GetXTime(id, value, defaultValue);
        return value;
    }
};

template <class T, class VALUE>
inline constexpr bool kIsBoolLike = std::is_same_v<T, bool> == std::is_same_v<std::decay_t<VALUE>, bool>;

/// Whether a value is one of a key's kind: converts without a loss, and a bool is nothing but a bool.
template <class T, class VALUE, class = void>
inline constexpr bool kIsValueOf = std::is_same_v<T, double>&& std::is_integral_v<VALUE> && sizeof(VALUE) <= 4 &&
                                   !std::is_same_v<VALUE, bool>;
template <class T, class VALUE>
inline constexpr bool kIsValueOf<T, VALUE, std::void_t<decltype(T{std::declval<const VALUE&>()})>> =
    std::is_convertible_v<const VALUE&, T>&& kIsBoolLike<T, VALUE>;
} // namespace tev

/// The identifier of a value in a store, with the type of the value and its default, as a constant of a program:
///
///     constexpr CDataKey<int> kWidth{1, 800};
///     settings.Set(kWidth, 1280);
///     const int width = settings.Get(kWidth);
///
/// T is int, unsigned int, an integer of 64 bits (__int64), char, unsigned char, bool, float, double, an enumeration over one
/// of the integers, CXTString of either width, CXTime, or std::vector<CXTString<wchar_t>>. A long is of another width on
/// other platforms and no type of a key. The defaults of texts are literals, those of times are seconds.
/// Immutable.
template <class T>
class CDataKey
{
    using Stored = tev::StoredAs<T>;

public:
    using Value = T;
    using Default = typename Stored::Default;
    static constexpr unsigned int kKind = Stored::kKind;

    constexpr explicit CDataKey(unsigned int id, Default defaultValue = Default()) noexcept
        : m_id(id), m_default(defaultValue)
    {
    }

    constexpr unsigned int GetID() const noexcept { return m_id; }
    constexpr Default GetDefault() const noexcept { return m_default; }

private:
    unsigned int m_id;
    Default m_default;
};

template <class T>
T CCustomData::Get(const CDataKey<T>& key) const
{
    return tev::StoredAs<T>::Get(*this, key.GetID(), key.GetDefault());
}

template <class T, class VALUE>
bool CCustomData::Set(const CDataKey<T>& key, const VALUE& value)
{
    static_assert(tev::kIsValueOf<T, VALUE>,
                  "the value is not of the key's kind, or might be changed by its conversion");
    return tev::StoredAs<T>::Set(*this, key.GetID(), static_cast<const T&>(value));
}

template <class T>
bool CCustomData::Has(const CDataKey<T>& key) const
{
    return GetDataKindOf(key.GetID()) == key.kKind;
}

template <class T>
bool CCustomData::Remove(const CDataKey<T>& key)
{
    return RemoveCustom(key.GetID());
}
