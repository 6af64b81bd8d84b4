// What programs ordinarily do with texts and paths, and goes on compiling in every language version and without warnings.

#include "TevTools.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace user
{
struct Number
{
    static const int kMost = 5;
};

std::size_t View(std::string_view text)
{
    return text.size();
}
std::size_t Wide(std::wstring_view text)
{
    return text.size();
}
std::size_t String(const std::string& text)
{
    return text.size();
}
const char* Characters(const char* text)
{
    return text;
}
bool Path(const std::filesystem::path& path)
{
    return path.empty();
}
int Text(const CXTString<char>& text)
{
    return text.GetLength();
}
int Text(const CXTString<wchar_t>& text)
{
    return text.GetLength();
}
int Text(const CXObject&)
{
    return 0;
}
int Name(const CXTString<wchar_t>& text)
{
    return text.GetLength();
}

template <class T>
void ConvertAndCompare(CXTString<T> s, const T* c, std::basic_string<T> x)
{
    using View = std::basic_string_view<T>;
    using String = std::basic_string<T>;
    View v = s;
    const View braced{s};
    const View direct(s);
    v = s;
    v = View(s);
    v = static_cast<View>(s);
    String made(s);
    const String bracedString{s};
    const auto cast = static_cast<String>(s);
    made = s;
    made += s;
    made.append(s);
    made = String(s) + String(s);
    c = s;
    const void* address = s;
    const bool filled = s && !s.IsEmpty();
    std::vector<String> strings;
    strings.emplace_back(s);
    std::vector<View> views{s};
    views.emplace_back(s);

    s = x;
    s = v;
    s = c;
    s = String();
    s = nullptr;
    s = T('c');
    s += x;
    s += v;
    s += T('c');
    const CXTString<T> copies[] = {x, v, c, s, s + c, c + s, s + x, x + s, s + v, s + T('c'), T('c') + s};
    CXTString<T> plain(c), counted(c, 1), repeated(T('c'), 2), fromString(x), fromView(v), empty{}, null(nullptr);

    bool b = filled && address != nullptr && s == c && c == s && s == s && s == x && x == s && s == v && v == s;
    b = b && s != c && c != s && s != x && v != s && s < c && c < s && s < x && x < s && v < s && s < v && s <= x;
    b = b && v >= s && x > s && s == nullptr && copies[0] == made && braced == direct && cast == bracedString;
    b = b && s.Compare(x) == 0 && s.Compare(c) == 0 && !plain.IsEmpty() && !fromView.IsEmpty() && empty == null;

    for (T& character : s)
        character = T('x');
    for (const T character : copies[0])
        b = b && character == s[0] && character == s[0u] && *s == character;
    std::sort(s.begin(), s.end());
    std::unordered_set<CXTString<T>> hashed{s, c, x};
    std::unordered_map<CXTString<T>, int> counts;
    counts[s] = counts[c] = counts[x] = b;
    std::map<CXTString<T>, int> ordered;
    ordered[s] = ordered[c] = ordered[x] = 1;
    std::set<CXTString<T>, std::less<>> transparent{s};
    b = transparent.find(v) == transparent.end() || hashed.count(s) == 0;
    std::swap(s, fromString);
    std::basic_ostringstream<T> out;
    out << s << CPathString(L"x") << counted << repeated << b;
}

void Streams(CXTString<char>& s, CXTString<wchar_t>& w)
{
    std::cout << s << w << s.GetConstBuffer() << s + "x";
    std::wcout << w << s << w.GetConstBuffer() << CPathString(L"x");
    std::ostringstream() << s << w;
    std::ifstream file(s);
    std::ofstream other(s, std::ios::binary);
    file.open(s);
    std::remove(s);
}

void Calls(const CXTString<char>& s, const CXTString<wchar_t>& w, const std::string& x, const std::wstring& y)
{
    std::size_t sum = View(s) + Wide(w) + Wide(CPathString(w)) + String(std::string(s)) + View(Characters(s));
    sum += static_cast<std::size_t>(Text(s) + Text(w) + Text(x) + Text(y) + Text(CPathString(w)) + Text(CExLCString()));
    sum += static_cast<std::size_t>(Name(y) + Name(std::wstring_view(y)) + Name(L"x") + Name("x") + Name(w.Left(1)));
    CXTString<char> t(sum != 0 ? s : CXTString<char>("x"));
    t = sum != 0 ? s.GetConstBuffer() : "x";
    t = XCW2A(w);
    t = w;
    CXTString<wchar_t> u = "x";
    u = t;
    u += x.c_str();
    u = CXTString<wchar_t>(x);
}

void Formats(CXTString<char> s, CXTString<wchar_t> w, const std::string& x, const CPathString& path)
{
    const unsigned id = 0xF006;
    s.Format("%d %s %s", Number::kMost, s.GetConstBuffer(), "x");
    s.Format(s);
    s.Format(s, 1);
    s.Format("%p %p", static_cast<void*>(nullptr), nullptr);
    s.Format(id, "x");
    s.AppendFormat("%c%hs%ls%S", 'x', "x", L"x", L"x");
    s.AppendFormat(id);
    s.Format("%s %s %d", s, x, 1);
    s.Format(s, std::string_view(x), 2.5);
    w.Format(L"%s %s", path, w);
    w.Format(L"%s", static_cast<const wchar_t*>(w));
    w.AppendFormat(id, w);
    w.AppendFormat(X_FORMAT(L"%s %hs %d"), path, x, 1);
    WriteToLogFile("x");
    WriteToLogFile(L"%d", 1);
    WriteToLogFile(0, L"x %d", 1);
    WriteToLogFile(0u, "x %d", 1);
    WriteToLogFile(w);
    WriteToLogFile(0, w);
    WriteToLogFile(w, 1);
    WriteToLogFile(L"%s", w);
    WriteToLogFile(0, L"%s %s", w, path);
    WriteToLogFile(w, w);
    WriteToLogFile(0, s, x);
    WriteToLogFile(X_FORMAT("%d"), 1);
    WriteToLogFile(0, X_FORMAT(L"%s"), w);
}

void Paths(std::filesystem::path p, CPathString c, CXTString<wchar_t> w, const std::wstring& y)
{
    c = p;
    p = c;
    const std::filesystem::path copied = c, direct(c), fromText = CPathString(w);
    const CPathString made = p, madeDirectly(p), joined = c / L"x", both = c / p;
    w = p;
    bool b =
        Path(c) && std::filesystem::exists(c) && c == p && p == c && c != p && p != c && c == w && w == c && c == L"x";
    b = b && p / c == copied && (p / c).empty() && c / w == both && fileExists(p) && fileExists(c) && fileExists(L"x");
    b = b && fileExists(y) && fileIsSameFile(p, y) && SetLogFile(p, xLogAppend, 0) && joined == made &&
        direct == fromText;
    CXFile file(p, CXFile::modeRead), other(L"x", 0), third(w, 0), fourth(y, 0), fifth(static_cast<void*>(nullptr), b);
    CXStdioFile lines(p, 0);
    CStdioFileEx text(p, 0);
    CXMemFile memory;
    CXFileException error;
    b = file.Open(p, 0) && file.Open(p, 0, &error) && file.Open(L"x", 0) && file.Open(w, 0) && file.Open(c, 0, nullptr);
    b = b && lines.Open(p, 0) && text.Open(p, 0) && text.Open(std::wstring_view(y), 0) && memory.Open(y, 0);
    CZip zip;
    b = b && zip.Open(p, zipOpenReadOnly, false, nullptr) && zip.AddNewFile(p, true, zipLevelDefault);
    b = b && zip.AddNewFile(p, L"name", zipLevelDefault) && zip.AddNewFile(w, w, zipLevelDefault);
    CMiniZip unpacking;
    b = b && unpacking.ExtractZip(p, p, madeDirectly.IsEmpty());
    CCustomData store;
    b = b && store.SaveToPrefs(p, 1, 2);
}
} // namespace user

int main()
{
    user::ConvertAndCompare<char>("x", "x", "x");
    user::ConvertAndCompare<wchar_t>(L"x", L"x", L"x");
    (void)&user::Streams;
    (void)&user::Calls;
    (void)&user::Formats;
    (void)&user::Paths;
}
