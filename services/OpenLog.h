#pragma once

namespace tev
{
/// The full path of the log that is open, in the system's form; null when there is none. Takes no lock and is safe in
/// signal handlers. It stays valid until another log is opened.
const char* OpenLogPath() noexcept;
} // namespace tev
