// Lists of extensions, wildcards and extensions of paths, made of arbitrary text. Matching is compared with a
// naive matcher.

#include "maps/CHashTable.h"
#include "services/CFileNameSpec.h"
#include "services/CPathString.h"
#include "services/FileTypeRegistry.h"
#include "services/FileWildcards.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;

void Check(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/// Few characters, so that matches happen; the other bytes select characters of every kind.
wchar_t CharacterOf(std::uint8_t byte)
{
    constexpr wchar_t kCommon[] = {L'a', L'A', L'b', L'.', L'*', L'?', L'"', L' ', L',', L';', L'/', L'\\', L':', 0};
    constexpr std::size_t kCount = sizeof(kCommon) / sizeof(*kCommon);
    return byte < 0xE0 ? kCommon[byte % kCount] : static_cast<wchar_t>(byte * byte * 7);
}

/// Whether the name matches, by a table of all prefixes.
bool Matches(const std::wstring& name, const std::wstring& pattern)
{
    std::vector<char> row(name.size() + 1, 0);
    row[0] = 1;
    for (const wchar_t p : pattern)
    {
        std::vector<char> next(name.size() + 1, 0);
        next[0] = p == L'*' && row[0] != 0;
        for (std::size_t i = 1; i <= name.size(); ++i)
        {
            if (p == L'*')
                next[i] = row[i] != 0 || next[i - 1] != 0;
            else
                next[i] = row[i - 1] != 0 && (p == L'?' || p == name[i - 1]);
        }
        row = next;
    }
    return row[name.size()] != 0;
}

std::wstring_view ViewOf(const Text& text)
{
    return {text, static_cast<std::size_t>(text.GetLength64())};
}

void CheckList(const Text& list, bool singleWords)
{
    CHashTable<Text> set;
    Text cleaned = list;
    const unsigned count = fileGetHashFromExtensionList(cleaned, set, singleWords);
    Check(count == set.GetCount(), "the count is not that of the set");
    Check((count == 0) == cleaned.IsEmpty(), "patterns without a result");
    Check(cleaned.GetLength() <= 4 * 260 + 4, "more patterns than the list has words");
    const Text* pattern = nullptr;
    for (unsigned position = set.GetFirst(); set.GetNext(position, pattern);)
    {
        Check(!pattern->IsEmpty(), "an empty pattern");
        Check(ViewOf(cleaned).find(ViewOf(*pattern)) != std::wstring_view::npos, "a pattern is not in the result");
    }
}

void CheckPath(const Text& path)
{
    const Text extension = fileGetExtension(path);
    Check(extension.IsEmpty() || (extension[0] == L'.' && path.Find(extension) >= 0), "an extension that is none");
    const CPathString parts(path);
    Check(parts.GetTitle() + parts.GetExtension() == parts.GetFileName(), "title and extension are not the name");
    const CFileNameSpec spec(path, 0);
    Check(spec.GetFileName().Find(L'/') < 0, "a slash is left");
    Check(spec.GetClass() == fileGetClass(spec.GetFileName()), "another class");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2 || size > 2000)
        return 0;
    std::wstring text;
    for (std::size_t i = 2; i < size; ++i)
        text += CharacterOf(data[i]);
    const Text whole(text.data(), static_cast<int>(text.size()));
    CheckList(whole, (data[1] & 1) != 0);
    CheckPath(Text(whole.GetConstBuffer()));

    const std::size_t split = text.empty() ? 0 : data[0] % text.size();
    const Text name = whole.Left(static_cast<int>(split));
    const Text pattern = whole.Mid(static_cast<int>(split));
    Check(fileMatchWilcards(name, pattern, true) == Matches(text.substr(0, split), text.substr(split)),
          "another match");
    return 0;
}
