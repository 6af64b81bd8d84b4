#pragma once

#include <string>

namespace tev::platform
{
/// Texts and paths are UTF-8.
struct MailMessage
{
    std::string to;
    std::string copyTo; ///< may be empty
    std::string subject;
    std::string body;
    std::string attachment; ///< the full path of a file
};

/// Hands a message to the person's mail program, where it can be looked at and sent. False when there is none, or it
/// refuses, or does not answer within a minute. The mail program may read the attachment later.
/// Safe from several threads at once.
[[nodiscard]] bool HandToMailProgram(const MailMessage& message);
} // namespace tev::platform
