#pragma once

#include "arrays/CXArray.h"
#include "text/CXTString.h"

// Arrays of wide strings: sorted, copied, searched, and taken out of one text.

/// How strings are put in order; each as the function of CXTString of that name does.
enum _CompareStringsEnum : unsigned int
{
    xCompare = 0, ///< by the unsigned value of each character
    xCompareNoCase = 1,
    xCollate = 2,
    xCollateNoCase = 3
};

/// Sorts in ascending order. Strings that are equal in that order stay as they stood. Takes n log n comparisons. An unknown
/// order is an invalid argument; where memory is lacking, std::bad_alloc is thrown; both leave the array as it was.
TEVTOOLS_API void SortStringArray(CXArray<CXTString<wchar_t>>& array, _CompareStringsEnum order = xCompare);

/// Copies the strings of one array, which may be `target` itself, into another. With `append` they go behind what is there,
/// which is replaced otherwise; with `unique` a string goes in only when an equal one is not there yet. Returns how many
/// went in. An exception leaves the target as it was.
TEVTOOLS_API int CopyStringArray(CXArray<CXTString<wchar_t>>& target, const CXArray<CXTString<wchar_t>>& source,
                                 bool append = false, bool unique = false);

/// The index of the first string that equals the given one, with `noCase` without regard to case; -1 when there is none.
[[nodiscard]] TEVTOOLS_API int FindInStringArray(const CXArray<CXTString<wchar_t>>& array,
                                                 const CXTString<wchar_t>& string, bool noCase = false);

/// Replaces the contents of the array by the parts of a list that stand between "|", as in ".bmp|.dib"; empty ones are left
/// out. Returns how many there are. An exception leaves the array as it was.
TEVTOOLS_API int ExtractString(const CXTString<wchar_t>& list, CXArray<CXTString<wchar_t>>& array);
