// Text, lists of text and arrays.

#include "settings/CCustomData.h"
#include "settings/CustomDataChunk.h"
#include "settings/StoreChange.h"
#include "text/TextSearch.h"
#include "text/Utf.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

using tev::LockGuard;

namespace
{
constexpr unsigned __int64 kLargestValue = std::numeric_limits<unsigned>::max();
constexpr unsigned kListHeader = 4;  // the number of strings
constexpr unsigned kTextHeader = 4;  // the number of 16-bit units of one of them
constexpr unsigned kArrayHeader = 4; // the number of elements

/// Text as it is stored: in 16-bit units, up to its first NUL.
class StoredText
{
public:
    explicit StoredText(const CXTString<wchar_t>& text)
        : m_text(text.GetConstBuffer()),
          m_length(tev::TextLength(m_text)),
          m_bytes(tev::MeasureWideInUtf16(m_text, m_length))
    {
    }

    std::size_t Bytes() const noexcept { return m_bytes; }
    void Write(unsigned char* target) const noexcept
    {
        tev::WideToUtf16(m_text, m_length, m_bytes, reinterpret_cast<char*>(target));
    }

private:
    const wchar_t* m_text;
    std::size_t m_length;
    std::size_t m_bytes;
};

/// The units up to the first NUL, or to the end. Text normally has one NUL, at its end, so a branch-free loop that the
/// compiler vectorizes first tests for an earlier one, and only then is its position looked for.
std::size_t TextUnits(const unsigned char* units, std::size_t count)
{
    const auto unitAt = [units](std::size_t i) { return tev::LoadLittleEndian<std::uint16_t>(units + 2 * i); };
    const std::size_t most = count != 0 && unitAt(count - 1) == 0 ? count - 1 : count;
    std::uint16_t nuls = 0;
    for (std::size_t i = 0; i < most; ++i)
        nuls |= static_cast<std::uint16_t>(unitAt(i) == 0);
    std::size_t length = nuls == 0 ? most : 0;
    while (length < most && unitAt(length) != 0)
        ++length;
    return length;
}

/// Reads text up to its first NUL, or to its end.
// Whether each unit is a character, as nearly always: no surrogate, and no NUL. Their characters are written in any case.
bool ReadCharacters(const unsigned char* units, std::size_t count, wchar_t* characters) noexcept
{
    unsigned others = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const unsigned unit = tev::LoadLittleEndian<unsigned short>(units + 2 * i);
        characters[i] = static_cast<wchar_t>(unit);
        others |= (unit == 0 ? 1U : 0U) | ((unit & 0xF800) == 0xD800 ? 1U : 0U);
    }
    return others == 0;
}

void ReadUnits(const unsigned char* units, std::size_t count, CXTString<wchar_t>& text)
{
    const bool isEnded = count != 0 && tev::LoadLittleEndian<unsigned short>(units + 2 * (count - 1)) == 0;
    const std::size_t expected = count - (isEnded ? 1 : 0);
    if (ReadCharacters(units, expected, text.GetBufferSetLength64(expected)))
        return;
    const auto* bytes = reinterpret_cast<const char*>(units);
    const std::size_t size = 2 * TextUnits(units, count);
    const std::size_t length = tev::MeasureUtf16(bytes, size);
    tev::Utf16ToWide(bytes, size, length, text.GetBufferSetLength64(length));
}
} // namespace

bool CCustomData::SetStringW(unsigned id, const CXTString<wchar_t>& value)
{
    const StoredText text(value);
    if (text.Bytes() + 2 > kLargestValue)
        return NoteNotSet(kStringW);
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    unsigned char* target = Place(id, static_cast<unsigned>(text.Bytes()) + 2, kStringW);
    if (target == nullptr)
        return false;
    text.Write(target);
    tev::StoreLittleEndian(target + text.Bytes(), static_cast<unsigned short>(0));
    return true;
}

bool CCustomData::SetStringA(unsigned id, const CXTString<char>& value)
{
    const std::size_t length = tev::TextLength(value.GetConstBuffer());
    if (length + 1 > kLargestValue)
        return NoteNotSet(kStringA);
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    return SetChunk(id, value.GetConstBuffer(), static_cast<unsigned>(length) + 1, kStringA);
}

bool CCustomData::GetStringW(unsigned id, CXTString<wchar_t>& out, const CXTString<wchar_t>& defaultValue) const
{
    const LockGuard lock(m_lock);
    unsigned size = 0;
    const unsigned char* data = FindOfKind(id, kStringW, size);
    if (data == nullptr || size % 2 != 0)
    {
        out = defaultValue;
        return false;
    }
    ReadUnits(data, size / 2, out);
    return true;
}

bool CCustomData::GetStringA(unsigned id, CXTString<char>& out, const CXTString<char>& defaultValue) const
{
    const LockGuard lock(m_lock);
    unsigned size = 0;
    const unsigned char* data = FindOfKind(id, kStringA, size);
    if (data == nullptr)
    {
        out = defaultValue;
        return false;
    }
    const auto* text = reinterpret_cast<const char*>(data);
    out.Assign(text, std::min<std::size_t>(tev::FindCharacter(text, size, '\0'), size));
    return true;
}

// The number of strings; for each of them the number of its units, and these.
template <class Strings>
bool CCustomData::SetStrings(unsigned id, const Strings& strings, std::size_t count)
{
    unsigned __int64 size = kListHeader;
    for (std::size_t i = 0; i < count; ++i)
        size += kTextHeader + StoredText(strings(i)).Bytes();
    if (size > kLargestValue)
        return NoteNotSet(kStringList);
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    unsigned char* target = Place(id, static_cast<unsigned>(size), kStringList);
    if (target == nullptr)
        return false;
    tev::StoreLittleEndian(target, static_cast<unsigned>(count));
    target += kListHeader;
    for (std::size_t i = 0; i < count; ++i)
    {
        const StoredText text(strings(i));
        tev::StoreLittleEndian(target, static_cast<unsigned>(text.Bytes() / 2));
        text.Write(target + kTextHeader);
        target += kTextHeader + text.Bytes();
    }
    return true;
}

// Appends nothing when the list is damaged.
template <class Append>
unsigned CCustomData::ReadStrings(unsigned id, Append append) const
{
    const LockGuard lock(m_lock);
    unsigned size = 0;
    const unsigned char* data = FindOfKind(id, kStringList, size);
    if (data == nullptr || size < kListHeader)
        return 0;
    const auto count = tev::LoadLittleEndian<unsigned>(data);
    const auto walk = [&](auto visit) {
        unsigned at = kListHeader;
        for (unsigned i = 0; i < count; ++i)
        {
            if (size - at < kTextHeader)
                return false;
            const auto units = tev::LoadLittleEndian<unsigned>(data + at);
            at += kTextHeader;
            if (units > (size - at) / 2)
                return false;
            visit(data + at, units);
            at += 2 * units;
        }
        return at == size;
    };
    if (!walk([](const unsigned char*, unsigned) {}))
        return 0;
    walk([&append](const unsigned char* text, unsigned units) {
        CXTString<wchar_t> string;
        ReadUnits(text, units, string);
        append(std::move(string));
    });
    return count;
}

bool CCustomData::SetStringList(unsigned id, const std::vector<CXTString<wchar_t>>& strings)
{
    return SetStrings(
        id, [&strings](std::size_t i) -> const CXTString<wchar_t>& { return strings[i]; }, strings.size());
}

unsigned CCustomData::GetStringList(unsigned id, std::vector<CXTString<wchar_t>>& strings) const
{
    strings.clear();
    return ReadStrings(id, [&strings](CXTString<wchar_t>&& string) { strings.push_back(std::move(string)); });
}

bool CCustomData::SetStringArray(unsigned id, const CXArray<CXTString<wchar_t>>& strings)
{
    const auto at = [&strings](std::size_t i) -> const CXTString<wchar_t>& { return strings.GetData()[i]; };
    return SetStrings(id, at, static_cast<std::size_t>(strings.GetSize()));
}

unsigned CCustomData::GetStringArray(unsigned id, CXArray<CXTString<wchar_t>>& strings) const
{
    strings.RemoveAll(false);
    return ReadStrings(id, [&strings](CXTString<wchar_t>&& string) { strings.Add(string); });
}

bool CCustomData::SetArray(unsigned id, const void* data, unsigned elementSize, unsigned count)
{
    const LockGuard lock(m_lock);
    const ValueChange change(*this, id);
    if (count == 0)
    {
        RemoveChunk(id);
        return true;
    }
    const unsigned __int64 bytes = static_cast<unsigned __int64>(elementSize) * count;
    if (bytes > kLargestValue - kArrayHeader)
        return NoteNotSet(kArray);
    unsigned char* target = PlaceCopy(id, kArrayHeader, data, static_cast<unsigned>(bytes), kArray);
    if (target == nullptr)
        return false;
    tev::StoreLittleEndian(target, count);
    return true;
}

void* CCustomData::GetArray(unsigned id, unsigned& count)
{
    return const_cast<void*>(std::as_const(*this).GetArray(id, count));
}

const void* CCustomData::GetArray(unsigned id, unsigned& count) const
{
    const LockGuard lock(m_lock);
    CloseGaps();
    unsigned size = 0;
    const unsigned char* data = FindOfKind(id, kArray, size);
    count = data == nullptr || size < kArrayHeader ? 0 : tev::LoadLittleEndian<unsigned>(data);
    // The elements are of one size, at least a byte each.
    if (count == 0 || count > size - kArrayHeader || (size - kArrayHeader) % count != 0)
    {
        count = 0;
        return nullptr;
    }
    return data + kArrayHeader;
}

void* CCustomData::GetCustomPtr(unsigned id, unsigned& size)
{
    return const_cast<void*>(std::as_const(*this).GetCustomPtr(id, size));
}

const void* CCustomData::GetCustomPtr(unsigned id, unsigned& size) const
{
    const LockGuard lock(m_lock);
    CloseGaps();
    size = 0;
    return FindOfKind(id, kAnyKind, size);
}
