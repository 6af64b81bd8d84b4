#pragma once

#include "tests/support/Testing.h"
#include "text/CXTString.h"
#include "text/InstructionSets.h"
#include "text/TextEncoding.h"

namespace tev::test
{
using Widths = testing::Types<char, wchar_t>;

/// Test text is written narrow and ASCII once and widened where a wide instantiation runs.
template <class T>
std::basic_string<T> Widen(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

template <class T>
std::basic_string<T> ToStd(const CXTString<T>& text)
{
    EXPECT_EQ(text.GetConstBuffer()[text.GetLength64()], T());
    return {text.GetConstBuffer(), static_cast<std::size_t>(text.GetLength64())};
}

constexpr xStringEncoding CodePage(unsigned number)
{
    return static_cast<xStringEncoding>(number);
}
constexpr xStringEncoding kUtf32 = CodePage(12000);
constexpr xStringEncoding kUtf32BE = CodePage(12001);

/// Chooses an ANSI code page until the end of the scope.
class AnsiCodePage
{
public:
    explicit AnsiCodePage(unsigned codePage) : m_before(XGetAnsiCodePage()) { XSetAnsiCodePage(codePage); }
    ~AnsiCodePage() { XSetAnsiCodePage(m_before); }
    AnsiCodePage(const AnsiCodePage&) = delete;
    AnsiCodePage& operator=(const AnsiCodePage&) = delete;

private:
    unsigned m_before;
};

/// Lets the library do without the instructions that only some processors have, until the end of the scope.
class WithoutAvx2
{
public:
    explicit WithoutAvx2(bool without = true) { g_withoutAvx2 = without; }
    ~WithoutAvx2() { g_withoutAvx2 = false; }
    WithoutAvx2(const WithoutAvx2&) = delete;
    WithoutAvx2& operator=(const WithoutAvx2&) = delete;
};

/// Exactly these characters in a block of their own, without a terminator: an address sanitizer sees what reads on.
template <class T>
std::unique_ptr<T[]> ExactBlock(const std::basic_string<T>& text)
{
    std::unique_ptr<T[]> block(new T[text.size()]);
    std::copy(text.begin(), text.end(), block.get());
    return block;
}
} // namespace tev::test
