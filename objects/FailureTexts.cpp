// Failures and exceptions in words.

#include "objects/CXArchiveException.h"
#include "objects/CXInternetException.h"
#include "objects/InternetTexts.h"
#include "objects/LastFailure.h"
#include "text/MessageTexts.h"

#include <cwchar>
#include <utility>

namespace
{
using Text = CXTString<wchar_t>;

/// A message text, with `name` in its place where it has one.
Text FilledText(unsigned id, const Text& name, XLanguage language)
{
    const wchar_t* const format = tev::FindMessageText(id, language);
    if (format == nullptr)
        return {};
    if (std::wcsstr(format, L"%s") == nullptr)
        return format;
    Text text;
    text.Format(format, name.IsEmpty() ? tev::FindMessageText(tev::kTextUnnamedFile, language) : name.GetConstBuffer());
    return text;
}

bool TakesName(unsigned id)
{
    const wchar_t* const format = tev::FindMessageText(id);
    return format != nullptr && std::wcsstr(format, L"%s") != nullptr;
}

/// Sentence and, in brackets, what it does not say.
class Sentence
{
public:
    explicit Sentence(const Text& text) : m_text(text) {}

    void AddDetail(const Text& detail)
    {
        if (detail.IsEmpty())
            return;
        m_text += m_hasDetails ? L", " : L" (";
        m_text += detail;
        m_hasDetails = true;
    }
    template <class Number>
    void AddDetail(unsigned id, Number number, XLanguage language)
    {
        Text detail;
        detail.Format(tev::FindMessageText(id, language), number);
        AddDetail(detail);
    }
    Text Take()
    {
        if (m_hasDetails)
            m_text += L')';
        return std::move(m_text);
    }

private:
    Text m_text;
    bool m_hasDetails = false;
};

constexpr unsigned kLargestSystemError = tev::kTextUnnamedFile - tev::kTextSystemError - 1; // that may have a text

/// Null for a code without one.
const wchar_t* FindSystemText(unsigned systemError, XLanguage language)
{
    return systemError == 0 || systemError > kLargestSystemError
               ? nullptr
               : tev::FindMessageText(tev::kTextSystemError + systemError, language);
}

struct Reason
{
    unsigned m_textId = tev::kTextThrown;
    Text m_name;
    unsigned m_systemError = 0;
    bool m_hasContext = false;
    unsigned __int64 m_context = 0;
    Text m_text; ///< in the place of one with a number
};

Reason ReasonOf(const CXException& exception, XLanguage language)
{
    Reason reason;
    if (const auto* file = dynamic_cast<const CXFileException*>(&exception))
    {
        reason.m_textId = tev::kTextFileCause + file->GetCause();
        reason.m_name = file->GetFileName();
        reason.m_systemError = file->GetSystemError();
        if (file->GetCause() == fileGeneric)
            reason.m_text = FindSystemText(reason.m_systemError, language);
    }
    else if (const auto* archive = dynamic_cast<const CXArchiveException*>(&exception))
    {
        reason.m_textId = tev::kTextArchiveCause + archive->GetCause();
        reason.m_name = archive->GetFileName();
    }
    else if (const auto* internet = dynamic_cast<const CXInternetException*>(&exception))
    {
        reason.m_textId = tev::kTextThrown + 1;
        reason.m_text = tev::FindInternetText(internet->GetErrorCode(), language);
        reason.m_systemError = internet->GetErrorCode();
        reason.m_hasContext = internet->GetContext() != 0;
        reason.m_context = internet->GetContext();
    }
    else if (dynamic_cast<const CXMemoryException*>(&exception) != nullptr)
        reason.m_textId = tev::kTextFailure + static_cast<unsigned>(XFailureKind::kMemory);
    else if (dynamic_cast<const CXInvalidArgException*>(&exception) != nullptr)
        reason.m_textId = tev::kTextFailure + static_cast<unsigned>(XFailureKind::kArgument);
    else if (dynamic_cast<const CXUserException*>(&exception) != nullptr)
        reason.m_textId = tev::kTextFailure + static_cast<unsigned>(XFailureKind::kCancelled);
    return reason;
}

bool IsOfLibrary(const CXException& exception)
{
    const CXRuntimeClass* const type = exception.GetRuntimeClassDescriptor();
    for (const CXRuntimeClass* own :
         {CXException::GetThisRuntimeClassDescriptor(), CXMemoryException::GetThisRuntimeClassDescriptor(),
          CXInvalidArgException::GetThisRuntimeClassDescriptor(), CXUserException::GetThisRuntimeClassDescriptor(),
          CXFileException::GetThisRuntimeClassDescriptor(), CXArchiveException::GetThisRuntimeClassDescriptor(),
          CXInternetException::GetThisRuntimeClassDescriptor()})
    {
        if (type == own)
            return true;
    }
    return false;
}
} // namespace

CXTString<wchar_t> XGetExceptionText(const CXException* exception)
{
    return XGetExceptionText(exception, XGetLanguage());
}

CXTString<wchar_t> XGetExceptionText(const CXException* exception, XLanguage language)
{
    if (exception == nullptr)
        return {};
    const Reason reason = ReasonOf(*exception, language);
    Text text = reason.m_text.IsEmpty() ? FilledText(reason.m_textId, reason.m_name, language) : reason.m_text;
    if (!exception->GetMessageText().IsEmpty())
        text += L' ' + exception->GetMessageText();
    Sentence sentence(text);
    if (!IsOfLibrary(*exception))
        sentence.AddDetail(Text(exception->GetRuntimeClassDescriptor()->m_name));
    if (!reason.m_text.IsEmpty())
        sentence.AddDetail(reason.m_name);
    if (reason.m_systemError != 0)
        sentence.AddDetail(tev::kTextFailureDetail, reason.m_systemError, language);
    if (reason.m_hasContext)
        sentence.AddDetail(tev::kTextFailureDetail + 1, reason.m_context, language);
    return sentence.Take();
}

CXTString<wchar_t> XGetSystemErrorText(unsigned int systemError, XLanguage language)
{
    Text text = FindSystemText(systemError, language);
    if (text.IsEmpty())
    {
        Sentence sentence(tev::FindMessageText(tev::kTextFailure + 1, language));
        sentence.AddDetail(tev::kTextFailureDetail, systemError, language);
        text = sentence.Take();
    }
    return text;
}

CXTString<wchar_t> XFailure::GetText(XLanguage language) const
{
    Text name(GetPath());
    if (m_isPathCut)
        name += L"...";
    return TextAbout(name, name, language);
}

CXTString<wchar_t> XFailure::GetTextWithoutPath() const
{
    const XLanguage language = XGetLanguage();
    return TextAbout(language == XLanguage::French ? L"ce fichier" : L"it", {}, language);
}

CXTString<wchar_t> XFailure::TextAbout(const CXTString<wchar_t>& name, const CXTString<wchar_t>& detail,
                                       XLanguage language) const
{
    // What a file is called belongs into the sentence; other system errors say most by their code.
    const bool isOfFile = m_cause != fileNone && m_cause != fileGeneric && *m_path != L'\0';
    const bool isOfSystem = m_kind == XFailureKind::kSystem;
    const unsigned id = m_textId != 0            ? m_textId
                        : isOfSystem && isOfFile ? tev::kTextFileCause + m_cause
                                                 : tev::kTextFailure + static_cast<unsigned>(m_kind);
    const bool isByCode =
        m_textId == 0 && isOfSystem && !isOfFile && FindSystemText(m_systemError, language) != nullptr;
    Sentence sentence(isByCode ? XGetSystemErrorText(m_systemError, language) : FilledText(id, name, language));
    sentence.AddDetail(Text(m_operation));
    if (isByCode || !TakesName(id))
        sentence.AddDetail(detail);
    if (m_systemError != 0)
        sentence.AddDetail(tev::kTextFailureDetail, m_systemError, language);
    return sentence.Take();
}
