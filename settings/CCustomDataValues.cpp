// Values of fixed size.

#include "objects/CXException.h"
#include "settings/CCustomData.h"
#include "settings/CustomDataChunk.h"
#include "settings/StoreChange.h"
#include "values/CXTime.h"

#include <cstdint>
#include <cstring>
#include <limits>

using tev::LockGuard;

namespace
{
constexpr unsigned kTimeFields = 9; // the C library's broken-down time, in the order of its fields
constexpr unsigned kTimeSize = kTimeFields * 4;
constexpr int std::tm::*kFields[kTimeFields] = {&std::tm::tm_sec,  &std::tm::tm_min,  &std::tm::tm_hour,
                                                &std::tm::tm_mday, &std::tm::tm_mon,  &std::tm::tm_year,
                                                &std::tm::tm_wday, &std::tm::tm_yday, &std::tm::tm_isdst};

// A long has 32 or 64 bits depending on the platform; 32 of them are stored.
template <class Stored, class Long>
Stored Narrowed(Long value)
{
    if (value < std::numeric_limits<Stored>::min() || value > std::numeric_limits<Stored>::max())
        CXInvalidArgException::Throw();
    return static_cast<Stored>(value);
}

template <class Stored, class Out>
bool Widened(bool found, Stored value, Out& out, Out defaultValue)
{
    out = found ? static_cast<Out>(value) : defaultValue;
    return found;
}
} // namespace

template <class T>
bool CCustomData::SetScalar(unsigned id, T value, unsigned kind)
{
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    unsigned char* target = Place(id, sizeof(T), kind);
    if (target == nullptr)
        return false;
    tev::StoreLittleEndian(target, value);
    return true;
}

template <class T>
bool CCustomData::GetScalar(unsigned id, unsigned kind, T& out, T defaultValue) const
{
    const LockGuard lock(m_lock);
    const unsigned char* data = FindValue(id, sizeof(T), kind);
    out = data == nullptr ? defaultValue : tev::LoadLittleEndian<T>(data);
    return data != nullptr;
}

bool CCustomData::SetInt(unsigned id, int value)
{
    return SetScalar(id, value, kInt);
}

bool CCustomData::GetInt(unsigned id, int& out, int defaultValue) const
{
    return GetScalar(id, kInt, out, defaultValue);
}

bool CCustomData::SetUInt(unsigned id, unsigned value)
{
    return SetScalar(id, value, kUInt);
}

bool CCustomData::GetUInt(unsigned id, unsigned& out, unsigned defaultValue) const
{
    return GetScalar(id, kUInt, out, defaultValue);
}

bool CCustomData::SetLong(unsigned id, long value)
{
    return SetScalar(id, Narrowed<std::int32_t>(value), kLong);
}

bool CCustomData::GetLong(unsigned id, long& out, long defaultValue) const
{
    std::int32_t value = 0;
    const bool found = GetScalar(id, kLong, value, 0);
    return Widened(found, value, out, defaultValue);
}

bool CCustomData::SetULong(unsigned id, unsigned long value)
{
    return SetScalar(id, Narrowed<std::uint32_t>(value), kULong);
}

bool CCustomData::GetULong(unsigned id, unsigned long& out, unsigned long defaultValue) const
{
    std::uint32_t value = 0;
    const bool found = GetScalar(id, kULong, value, 0U);
    return Widened(found, value, out, defaultValue);
}

bool CCustomData::SetLongInt(unsigned id, __int64 value)
{
    return SetScalar(id, value, kLongInt);
}

bool CCustomData::GetLongInt(unsigned id, __int64& out, __int64 defaultValue) const
{
    return GetScalar(id, kLongInt, out, defaultValue);
}

bool CCustomData::SetULongInt(unsigned id, unsigned __int64 value)
{
    return SetScalar(id, value, kULongInt);
}

bool CCustomData::GetULongInt(unsigned id, unsigned __int64& out, unsigned __int64 defaultValue) const
{
    return GetScalar(id, kULongInt, out, defaultValue);
}

bool CCustomData::SetSizet(unsigned id, size_t value)
{
    return SetULongInt(id, value);
}

bool CCustomData::GetSizet(unsigned id, size_t& out, size_t defaultValue) const
{
    unsigned __int64 value = 0;
    const bool found = GetULongInt(id, value, 0);
    return Widened(found, value, out, defaultValue);
}

bool CCustomData::SetChar(unsigned id, char value)
{
    return SetScalar(id, value, kChar);
}

bool CCustomData::GetChar(unsigned id, char& out, char defaultValue) const
{
    return GetScalar(id, kChar, out, defaultValue);
}

bool CCustomData::SetUChar(unsigned id, unsigned char value)
{
    return SetScalar(id, value, kUChar);
}

bool CCustomData::GetUChar(unsigned id, unsigned char& out, unsigned char defaultValue) const
{
    return GetScalar(id, kUChar, out, defaultValue);
}

bool CCustomData::SetBool(unsigned id, int value)
{
    return SetScalar(id, value, kBool);
}

bool CCustomData::GetBool(unsigned id, int& out, int defaultValue) const
{
    int value = 0;
    const bool found = GetScalar(id, kBool, value, 0);
    return Widened(found, value != 0 ? 1 : 0, out, defaultValue);
}

bool CCustomData::GetBool(unsigned id, bool& out, bool defaultValue) const
{
    int value = 0;
    const bool found = GetScalar(id, kBool, value, 0);
    return Widened(found, value != 0, out, defaultValue);
}

bool CCustomData::SetFloat(unsigned id, float value)
{
    return SetScalar(id, value, kFloat);
}

bool CCustomData::GetFloat(unsigned id, float& out, float defaultValue) const
{
    return GetScalar(id, kFloat, out, defaultValue);
}

bool CCustomData::SetDouble(unsigned id, double value)
{
    return SetScalar(id, value, kDouble);
}

bool CCustomData::GetDouble(unsigned id, double& out, double defaultValue) const
{
    return GetScalar(id, kDouble, out, defaultValue);
}

bool CCustomData::SetPtr(unsigned id, const void* value)
{
    return SetScalar(id, static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(value)), kPtr);
}

bool CCustomData::GetPtr(unsigned id, void*& out) const
{
    std::uint64_t value = 0;
    const bool found = GetScalar(id, kPtr, value, std::uint64_t{0});
    out = reinterpret_cast<void*>(static_cast<std::uintptr_t>(value));
    return found;
}

void* CCustomData::GetPtr(unsigned id) const
{
    void* value = nullptr;
    GetPtr(id, value);
    return value;
}

bool CCustomData::SetXTime(unsigned id, const CXTime& value)
{
    return SetScalar(id, value.GetTime(), kXTime);
}

bool CCustomData::GetXTime(unsigned id, CXTime& out, const CXTime& defaultValue) const
{
    __int64 seconds = 0;
    const bool found = GetScalar(id, kXTime, seconds, defaultValue.GetTime());
    out = seconds;
    return found;
}

bool CCustomData::SetUTCTime(unsigned id, const std::tm& value)
{
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    unsigned char* target = Place(id, kTimeSize, kUTCTime);
    if (target == nullptr)
        return false;
    for (unsigned i = 0; i < kTimeFields; ++i)
        tev::StoreLittleEndian(target + 4 * i, value.*kFields[i]);
    return true;
}

bool CCustomData::GetUTCTime(unsigned id, std::tm& out, const std::tm& defaultValue) const
{
    const LockGuard lock(m_lock);
    const unsigned char* data = FindValue(id, kTimeSize, kUTCTime);
    if (data == nullptr)
    {
        out = defaultValue;
        return false;
    }
    out = {};
    for (unsigned i = 0; i < kTimeFields; ++i)
        out.*kFields[i] = tev::LoadLittleEndian<int>(data + 4 * i);
    return true;
}

bool CCustomData::SetBinary(unsigned id, const void* data, unsigned size)
{
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    return SetChunk(id, data, size, kBinary);
}

bool CCustomData::GetBinary(unsigned id, void* out, unsigned size) const
{
    const LockGuard lock(m_lock);
    const unsigned char* data = FindValue(id, size, kBinary);
    if (data == nullptr || out == nullptr)
        return false;
    std::memcpy(out, data, size);
    return true;
}
