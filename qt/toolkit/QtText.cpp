#include "qt/toolkit/QtText.h"

#include "text/Language.h"

#include <atomic>

namespace
{
std::atomic<bool> s_lengthen{false};
} // namespace

// Qt's own conversions replace lone surrogates, and with them the bytes of names that are no UTF-8.

QString XToQString(const CXTString<wchar_t>& text)
{
    QString result;
    result.reserve(text.GetLength());
    for (const wchar_t character : std::wstring_view(text))
    {
        if (QChar::requiresSurrogates(static_cast<char32_t>(character)))
        {
            result += QChar(QChar::highSurrogate(static_cast<char32_t>(character)));
            result += QChar(QChar::lowSurrogate(static_cast<char32_t>(character)));
        }
        else
            result += QChar(static_cast<char16_t>(character));
    }
    return result;
}

CXTString<wchar_t> XFromQString(const QString& text)
{
    std::wstring wide;
    wide.reserve(static_cast<std::size_t>(text.size()));
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
        {
            wide += static_cast<wchar_t>(QChar::surrogateToUcs4(text[i], text[i + 1]));
            ++i;
        }
        else
            wide += static_cast<wchar_t>(text[i].unicode());
    }
    return CXTString<wchar_t>(wide);
}

QString XInLanguage(const char16_t* english, const char16_t* french)
{
    QString text = QString::fromUtf16(XGetLanguage() == XLanguage::French ? french : english);
    if (s_lengthen.load(std::memory_order_relaxed))
        text += QString(text.size() / 2, u'~');
    return text;
}

void XLengthenTexts(bool lengthen) noexcept
{
    s_lengthen.store(lengthen, std::memory_order_relaxed);
}
