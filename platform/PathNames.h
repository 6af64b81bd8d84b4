#pragma once

#include <cstddef>
#include <string>

namespace tev::platform
{

/// Separates the components of a path that the library composes.
#if defined(_WIN32)
constexpr wchar_t kPathSeparator = L'\\';
#else
constexpr wchar_t kPathSeparator = L'/';
#endif

/// Converts a path to the form that system calls take: UTF-8, with '\' as '/'. A code point U+DC80 to U+DCFF stands for
/// the raw byte 0x80 to 0xFF, so that names which are not UTF-8 can be reached too; a surrogate pair is one character.
/// False, with `result` unspecified, when the path holds a character that no name can have (another lone surrogate or a
/// value above U+10FFFF). Null counts as empty. Safe from several threads at once.
[[nodiscard]] bool WidePathToSystem(const wchar_t* path, std::string& result);

/// As above into a buffer of `size` bytes, NUL-terminated, without an allocation. False also when the buffer is too small:
/// `isTooLong` tells the two reasons apart.
[[nodiscard]] bool WidePathToSystem(const wchar_t* path, char* buffer, std::size_t size, bool& isTooLong) noexcept;

/// As WidePathToSystem, but empty for a path that no name can have: no file has an empty path.
[[nodiscard]] std::string SystemPathOf(const wchar_t* path);

/// The inverse for a name that came from the system: each byte that is not part of valid UTF-8 becomes one of
/// U+DC80 to U+DCFF. A backslash stays one, so that a name which holds one cannot be opened by the result.
/// Safe from several threads at once.
[[nodiscard]] std::wstring SystemPathToWide(const char* path);

/// Whether the bytes up to the first NUL are UTF-8, so that SystemPathToWide replaces none.
[[nodiscard]] bool IsUtf8(const char* text);

/// The path from the root, put together from the process's current folder where it does not begin there; as it is where
/// there is none. Links and ".." are not resolved. For paths that are used again later.
[[nodiscard]] std::wstring FullPath(const wchar_t* path);

} // namespace tev::platform
