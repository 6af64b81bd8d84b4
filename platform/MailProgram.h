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

/// Opens a message in the user's mail program, for sending. False when there is none, it fails, or it does not return within
/// a minute. The mail program may read the attachment later.
/// Safe from several threads at once.
[[nodiscard]] bool HandToMailProgram(const MailMessage& message);
} // namespace tev::platform
