#include "zip/ZipTexts.h"

#include "text/MessageTexts.h"

namespace
{
/// The text of a value; those of a kind have `room` numbers.
template <class Reason>
CXTString<wchar_t> TextOfReason(unsigned first, unsigned room, Reason reason, XLanguage language)
{
    const auto value = static_cast<unsigned>(reason);
    return value < room ? tev::FindMessageText(first + value, language) : nullptr;
}
} // namespace

CXTString<wchar_t> XGetText(XZipFailure failure, XLanguage language)
{
    return TextOfReason(tev::kTextZipFailure, 0x20, failure, language);
}

CXTString<wchar_t> XGetText(CXExtractionFailure failure, XLanguage language)
{
    return TextOfReason(tev::kTextExtractionFailure, 0x10, failure, language);
}

CXTString<wchar_t> XGetText(CXStreamDamage damage, XLanguage language)
{
    return TextOfReason(tev::kTextStreamDamage, 0x10, damage, language);
}

CXTString<wchar_t> XGetText(CXSkipReason reason, XLanguage language)
{
    return TextOfReason(tev::kTextSkipReason, 0x10, reason, language);
}
