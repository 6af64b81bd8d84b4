#pragma once

namespace tev::platform
{
/// Whether OpenSSL, with which libzip encrypts and decrypts AES, is initialised, which the first call does. Where memory
/// runs out over that, OpenSSL would crash at its first use, and stays so until the process ends. True where libzip is
/// built with another library. Safe from several threads at once.
[[nodiscard]] bool IsOpenSslReady() noexcept;
} // namespace tev::platform
