#include "qt/toolkit/QtText.h"

#include "text/Language.h"

#include <QTextDocument>
#include <algorithm>
#include <atomic>
#include <string_view>

namespace
{
std::atomic<bool> s_lengthen{false};
} // namespace

// Qt's own conversions replace lone surrogates, and with them the bytes of names that are no UTF-8.

QString XToQString(const CXTString<wchar_t>& text)
{
    const std::wstring_view wide = text;
    const auto isLong = [](wchar_t character) { return QChar::requiresSurrogates(static_cast<char32_t>(character)); };
    const auto pairs = std::count_if(wide.begin(), wide.end(), isLong);
    QString result(static_cast<qsizetype>(wide.size()) + pairs, Qt::Uninitialized);
    QChar* next = result.data();
    for (const wchar_t character : wide)
    {
        const auto code = static_cast<char32_t>(character);
        if (isLong(character))
        {
            *next++ = QChar(QChar::highSurrogate(code));
            *next++ = QChar(QChar::lowSurrogate(code));
        }
        else
            *next++ = QChar(static_cast<char16_t>(code));
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

QString XPlainToolTip(const QString& text)
{
    return Qt::mightBeRichText(text) ? text.toHtmlEscaped() : text;
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
