#pragma once

// The members of CXTString that take a format. For CXTStringInstances.cpp, which instantiates the whole class. The
// result is built in a buffer of its own before the string changes, because an argument may be the string's own text.

#include "text/CXTStringBuffer.h"
#include "text/FailureRecord.h"
#include "text/MessageTexts.h"
#include "text/TextFormat.h"
#include "text/TextScan.h"

namespace tev
{
constexpr int kNothingToScan = -1;

template <class T>
void AppendFormatV(CXTString<T>& text, const T* format, va_list arguments)
{
    FormatOutput<T> output;
    if (format != nullptr && FormatText(output, format, arguments))
        text.Append(output.Data(), output.Length());
    else
        NoteBadArgument("CXTString::AppendFormat");
}

/// Empty for an unknown number.
template <class T>
CXTString<T> MessageText(unsigned messageId)
{
    return FindMessageText(messageId);
}
} // namespace tev

template <class T>
void CXTString<T>::FormatV(const T* format, va_list arguments)
{
    tev::FormatOutput<T> output;
    if (format == nullptr || !tev::FormatText(output, format, arguments))
    {
        tev::NoteBadArgument("CXTString::Format");
        if (format != nullptr)
            Empty();
        return;
    }
    const std::size_t length = output.Length();
    if (length < m_text.m_capacity)
    {
        Assign(output.Data(), length);
        return;
    }
    // Where the string must grow anyway, a block that the text has already becomes its buffer.
    const unsigned __int64 capacity = tev::CapacityFor<T>(length);
    T* const block = output.Release(static_cast<std::size_t>(capacity));
    if (block == nullptr)
    {
        Assign(output.Data(), length);
        return;
    }
    if (m_text.m_capacity != 0)
        std::free(m_text.m_data);
    m_text = {block, length, capacity};
    block[length] = T();
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
    FormatV(tev::MessageText<T>(messageId), arguments);
    va_end(arguments);
}

template <class T>
void CXTString<T>::AppendFormat(const T* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    tev::AppendFormatV(*this, format, arguments);
    va_end(arguments);
}

template <class T>
void CXTString<T>::AppendFormat(unsigned int messageId, ...)
{
    va_list arguments;
    va_start(arguments, messageId);
    tev::AppendFormatV<T>(*this, tev::MessageText<T>(messageId), arguments);
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
    {
        tev::NoteBadArgument("CXTString::ScanS");
        return tev::kNothingToScan;
    }
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
    const wchar_t* const text = tev::FindMessageText(messageId);
    *this = text;
    return text != nullptr;
}
