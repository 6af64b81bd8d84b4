#pragma once

#include "arrays/CXArray.h"
#include "tests/support/Testing.h"
#include "text/CXTString.h"
#include "zip/CZip.h"

namespace tev::test
{
using Texts = CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&>;

inline Texts TextsOf(std::initializer_list<const wchar_t*> texts)
{
    Texts array;
    for (const wchar_t* const text : texts)
        array.Add(text);
    return array;
}

/// The names of all entries, separated by '|'.
inline std::wstring NamesOf(const CZip& zip)
{
    std::wstring names;
    for (int index = 0; index < zip.GetCount(false); ++index)
    {
        CZipFileInfo info;
        zip.GetFileInfo(info, static_cast<unsigned>(index));
        names += (index == 0 ? L"" : L"|") + std::wstring(info.GetFileName());
    }
    return names;
}

/// Whether a command of the shell, run in a folder, succeeds. Its output is dropped.
inline bool Shell(const std::string& folder, const std::string& command)
{
    return std::system(("cd '" + folder + "' && (" + command + ") >/dev/null 2>&1").c_str()) == 0;
}

/// Opens and closes an archive around a change, which answers whether it succeeded.
template <class Change>
bool ChangeArchive(const std::wstring& path, ZipOpenMode mode, Change&& change)
{
    CZip zip;
    const bool done = zip.Open(path.c_str(), mode, false, nullptr) && change(zip);
    zip.Close(false);
    return done && zip.GetLastFailure() == XZipFailure::kNone;
}
} // namespace tev::test
