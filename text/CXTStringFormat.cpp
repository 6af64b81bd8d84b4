#include "text/CXTString.h"

#include "text/MessageTexts.h"
#include "text/TextFormat.h"
#include "text/TextScan.h"

// The members that take a format. The result is built in a buffer of its own before the string changes, because an
// argument may be the string's own text.

namespace
{
constexpr int kNothingToScan = -1;

template <class T>
void AppendFormatV(CXTString<T>& text, const T* format, va_list arguments)
{
    tev::FormatOutput<T> output;
    if (format != nullptr && tev::FormatText(output, format, arguments))
        text.Append(output.Data(), output.Length());
}

// Empty for an unknown number.
template <class T>
CXTString<T> MessageText(unsigned messageId)
{
    return tev::FindMessageText(messageId);
}
} // namespace

template <class T>
void CXTString<T>::FormatV(const T* format, va_list arguments)
{
    if (format == nullptr)
        return;
    tev::FormatOutput<T> output;
    if (tev::FormatText(output, format, arguments))
        Assign(output.Data(), output.Length());
    else
        Empty();
}

template <class T>
void CXTString<T>::Format(const T* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    FormatV(format, arguments);
    va_end(arguments);
}

template <class T>
void CXTString<T>::Format(unsigned int messageId, ...)
{
    va_list arguments;
    va_start(arguments, messageId);
    FormatV(MessageText<T>(messageId), arguments);
    va_end(arguments);
}

template <class T>
void CXTString<T>::AppendFormat(const T* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    AppendFormatV(*this, format, arguments);
    va_end(arguments);
}

template <class T>
void CXTString<T>::AppendFormat(unsigned int messageId, ...)
{
    va_list arguments;
    va_start(arguments, messageId);
    AppendFormatV<T>(*this, MessageText<T>(messageId), arguments);
    va_end(arguments);
}

template <class T>
int CXTString<T>::ScanVS(const T* format, va_list arguments) const
{
    return ScanVS(0, format, arguments);
}

template <class T>
int CXTString<T>::ScanVS(int position, const T* format, va_list arguments) const
{
    const bool inText = position >= 0 && static_cast<unsigned __int64>(position) <= m_text.m_length;
    if (format == nullptr || !inText)
        return kNothingToScan;
    return tev::ScanText<T>(m_text.m_data + position, format, arguments);
}

template <class T>
int CXTString<T>::ScanS(const T* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    const int count = ScanVS(format, arguments);
    va_end(arguments);
    return count;
}

template <class T>
int CXTString<T>::ScanS(int position, const T* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    const int count = ScanVS(position, format, arguments);
    va_end(arguments);
    return count;
}

template <class T>
bool CXTString<T>::LoadString(unsigned int messageId)
{
    *this = MessageText<T>(messageId);
    return tev::FindMessageText(messageId) != nullptr;
}

// The class as a whole is instantiated where its other members are defined.
#define X_INSTANTIATE(T)                                                                                               \
    template void CXTString<T>::FormatV(const T*, va_list);                                                            \
    template void CXTString<T>::Format(const T*, ...);                                                                 \
    template void CXTString<T>::Format(unsigned int, ...);                                                             \
    template void CXTString<T>::AppendFormat(const T*, ...);                                                           \
    template void CXTString<T>::AppendFormat(unsigned int, ...);                                                       \
    template int CXTString<T>::ScanVS(const T*, va_list) const;                                                        \
    template int CXTString<T>::ScanVS(int, const T*, va_list) const;                                                   \
    template int CXTString<T>::ScanS(const T*, ...) const;                                                             \
    template int CXTString<T>::ScanS(int, const T*, ...) const;                                                        \
    template bool CXTString<T>::LoadString(unsigned int);

X_INSTANTIATE(char)
X_INSTANTIATE(wchar_t)
