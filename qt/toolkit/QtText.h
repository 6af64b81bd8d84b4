#pragma once

#include "qt/toolkit/QtExport.h"
#include "text/CXTString.h"

#include <QString>

/// The same text for Qt. A byte of a file name that is no UTF-8 stays one lone surrogate, and comes back as it was.
TEVTOOLS_QT_API QString XToQString(const CXTString<wchar_t>& text);
TEVTOOLS_QT_API CXTString<wchar_t> XFromQString(const QString& text);

/// A text for a tool tip, which would take some texts, such as a path with `<b>`, for HTML.
TEVTOOLS_QT_API QString XPlainToolTip(const QString& text);

/// A text that a person reads, in the language of the library's messages (XGetLanguage). Both stand where they are used, so
/// that neither is forgotten when the other changes.
TEVTOOLS_QT_API QString XInLanguage(const char16_t* english, const char16_t* french);

/// Makes the texts of XInLanguage longer by half, as other languages may be; for trying windows with them.
TEVTOOLS_QT_API void XLengthenTexts(bool lengthen) noexcept;
