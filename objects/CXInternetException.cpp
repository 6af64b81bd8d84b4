#include "objects/CXInternetException.h"

#include "objects/ThreadException.h"
#include "platform/SystemErrors.h"

#include <algorithm>
#include <iterator>

X_IMPLEMENT_ABSTRACT_CLASS(CXInternetException, CXException, xSchemaNotSerializable)

namespace
{
struct InternetText
{
    unsigned error;
    const wchar_t* text;
};

// 12003 says that the server's answer holds the reason. No session of the library keeps such answers, so it has no text.
constexpr InternetText kInternetTexts[] = {
    {12001, L"No more internet handles can be made."},
    {12002, L"The server did not answer in time."},
    {12004, L"An internal error occurred."},
    {12005, L"The address is not valid."},
    {12006, L"The protocol of the address is not known."},
    {12007, L"The name of the server was not found."},
    {12008, L"The protocol is not available."},
    {12009, L"The option is not known."},
    {12010, L"The length of the option's value is wrong."},
    {12011, L"The option cannot be set."},
    {12012, L"The internet functions have been shut down."},
    {12013, L"The user name is wrong."},
    {12014, L"The password is wrong."},
    {12015, L"The server refused the login."},
    {12016, L"The operation is not valid."},
    {12017, L"The operation was cancelled."},
    {12018, L"The handle is of the wrong type for this operation."},
    {12019, L"The handle is in the wrong state for this operation."},
    {12026, L"An earlier request is still running."},
    {12027, L"The request has a wrong format."},
    {12028, L"The item was not found on the server."},
    {12029, L"The server cannot be reached."},
    {12030, L"The connection was broken off."},
    {12031, L"The server reset the connection."},
    {12032, L"The request must be sent again."},
    {12033, L"The request to the proxy is not valid."},
    {12036, L"The handle exists already."},
    {12037, L"The server's certificate is out of date."},
    {12038, L"The server's certificate belongs to another server."},
    {12039, L"The server redirects from a plain to a secure connection."},
    {12040, L"The server redirects from a secure to a plain connection."},
    {12041, L"The page is only partly secure."},
    {12044, L"The server asks for a certificate of the client."},
    {12045, L"The server's certificate comes from an unknown authority."},
    {12110, L"A file transfer is already running on this connection."},
    {12111, L"The file transfer was broken off."},
    {12150, L"The header was not found."},
    {12151, L"The server sent no headers."},
    {12152, L"The server's answer is not valid."},
    {12153, L"The header is not valid."},
    {12154, L"The query is not valid."},
    {12155, L"The header exists already."},
    {12156, L"The redirection failed."},
    {12157, L"No secure connection could be made."},
    {12163, L"The connection to the internet is lost."},
    {12164, L"The server is not reachable."},
    {12165, L"The proxy is not reachable."},
    {12169, L"The server's certificate is not valid."},
    {12170, L"The server's certificate was revoked."},
    {12175, L"The secure connection failed."},
};
} // namespace

CXInternetException::CXInternetException(unsigned __int64 context, unsigned int error)
    : m_errorCode(error != 0 ? error : tev::platform::LastSystemError()), m_context(context)
{
}

CXTString<wchar_t> CXInternetException::GetErrorMessage(unsigned int* helpContext) const
{
    if (helpContext != nullptr)
        *helpContext = 0;
    const auto* found = std::find_if(std::begin(kInternetTexts), std::end(kInternetTexts),
                                     [this](const InternetText& entry) { return entry.error == m_errorCode; });
    if (found != std::end(kInternetTexts))
        return found->text;
    return tev::platform::SystemErrorText(m_errorCode).c_str();
}

void CXInternetException::Throw(unsigned __int64 context, unsigned int error)
{
    tev::RecordAndThrow<CXInternetException>(context, error);
}
