#include "text/TextScan.h"

#include "text/CXTString.h"
#include "text/FloatText.h"
#include "text/LengthModifier.h"
#include "text/OtherWidth.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

using namespace tev;

// Numbers are read as far as strtol and strtod would read them, but independently of the locale: the decimal point is
// '.' and white space is that of ASCII, so that a file means the same everywhere.

namespace
{
constexpr int kTextEnded = -1;

enum class Step : unsigned char
{
    Done,
    Mismatch,
    EndOfText
};

struct ScanSpec
{
    bool suppressed = false;
    bool widthIsGiven = false;
    int width = INT_MAX;
    LengthModifier modifier = LengthModifier::None;
};

template <class T>
constexpr bool IsBlank(T character) noexcept
{
    return character == ' ' || (character >= '\t' && character <= '\r');
}

// The members of a "%[...]", between the brackets.
template <class T>
struct ScanSet
{
    const T* first;
    const T* end;
    bool inverted;

    // A range compares unsigned values, like CXTString::Compare, whether a plain character has a sign or not.
    bool Contains(T character) const noexcept
    {
        for (const T* at = first; at != end; ++at)
        {
            // A '-' is a member itself at either end and between characters that are not in order.
            const bool isRange = end - at > 2 && at[1] == '-' && Value(at[0]) <= Value(at[2]);
            if (isRange ? Value(character) >= Value(at[0]) && Value(character) <= Value(at[2]) : character == *at)
                return !inverted;
            if (isRange)
                at += 2;
        }
        return inverted;
    }

private:
    static auto Value(T character) noexcept { return static_cast<std::make_unsigned_t<T>>(character); }
};

template <class T>
constexpr bool IsPartOfNumber(T character) noexcept
{
    switch (character)
    {
    case '+':
    case '-':
    case '.':
    case '(':
    case ')':
    case '_':
        return true;
    default:
        return IsDigit(character) || (AsciiLower(character) >= 'a' && AsciiLower(character) <= 'z');
    }
}

// Copies text into a target of so many characters; an empty text where it has no room.
template <class T>
bool CopyOwn(T* target, size_t capacity, const T* text, size_t length, bool terminated) noexcept
{
    const size_t needed = length + (terminated ? 1 : 0);
    if (needed > capacity)
    {
        if (capacity > 0)
            *target = 0;
        return false;
    }
    std::copy_n(text, length, target);
    if (terminated)
        target[length] = 0;
    return true;
}

// Compares without regard to case and moves `at` past the word when it is there.
template <class T>
bool ReadWord(const char* word, const T*& at, const T* end) noexcept
{
    const T* past = at;
    for (; *word != 0; ++word, ++past)
    {
        if (past == end || AsciiLower(*past) != *word)
            return false;
    }
    at = past;
    return true;
}

template <class T>
class Scanner
{
public:
    Scanner(const T* text, const T* format, va_list arguments) noexcept : m_text(text), m_at(text), m_format(format)
    {
        va_copy(m_arguments, arguments);
    }
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;
    ~Scanner() { va_end(m_arguments); }

    int Run()
    {
        Step step = Step::Done;
        while (step == Step::Done && *m_format != 0)
            step = ScanDirective();
        return step == Step::EndOfText && m_filled == 0 ? kTextEnded : m_filled;
    }

private:
    Step ScanDirective()
    {
        if (IsBlank(*m_format))
        {
            ++m_format;
            SkipBlanks();
            return Step::Done;
        }
        if (*m_format != '%')
            return ScanLiteral();
        ++m_format;
        if (*m_format == '%')
        {
            SkipBlanks();
            return ScanLiteral();
        }
        return ScanConversion();
    }

    void SkipBlanks() noexcept
    {
        while (IsBlank(*m_at))
            ++m_at;
    }

    Step ScanLiteral() noexcept
    {
        if (*m_at != *m_format)
            return *m_at == 0 ? Step::EndOfText : Step::Mismatch;
        ++m_at;
        ++m_format;
        return Step::Done;
    }

    Step ScanConversion()
    {
        ScanSpec spec;
        if (*m_format == '*')
        {
            spec.suppressed = true;
            ++m_format;
        }
        if (IsDigit(*m_format))
        {
            spec.widthIsGiven = true;
            if (!ReadNumber(m_format, spec.width) || spec.width == 0)
                return Step::Mismatch;
        }
        spec.modifier = ReadLengthModifier(m_format);
        const T letter = *m_format;
        if (letter == 0)
            return Step::Mismatch;
        ++m_format;
        switch (letter)
        {
        case 'd':
            return ScanInteger(spec, 10, true);
        case 'i':
            return ScanInteger(spec, 0, true);
        case 'u':
            return ScanInteger(spec, 10, false);
        case 'o':
            return ScanInteger(spec, 8, false);
        case 'x':
        case 'X':
            return ScanInteger(spec, 16, false);
        case 'p':
            return ScanPointer(spec);
        case 'n':
            return StoreCount(spec);
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            return ScanFloat(spec);
        case 's':
            return ScanWord(spec, false);
        case 'S':
            return ScanWord(spec, true);
        case 'c':
            return ScanCharacters(spec, false);
        case 'C':
            return ScanCharacters(spec, true);
        case '[':
            return ScanMembers(spec);
        default:
            return Step::Mismatch;
        }
    }

    // The end of the run of such characters from here on, limited by the width of the field.
    template <class Predicate>
    const T* RunEnd(const ScanSpec& spec, Predicate belongs) const noexcept
    {
        const T* end = m_at;
        for (int left = spec.width; left > 0 && *end != 0 && belongs(*end); --left)
            ++end;
        return end;
    }

    const T* NumberEnd(const ScanSpec& spec) const noexcept { return RunEnd(spec, IsPartOfNumber<T>); }

    // Integers

    struct Integer
    {
        unsigned long long magnitude = 0;
        bool negative = false;
        bool overflow = false;
    };

    // Reads as much of the field as strtol would; false when that is nothing.
    bool ReadInteger(const ScanSpec& spec, unsigned base, Integer& number) noexcept
    {
        const T* const end = NumberEnd(spec);
        const T* at = m_at;
        if (at != end && (*at == '+' || *at == '-'))
            number.negative = *at++ == '-';
        const bool hasPrefix = end - at > 2 && at[0] == '0' && AsciiLower(at[1]) == 'x' && DigitValue(at[2]) < 16;
        if (hasPrefix && (base == 16 || base == 0))
        {
            at += 2;
            base = 16;
        }
        else if (base == 0)
        {
            base = at != end && *at == '0' ? 8 : 10;
        }
        const T* const digits = at;
        for (; at != end && DigitValue(*at) < base; ++at)
        {
            const unsigned digit = DigitValue(*at);
            number.overflow = number.overflow || number.magnitude > (UINT64_MAX - digit) / base;
            number.magnitude = number.magnitude * base + digit;
        }
        if (at == digits)
            return false;
        m_at = at;
        return true;
    }

    // The value clamped to the type's range, as the C library's functions do.
    static long long SignedResult(const Integer& number, int size) noexcept
    {
        const unsigned long long maximum = (1ull << (8 * size - 1)) - 1;
        const unsigned long long limit = number.negative ? maximum + 1 : maximum;
        const unsigned long long magnitude = number.overflow ? limit : std::min(number.magnitude, limit);
        return static_cast<long long>(number.negative ? 0 - magnitude : magnitude);
    }

    static long long UnsignedResult(const Integer& number, int size) noexcept
    {
        const unsigned long long maximum = UINT64_MAX >> (64 - 8 * size);
        if (number.overflow || number.magnitude > maximum)
            return static_cast<long long>(maximum);
        return static_cast<long long>(number.negative ? 0 - number.magnitude : number.magnitude);
    }

    static void StoreInteger(void* target, long long value, int size) noexcept
    {
        switch (size)
        {
        case 1:
            *static_cast<std::int8_t*>(target) = static_cast<std::int8_t>(value);
            break;
        case 2:
            *static_cast<std::int16_t*>(target) = static_cast<std::int16_t>(value);
            break;
        case 4:
            *static_cast<std::int32_t*>(target) = static_cast<std::int32_t>(value);
            break;
        default:
            std::memcpy(target, &value, sizeof value);
            break;
        }
    }

    Step ScanInteger(const ScanSpec& spec, unsigned base, bool isSigned) noexcept
    {
        const int size = IntegerSize(spec.modifier);
        SkipBlanks();
        if (*m_at == 0)
            return Step::EndOfText;
        Integer number;
        if (size == 0 || !ReadInteger(spec, base, number))
            return Step::Mismatch;
        if (spec.suppressed)
            return Step::Done;
        return Fill([&](void* target) {
            StoreInteger(target, isSigned ? SignedResult(number, size) : UnsignedResult(number, size), size);
        });
    }

    Step ScanPointer(const ScanSpec& spec) noexcept
    {
        SkipBlanks();
        if (*m_at == 0)
            return Step::EndOfText;
        Integer number;
        if (!ReadNil(spec) && !ReadInteger(spec, 16, number))
            return Step::Mismatch;
        if (spec.suppressed)
            return Step::Done;
        return Fill([&](void* target) {
            *static_cast<void**>(target) =
                reinterpret_cast<void*>(static_cast<std::uintptr_t>(UnsignedResult(number, sizeof(void*))));
        });
    }

    bool ReadNil(const ScanSpec& spec) noexcept { return ReadWord("(nil)", m_at, NumberEnd(spec)); }

    // Does not count as a target.
    Step StoreCount(const ScanSpec& spec) noexcept
    {
        const int size = IntegerSize(spec.modifier);
        if (size == 0 || spec.suppressed)
            return Step::Mismatch;
        void* const target = va_arg(m_arguments, void*);
        if (target == nullptr)
            return Step::Mismatch;
        StoreInteger(target, m_at - m_text, size);
        return Step::Done;
    }

    // Floating point

    Step ScanFloat(const ScanSpec& spec)
    {
        switch (spec.modifier)
        {
        case LengthModifier::None:
            return ScanFloatAs<float>(spec);
        case LengthModifier::Long:
            return ScanFloatAs<double>(spec);
        case LengthModifier::LongDouble:
            return ScanFloatAs<long double>(spec);
        default:
            return Step::Mismatch;
        }
    }

    template <class Value>
    Step ScanFloatAs(const ScanSpec& spec)
    {
        SkipBlanks();
        if (*m_at == 0)
            return Step::EndOfText;
        const T* const end = NumberEnd(spec);
        Value value{};
        size_t length;
        if constexpr (std::is_same_v<T, char>)
        {
            length = ReadFloat(m_at, end, value);
        }
        else
        {
            std::string token(static_cast<size_t>(end - m_at), '\0');
            std::transform(m_at, end, token.begin(), [](T character) { return static_cast<char>(character); });
            length = ReadFloat(token.data(), token.data() + token.size(), value);
        }
        if (length == 0)
            return Step::Mismatch;
        m_at += length;
        if (spec.suppressed)
            return Step::Done;
        return Fill([&](void* target) { *static_cast<Value*>(target) = value; });
    }

    // Text

    Step ScanWord(const ScanSpec& spec, bool otherWidth)
    {
        SkipBlanks();
        if (*m_at == 0)
            return Step::EndOfText;
        const T* const end = RunEnd(spec, [](T character) { return !IsBlank(character); });
        return StoreText(spec, otherWidth, end, true);
    }

    Step ScanCharacters(ScanSpec spec, bool otherWidth)
    {
        if (*m_at == 0)
            return Step::EndOfText;
        if (!spec.widthIsGiven)
            spec.width = 1;
        const T* const end = RunEnd(spec, [](T) { return true; });
        return end - m_at == spec.width ? StoreText(spec, otherWidth, end, false) : Step::EndOfText;
    }

    Step ScanMembers(const ScanSpec& spec)
    {
        ScanSet<T> set;
        set.inverted = *m_format == '^';
        if (set.inverted)
            ++m_format;
        set.first = m_format;
        // A ']' that comes first is a member.
        set.end = *m_format == 0 ? nullptr : FindEnd(m_format + 1);
        if (set.end == nullptr)
            return Step::Mismatch;
        m_format = set.end + 1;
        if (*m_at == 0)
            return Step::EndOfText;
        const T* const end = RunEnd(spec, [&](T character) { return set.Contains(character); });
        return end == m_at ? Step::Mismatch : StoreText(spec, false, end, true);
    }

    static const T* FindEnd(const T* at) noexcept
    {
        while (*at != 0 && *at != ']')
            ++at;
        return *at == 0 ? nullptr : at;
    }

    Step StoreText(const ScanSpec& spec, bool otherWidth, const T* end, bool terminated)
    {
        const T* const text = m_at;
        m_at = end;
        const TextWidth width = TextWidthOf<T>(spec.modifier, otherWidth);
        if (width == TextWidth::None)
            return Step::Mismatch;
        if (spec.suppressed)
            return Step::Done;
        void* const target = va_arg(m_arguments, void*);
        const auto capacity = va_arg(m_arguments, unsigned);
        if (target == nullptr)
            return Step::Mismatch;
        const auto length = static_cast<size_t>(end - text);
        const bool stored = width == TextWidth::Narrow
                                ? CopyTo(static_cast<char*>(target), capacity, text, length, terminated)
                                : CopyTo(static_cast<wchar_t*>(target), capacity, text, length, terminated);
        if (!stored)
            return Step::Mismatch;
        ++m_filled;
        return Step::Done;
    }

    // Leaves an empty text where this one has no room.
    template <class Target>
    static bool CopyTo(Target* target, size_t capacity, const T* text, size_t length, bool terminated)
    {
        if constexpr (std::is_same_v<T, Target>)
        {
            return CopyOwn(target, capacity, text, length, terminated);
        }
        else
        {
            CXTString<Target> converted;
            const bool isText = ConvertText(text, length, converted);
            const auto needed = static_cast<size_t>(converted.GetLength64());
            return CopyOwn(target, capacity, converted.GetConstBuffer(), needed, terminated) && isText;
        }
    }

    template <class Store>
    Step Fill(Store store) noexcept
    {
        void* const target = va_arg(m_arguments, void*);
        if (target == nullptr)
            return Step::Mismatch;
        store(target);
        ++m_filled;
        return Step::Done;
    }

    const T* const m_text;
    const T* m_at;
    const T* m_format;
    va_list m_arguments;
    int m_filled = 0;
};
} // namespace

template <class T>
int tev::ScanText(const T* text, const T* format, va_list arguments)
{
    return Scanner<T>(text, format, arguments).Run();
}

template int tev::ScanText(const char*, const char*, va_list);
template int tev::ScanText(const wchar_t*, const wchar_t*, va_list);
