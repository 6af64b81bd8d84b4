#pragma once

#include "text/CXTString.h"
#include "text/Language.h"
#include "zip/CXExtraction.h"
#include "zip/ZipTypes.h"

// What the reasons of archives mean, in the language of message texts or the given one: a sentence, empty for a value that
// is none. Safe from several threads at once.

TEVTOOLS_API CXTString<wchar_t> XGetText(XZipFailure failure, XLanguage language = XGetLanguage());
TEVTOOLS_API CXTString<wchar_t> XGetText(CXExtractionFailure failure, XLanguage language = XGetLanguage());
TEVTOOLS_API CXTString<wchar_t> XGetText(CXStreamDamage damage, XLanguage language = XGetLanguage());
TEVTOOLS_API CXTString<wchar_t> XGetText(CXSkipReason reason, XLanguage language = XGetLanguage());
