#include "text/CSwitchLocale.h"

#include "text/FailureRecord.h"
#include "text/XCA2W.h"

#include <clocale>

CSwitchLocale::CSwitchLocale(int category, const wchar_t* locale)
    : m_category(category), m_savedLocale(XCA2W(std::setlocale(category, nullptr), xEncodingUtf8))
{
    if (locale == nullptr || std::setlocale(category, XCW2A(locale, xEncodingUtf8)) == nullptr)
        tev::NoteBadArgument("CSwitchLocale::CSwitchLocale");
}

CSwitchLocale::~CSwitchLocale()
{
    if (m_savedLocale.IsEmpty())
        std::setlocale(m_category, XCW2A(m_savedLocale, xEncodingUtf8));
}
