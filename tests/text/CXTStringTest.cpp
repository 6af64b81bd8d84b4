#include "text/CXTString.h"
#include "tests/support/PrintText.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TextTools.h"
#include "text/InvalidParameter.h"

namespace
{
using namespace tev::test;

// Test text is written narrow and ASCII once and widened where the wide instantiation runs.
template <class T>
class Text
{
public:
    Text(const char* ascii) : m_text(ascii, ascii + std::char_traits<char>::length(ascii)) {}
    operator const T*() const { return m_text.c_str(); }

private:
    std::basic_string<T> m_text;
};

template <class T>
unsigned __int64 CapacityOf(CXTString<T>& text)
{
    return static_cast<CXTCharArray<T>&>(text).m_capacity;
}

template <class T>
class CXTStringTest : public testing::Test
{
};

TYPED_TEST_SUITE(CXTStringTest, Widths, );

#define STRING_TEST(name)                                                                                              \
    template <class T>                                                                                                 \
    void name();                                                                                                       \
    TYPED_TEST(CXTStringTest, name)                                                                                    \
    {                                                                                                                  \
        name<TypeParam>();                                                                                             \
    }                                                                                                                  \
    template <class T>                                                                                                 \
    void name()

int g_parameterError = 0;

// Observes the invalid-parameter handler for the length of a test.
class ParameterErrors
{
public:
    ParameterErrors()
        : m_previous(XSetInvalidParameterHandler([](const char*, int error) { g_parameterError = error; }))
    {
        Forget();
    }
    ~ParameterErrors() { XSetInvalidParameterHandler(m_previous); }
    void Forget()
    {
        g_parameterError = 0;
        errno = 0;
    }
    int Last() const { return g_parameterError == errno ? errno : -1; }

private:
    XInvalidParameterHandler m_previous;
};

STRING_TEST(GrowthFollowsTheCapacityRule)
{
    CXTString<T> text;
    EXPECT_EQ(text.GetLength(), 0);
    EXPECT_EQ(CapacityOf(text), 16u);
    EXPECT_EQ(text.GetConstBuffer()[0], T());

    const std::pair<int, unsigned> steps[] = {{15, 16},  {16, 64},   {20, 64},   {63, 64}, {3, 64},
                                              {64, 129}, {128, 129}, {129, 259}, {0, 259}};
    for (const auto& [length, capacity] : steps)
    {
        text.GetBufferSetLength(length);
        EXPECT_EQ(text.GetLength(), length);
        EXPECT_EQ(CapacityOf(text), capacity) << length;
        EXPECT_EQ(text.GetConstBuffer()[length], T());
    }

    // Construction, too, starts from the buffer of a new string, and so does one whose buffer was moved away.
    CXTString<T> source(T('x'), 15);
    CXTString<T> moved(std::move(source));
    source = moved;
    EXPECT_EQ(CapacityOf(moved), 16u);
    EXPECT_EQ(CapacityOf(source), 16u);
    CXTString<T> jump(T('x'), 20);
    EXPECT_EQ(CapacityOf(jump), 64u);
    jump.GetBufferSetLength(70);
    EXPECT_EQ(CapacityOf(jump), 141u);
    CXTString<T> copy(jump);
    EXPECT_EQ(CapacityOf(copy), 141u);
    EXPECT_NE(copy.GetConstBuffer(), jump.GetConstBuffer());
}

STRING_TEST(NoOperationShrinksTheBuffer)
{
    using Str = CXTString<T>;
    using Other = typename Str::OtherChar;
    void (*const operations[])(Str&) = {
        [](Str& s) { s = Text<Other>("other width"); },
        [](Str& s) { s = static_cast<const Other*>(nullptr); },
        [](Str& s) { s = reinterpret_cast<const unsigned char*>("bytes"); },
        [](Str& s) { EXPECT_TRUE(s.LoadString(0xF006)); },
        [](Str& s) { EXPECT_FALSE(s.LoadString(1)); },
        [](Str& s) { s = Str(Text<T>("a temporary")); },
        [](Str& s) {
            Str source(Text<T>("x"));
            const Str target(std::move(source));
            s = std::move(source);
        },
        [](Str& s) { s = Str(Text<T>("copied")).GetConstBuffer(); },
        [](Str& s) { s = nullptr; },
        [](Str& s) { s = T('c'); },
        [](Str& s) { s.Copy(Text<T>("copied"), 3); },
        [](Str& s) { s.Format(Text<T>("%d"), 5); },
        [](Str& s) { s.Format(1u); },
        [](Str& s) { s.Trim(T('x')); },
        [](Str& s) { s.Replace(Text<T>("xx"), Text<T>("")); },
        [](Str& s) { s.Delete(1, 60); },
        [](Str& s) { s.ReleaseBuffer(0); },
        [](Str& s) { s.Empty(); },
    };
    for (const unsigned codePage : {65001u, 1252u})
    {
        XSetAnsiCodePage(codePage);
        for (const auto& operation : operations)
        {
            SCOPED_TRACE(&operation - operations);
            Str text(T('x'), 70);
            const T* const buffer = text.GetConstBuffer();
            operation(text);
            EXPECT_LT(text.GetLength(), 70);
            EXPECT_EQ(CapacityOf(text), 141u);
            EXPECT_EQ(text.GetConstBuffer(), buffer);
        }
    }
    XSetAnsiCodePage(65001);
}

STRING_TEST(ConstructionAndAssignmentTakeEveryForm)
{
    using Str = CXTString<T>;
    const unsigned char bytes[] = "abc";
    const Text<T> abc("abc");
    EXPECT_EQ(Str(abc), abc);
    EXPECT_EQ(Str(abc, 2), Text<T>("ab"));
    EXPECT_EQ(Str(abc, -1), abc);
    EXPECT_EQ(Str(abc, 4).GetLength(), 4);
    EXPECT_EQ(Str(T('z'), 3), Text<T>("zzz"));
    EXPECT_EQ(Str("abc"), Str(L"abc"));
    EXPECT_TRUE(Str(nullptr).IsEmpty());
    EXPECT_TRUE(Str(static_cast<const T*>(nullptr)).IsEmpty());
    EXPECT_TRUE(Str(static_cast<const T*>(nullptr), 3).IsEmpty());
    EXPECT_TRUE(Str(static_cast<const typename Str::OtherChar*>(nullptr)).IsEmpty());
    EXPECT_TRUE(Str(T('z'), -3).IsEmpty());

    Str text;
    EXPECT_EQ(text = abc, abc);
    EXPECT_EQ(text = T('q'), Text<T>("q"));
    EXPECT_EQ(text = bytes, abc);
    EXPECT_EQ(text += bytes, Text<T>("abcabc"));
    EXPECT_EQ(text += T('!'), Text<T>("abcabc!"));
    EXPECT_EQ(text = "narrow", Str(L"narrow"));
    EXPECT_EQ(text = L"wide", Str("wide"));
    EXPECT_EQ(text += "+n", Str("wide+n"));
    EXPECT_EQ(text += L"+w", Str("wide+n+w"));
    EXPECT_TRUE((text = nullptr).IsEmpty());

    EXPECT_EQ(abc + Str("1") + abc + T('.'), Text<T>("abc1abc."));
    EXPECT_EQ(T('<') + Str(abc), Text<T>("<abc"));
}

STRING_TEST(StringsThatGaveTheirBufferAwayAreEmptyAndUsable)
{
    using Str = CXTString<T>;
    Str source(Text<T>("something"));
    Str target(std::move(source));
    EXPECT_TRUE(source.IsEmpty());
    EXPECT_EQ(source.GetConstBuffer()[0], T());
    EXPECT_EQ(source.Find(T('a')), -1);
    source[0] = T();
    CXTCharArray<T>& fields = source;
    fields.m_data[fields.m_length] = T();
    EXPECT_TRUE(source == Str());
    std::free(source.DetachBuffer());

    Str assigned(Text<T>("old"));
    assigned = std::move(target);
    EXPECT_EQ(assigned, Text<T>("something"));
    EXPECT_TRUE(target.IsEmpty());
    errno = 0;
    target.ReleaseBuffer(0);
    EXPECT_EQ(errno, 0);
    target += T('x');
    EXPECT_EQ(target, Text<T>("x"));
    Str& self = assigned;
    assigned = std::move(self);
    EXPECT_EQ(assigned, Text<T>("something"));

    const T* before = assigned.GetConstBuffer();
    T* detached = assigned.DetachBuffer();
    EXPECT_EQ(detached, before);
    EXPECT_TRUE(assigned.IsEmpty());
    EXPECT_EQ(CapacityOf(assigned), 16u);
    std::free(detached);
}

STRING_TEST(ArgumentsMayPointIntoTheString)
{
    using Str = CXTString<T>;
    const auto make = [] { return Str(Text<T>("abcabc-a-long-tail-that-makes-it-grow")); };
    const auto model = ToStd(make());

    Str text = make();
    text += text;
    EXPECT_EQ(ToStd(text), model + model);
    text = make();
    text += text.GetConstBuffer() + 3;
    EXPECT_EQ(ToStd(text), model + model.substr(3));
    text = make();
    text = text.GetConstBuffer() + 3;
    EXPECT_EQ(ToStd(text), model.substr(3));
    text = make();
    text.Copy(text.GetConstBuffer() + 1, 4);
    EXPECT_EQ(ToStd(text), model.substr(1, 4));
    text = make();
    text.Insert(1, text.GetConstBuffer());
    EXPECT_EQ(ToStd(text), model.substr(0, 1) + model + model.substr(1));
    text = make();
    EXPECT_EQ(text.Replace(text, text), 1);
    EXPECT_EQ(ToStd(text), model);
    text = Text<T>("aXa");
    EXPECT_EQ(text.Replace(text.GetConstBuffer() + 2, text), 2);
    EXPECT_EQ(text, Text<T>("aXaXaXa"));
    EXPECT_EQ(text.Remove(text.GetConstBuffer() + 5), 3);
    EXPECT_EQ(text, Text<T>("a"));
}

STRING_TEST(InvalidPointersAndSizesChangeNothing)
{
    CXTString<T> text(Text<T>("keep"));
    ParameterErrors errors;
    const auto refused = [&](int expected) {
        const bool held = errors.Last() == expected && text == Text<T>("keep");
        errors.Forget();
        return held;
    };
    text.Copy(nullptr, 4);
    EXPECT_TRUE(refused(EINVAL));
    text.SetAt(4, T('x'));
    EXPECT_TRUE(refused(ERANGE));
    text.SetAt(-1, T('x'));
    EXPECT_TRUE(refused(ERANGE));
    text.ReleaseBuffer(16);
    EXPECT_TRUE(refused(ERANGE));
    EXPECT_EQ(text.GetBufferSetLength(-1), nullptr);
    EXPECT_TRUE(refused(ERANGE));

    T buffer[4] = {T('o'), T('l'), T('d')};
    const Text<T> abc("abc");
    const Text<T> abcd("abcd");
    EXPECT_EQ(XStrCopy(buffer, 4, static_cast<const T*>(abcd)), ERANGE);
    EXPECT_TRUE(refused(ERANGE));
    EXPECT_EQ(XStrCopy(buffer, 0, static_cast<const T*>(abc)), ERANGE);
    EXPECT_EQ(XStrCopy(buffer, 4, static_cast<const T*>(nullptr)), EINVAL);
    EXPECT_TRUE(refused(EINVAL));
    EXPECT_EQ(XStrCopy(static_cast<T*>(nullptr), 4, static_cast<const T*>(abc)), EINVAL);
    EXPECT_EQ(CXTString<T>(buffer), Text<T>("old"));

    XSetInvalidParameterHandler(nullptr);
    errno = 0;
    EXPECT_EQ(XStrCopy(buffer, 3, static_cast<const T*>(abc)), ERANGE);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(XStrCopy(buffer, 4, static_cast<const T*>(abc)), 0);
    EXPECT_EQ(CXTString<T>(buffer), abc);
}

STRING_TEST(AccessStopsAtTheEnds)
{
    CXTString<T> text(Text<T>("abc"));
    EXPECT_EQ(text.GetAt(2), T('c'));
    EXPECT_EQ(text.GetAt(3), T());
    EXPECT_EQ(text.GetAt(-1), T());
    EXPECT_EQ(text.GetAtPtr(3), nullptr);
    *text.GetAtPtr(0) = T('A');
    text.SetAt(1, T('B'));
    text[2u] = T('C');
    EXPECT_EQ(text, Text<T>("ABC"));

    T* buffer = text.GetBufferSetLength(10);
    std::fill_n(buffer, 10, T('x'));
    buffer[4] = T();
    text.ReleaseBuffer();
    EXPECT_EQ(text, Text<T>("xxxx"));
    text.ReleaseBuffer(2);
    EXPECT_EQ(text.GetLength(), 2);
    text.Empty();
    EXPECT_TRUE(text.IsEmpty());
}

STRING_TEST(ComparesByUnsignedValueAndExactLength)
{
    using Str = CXTString<T>;
    const T high[] = {T('a'), static_cast<T>(-1), T()};
    EXPECT_EQ(Str(Text<T>("ab")).Compare(high), -1);
    EXPECT_EQ(Str(high).Compare(Text<T>("ab")), 1);
    EXPECT_EQ(Str(Text<T>("ab")).Compare(Text<T>("ab")), 0);
    EXPECT_EQ(Str(Text<T>("ab")).Compare(Text<T>("abc")), -1);
    EXPECT_EQ(Str(Text<T>("b")).Compare(Text<T>("abc")), 1);
    for (const bool empty : {true, false})
    {
        const Str text(Text<T>(empty ? "" : "x"));
        const T* null = nullptr;
        const int expected = empty ? 0 : 1;
        EXPECT_EQ(text.Compare(null), expected);
        EXPECT_EQ(text.CompareNoCase(null), expected);
        EXPECT_EQ(text.Collate(null), expected);
        EXPECT_EQ(text.CollateNoCase(null), expected);
        EXPECT_EQ(text == null, empty);
    }

    const T withNul[] = {T('a'), T(), T('b')};
    EXPECT_NE(Str(withNul, 3), Str(Text<T>("a")));
    EXPECT_LT(Str(Text<T>("a")), Str(withNul, 3));
    EXPECT_EQ(Str(withNul, 3), Str(withNul, 3));

    const Str a(Text<T>("a"));
    const Text<T> b("b");
    EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b && b != a && !(b < a) && a >= a && a == a);

    for (const int length : {1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 31, 33, 63, 64, 65, 300})
    {
        Str left(T('m'), length);
        Str right(left);
        for (int at = 0; at < length; ++at)
        {
            const tev::test::WithoutAvx2 plain(at % 2 == 1);
            right.SetAt(at, static_cast<T>(-1));
            left.SetAt(length - 1, T('z')); // what comes later does not matter
            EXPECT_EQ(left.Compare(right), -1) << length << ' ' << at;
            EXPECT_EQ(right.Compare(left), 1) << length << ' ' << at;
            right.SetAt(at, T('m'));
            left.SetAt(length - 1, T('m'));
            EXPECT_EQ(left.Compare(right), 0);
        }
    }

    EXPECT_EQ(Str(Text<T>("STRASSE_1")).CompareNoCase(Text<T>("strasse_1")), 0);
    EXPECT_EQ(Str(Text<T>("B")).CompareNoCase(Text<T>("a")), 1);
    EXPECT_EQ(Str(Text<T>("a")).CompareNoCase(Text<T>("AB")), -1);
    // '_' stands between the capitals and the small letters, so it shows which case is compared.
    EXPECT_EQ(Str(Text<T>("_")).CompareNoCase(Text<T>("A")), -1);
    EXPECT_EQ(Str(Text<T>("b")).Collate(Text<T>("a")), 1);
    EXPECT_EQ(Str(Text<T>("ABC")).CollateNoCase(Text<T>("abc")), 0);
}

STRING_TEST(SearchAgreesWithTheStandardLibrary)
{
    // Few letters, so that the ends of a pattern meet often without a match, and every length around a vector's width.
    std::mt19937 random(20261121);
    const auto make = [&](size_t length) {
        std::basic_string<T> text(length, T());
        for (T& c : text)
            c = static_cast<T>('a' + random() % 3);
        return text;
    };
    for (int round = 0; round < 3000; ++round)
    {
        const tev::test::WithoutAvx2 plain(round % 2 == 1);
        const auto text = make(random() % 150);
        const auto pattern = make(1 + random() % 6);
        const auto start = static_cast<int>(random() % 20);
        const CXTString<T> own(text.data(), static_cast<int>(text.size()));
        const auto place = [](size_t found) { return found == std::string::npos ? -1 : static_cast<int>(found); };
        const int expected = place(text.find(pattern, start));
        const int past = expected < 0 ? -1 : expected + static_cast<int>(pattern.size());
        ASSERT_EQ(own.Find(pattern.c_str(), start), expected);
        ASSERT_EQ(own.FindEndPos(pattern.c_str(), start), past);
        ASSERT_EQ(own.Find(pattern[0], start), place(text.find(pattern[0], start)));
        ASSERT_EQ(own.ReverseFind(pattern.c_str(), start), place(text.rfind(pattern, start)));
        ASSERT_EQ(own.ReverseFind(pattern[0]), place(text.rfind(pattern[0])));
        ASSERT_EQ(own.FindOneOf(pattern.c_str(), start), place(text.find_first_of(pattern, start)));
        auto upper = pattern;
        std::transform(upper.begin(), upper.end(), upper.begin(), [](T c) { return static_cast<T>(c - 'a' + 'A'); });
        ASSERT_EQ(own.FindNoCase(upper.c_str(), start), expected);
        ASSERT_EQ(own.FindEndPos(upper.c_str(), start, true), past);
    }

    const CXTString<T> text(Text<T>("abcabc"));
    EXPECT_EQ(text.Find(static_cast<const T*>(nullptr)), -1);
    EXPECT_EQ(text.Find(Text<T>("")), -1);
    EXPECT_EQ(text.Find(Text<T>("c"), 6), -1);
    EXPECT_EQ(text.Find(Text<T>("c"), 5), 5);
    EXPECT_EQ(text.Find(Text<T>("c"), -9), 2);
    EXPECT_EQ(text.ReverseFind(static_cast<const T*>(nullptr)), -1);
    EXPECT_EQ(text.FindOneOf(nullptr), -1);
}

STRING_TEST(ReplaceKeepsItsBounds)
{
    const struct
    {
        const char* m_text;
        const char* m_old;
        const char* m_new;
        int m_maxCount, m_limit, m_start, m_replaced;
        const char* m_result;
    } rows[] = {
        {"aXbXc", "X", "--", -1, -1, 0, 2, "a--b--c"},
        {"aXbXc", "X", "", -1, -1, 0, 2, "abc"},
        {"aXbXc", "X", "YX", -1, -1, 0, 2, "aYXbYXc"},
        {"aXbXc", "X", "Y", 1, -1, 0, 1, "aYbXc"},
        {"aXbXc", "X", "Y", 0, -1, 0, 0, "aXbXc"},
        {"aXbXc", "X", "Y", -1, 0, 0, 0, "aXbXc"},
        {"aXbXc", "X", "Y", -1, 1, 0, 0, "aXbXc"},
        {"aXbXc", "X", "Y", -1, 3, 0, 1, "aYbXc"},
        // The limit is a position in the text as already replaced: the second X has moved from 3 to 5 by then.
        {"aXbXc", "X", "123", -1, 4, 0, 1, "a123bXc"},
        {"aXbXc", "X", "123", -1, 6, 0, 2, "a123b123c"},
        {"aXbXc", "X", "", -1, 3, 0, 2, "abc"},
        {"aXbXc", "X", "Y", -1, -1, 2, 1, "aXbYc"},
        {"aXbXc", "X", "Y", -1, -1, -2, 2, "aYbYc"},
        {"aXbXc", "X", "Y", -1, -1, 5, 0, "aXbXc"},
        {"aaaa", "aa", "a", -1, -1, 0, 2, "aa"},
        {"aaa", "aa", "bcd", -1, -1, 0, 1, "bcda"},
        {"abc", "", "x", -1, -1, 0, 0, "abc"},
        {"abc", "abcd", "x", -1, -1, 0, 0, "abc"},
    };
    for (const auto& row : rows)
    {
        CXTString<T> text(Text<T>(row.m_text));
        EXPECT_EQ(text.Replace(Text<T>(row.m_old), Text<T>(row.m_new), row.m_maxCount, row.m_limit, row.m_start),
                  row.m_replaced)
            << row.m_text << ' ' << row.m_old << ' ' << row.m_new;
        EXPECT_EQ(text, Text<T>(row.m_result));
    }
    CXTString<T> text(Text<T>("aXbX"));
    EXPECT_EQ(text.Replace(nullptr, Text<T>("x")), 0);
    EXPECT_EQ(text.Replace(Text<T>("X"), nullptr), 0);
    EXPECT_EQ(text.Replace(T('X'), T('Y'), 1), 1);
    EXPECT_EQ(text, Text<T>("aYbX"));
}

STRING_TEST(EditingAgreesWithTheStandardLibrary)
{
    const unsigned seed = 4711;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    CXTString<T> text;
    std::basic_string<T> model;
    const auto piece = [&] {
        std::basic_string<T> result(random() % 7, T());
        for (T& c : result)
            c = static_cast<T>('a' + random() % 4);
        return result;
    };
    for (int round = 0; round < 20000; ++round)
    {
        const auto run = piece();
        const auto count = static_cast<int>(run.size());
        const int at = static_cast<int>(random() % (model.size() + 2)) - 1;
        const size_t from = std::min<size_t>(static_cast<size_t>(std::max(at, 0)), model.size());
        switch (random() % 6)
        {
        case 0:
            text.Append(run.data(), run.size());
            model += run;
            break;
        case 1:
            model.insert(from, run);
            ASSERT_EQ(text.Insert(at, run.c_str()), static_cast<int>(model.size()));
            break;
        case 2:
            text.Delete(at, count);
            model.erase(from, run.size());
            break;
        case 3: {
            const auto with = piece();
            int replaced = 0;
            for (size_t found = 0; !run.empty() && (found = model.find(run, found)) != std::string::npos; ++replaced)
            {
                model.replace(found, run.size(), with);
                found += with.size();
            }
            ASSERT_EQ(text.Replace(run.c_str(), with.c_str()), replaced);
            break;
        }
        case 4:
            ASSERT_EQ(ToStd(text.Mid(at, count)), model.substr(from, run.size()));
            ASSERT_EQ(ToStd(text.Right(count)), model.substr(model.size() - std::min(model.size(), run.size())));
            break;
        default:
            if (model.size() > 60)
            {
                text.Delete(10, 50);
                model.erase(10, 50);
            }
        }
        ASSERT_EQ(ToStd(text), model);
        ASSERT_EQ(text.GetConstBuffer()[model.size()], T());
    }
}

STRING_TEST(ExtractionCutsAtTheEnds)
{
    const CXTString<T> text(Text<T>("hello world"));
    EXPECT_EQ(text.Mid(-5, 3), Text<T>("hel"));
    EXPECT_EQ(text.Mid(6), Text<T>("world"));
    EXPECT_EQ(text.Mid(6, 99), Text<T>("world"));
    EXPECT_EQ(text.Mid(11, 1), Text<T>(""));
    EXPECT_EQ(text.Mid(99), Text<T>(""));
    EXPECT_EQ(text.Mid(3, 0), Text<T>(""));
    EXPECT_EQ(text.Left(5), Text<T>("hello"));
    EXPECT_EQ(text.Left(-1), Text<T>(""));
    EXPECT_EQ(text.Right(99), text);
    EXPECT_EQ(text.SpanIncluding(Text<T>("ehl")), Text<T>("hell"));
    EXPECT_EQ(text.SpanExcluding(Text<T>("wo")), Text<T>("hell"));
    EXPECT_EQ(text.SpanExcluding(Text<T>("xyz")), text);
    EXPECT_EQ(text.SpanIncluding(nullptr), Text<T>(""));
    // Characters past the table of the set.
    const T wide[] = {static_cast<T>(0xE9), static_cast<T>(0x3B1), T('x'), T()};
    const T set[] = {static_cast<T>(0x3B1), static_cast<T>(0xE9), T()};
    EXPECT_EQ(CXTString<T>(wide).SpanIncluding(set).GetLength(), 2);

    const CXTString<T> list(Text<T>(";;a;b;;;cc;"));
    const char* expected[] = {"a", "b", "cc"};
    int position = 0;
    for (const char* token : expected)
        EXPECT_EQ(list.Tokenize(Text<T>(";"), position), Text<T>(token));
    EXPECT_EQ(list.Tokenize(Text<T>(";"), position), Text<T>(""));
    EXPECT_EQ(position, -1);
    EXPECT_EQ(list.Tokenize(Text<T>(";"), position), Text<T>(""));
    position = 0;
    EXPECT_EQ(CXTString<T>(Text<T>("no separators")).Tokenize(nullptr, position), Text<T>("no separators"));
}

STRING_TEST(RemovalTrimmingCaseAndOrder)
{
    using Str = CXTString<T>;
    Str text(Text<T>("aXbxXc"));
    EXPECT_EQ(text.Remove(T('X'), 2), 1);
    EXPECT_EQ(text, Text<T>("aXbxc"));
    EXPECT_EQ(text.Remove(Text<T>("x"), true), 2);
    EXPECT_EQ(text, Text<T>("abc"));
    EXPECT_EQ(text.Remove(Text<T>("")), 0);
    EXPECT_EQ(text.Remove(static_cast<const T*>(nullptr)), 0);

    EXPECT_EQ(Str(Text<T>(" \t a b \r\n")).Trim(), Text<T>("a b"));
    EXPECT_EQ(Str(Text<T>(" a ")).TrimLeft(), Text<T>("a "));
    EXPECT_EQ(Str(Text<T>(" a ")).TrimRight(), Text<T>(" a"));
    EXPECT_EQ(Str(Text<T>("--a-")).Trim(T('-')), Text<T>("a"));
    EXPECT_EQ(Str(Text<T>("--a-")).TrimRight(T('-')), Text<T>("--a"));
    EXPECT_EQ(Str(Text<T>("xyaxy")).Trim(Text<T>("yx")), Text<T>("a"));
    EXPECT_EQ(Str(Text<T>("xyaxy")).TrimLeft(Text<T>("yx")), Text<T>("axy"));
    EXPECT_EQ(Str(Text<T>("   ")).Trim(), Text<T>(""));

    EXPECT_EQ(Str(Text<T>("abc")).MakeUpper(), Text<T>("ABC"));
    EXPECT_EQ(Str(Text<T>("abc")).MakeUpper(2), Text<T>("ABc"));
    EXPECT_EQ(Str(Text<T>("ABC")).MakeLower(99), Text<T>("abc"));
    EXPECT_EQ(Str(Text<T>("abc")).MakeReverse(), Text<T>("cba"));
    text = Text<T>("ac");
    EXPECT_EQ(text.Insert(1, T('b')), 3);
    EXPECT_EQ(text, Text<T>("abc"));
    EXPECT_EQ(text.Delete(1), 2);
    EXPECT_EQ(text.Delete(5), 2);
    EXPECT_EQ(text, Text<T>("ac"));
    EXPECT_EQ(text.Delete(0, -1), 0);
}

TEST(CXTStringLargeTest, LengthsAboveIntMaxDoNotWrap)
{
    if (kIsSanitized)
        GTEST_SKIP() << "needs 4 GB of address space";
    CXTString<char> text;
    // What lies past the first buffer is fresh memory, which is never written to.
    std::fill_n(text.GetBufferSetLength64(0x80000000ull), 64, 'x');
    text += 'y';
    EXPECT_EQ(text.GetLength64(), 0x80000001ull);
    EXPECT_EQ(text.GetLength(), 0x7FFFFFFF);
    EXPECT_EQ(text.Find('y'), -1);
    EXPECT_EQ(text.Left(3), "xxx");
    EXPECT_EQ(text.Right(1), "y");
    EXPECT_THROW(text.Append("x", static_cast<size_t>(-1) / 2), std::bad_alloc);
    EXPECT_EQ(text.GetLength64(), 0x80000001ull);
}
} // namespace
