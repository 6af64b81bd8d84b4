#pragma once

#include "text/CXTString.h"

/// Switches one category of the C library's locale, for the whole process.
/// The switch outlives the object whenever an earlier locale was in force: only an empty saved name is set back.
/// Programs rely on the locale staying; to restore the old one, set it from GetSavedLocale.
/// One thread at a time, and no other thread may use the C locale meanwhile.
class TEVTOOLS_API CSwitchLocale
{
public:
    /// `category` is one of the LC_ values, `locale` a name the system knows; an unknown one leaves the locale as it
    /// is.
    CSwitchLocale(int category, const wchar_t* locale);
    CSwitchLocale(const CSwitchLocale&) = delete;
    CSwitchLocale& operator=(const CSwitchLocale&) = delete;
    ~CSwitchLocale();

    const CXTString<wchar_t>& GetSavedLocale() const noexcept { return m_savedLocale; }

private:
    int m_category;
    CXTString<wchar_t> m_savedLocale;
};
