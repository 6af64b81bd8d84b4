#include "crash/CrashPaths.h"

#include "platform/FatalSignals.h"
#include "platform/PathNames.h"
#include "text/TextEncoding.h"

#include <cstdio>
#include <system_error>

namespace tev
{
namespace
{
namespace fs = std::filesystem;

fs::path PrivateName(const fs::path& beside, unsigned process)
{
    return beside.string() + "." + std::to_string(process);
}
} // namespace

fs::path SystemFilePath(const CXTString<wchar_t>& path)
{
    std::string name;
    return platform::WidePathToSystem(path, name) ? fs::path(name) : fs::path();
}

CPathString WideFilePath(const fs::path& path)
{
    return CPathString(platform::SystemPathToWide(path.c_str()).c_str());
}

std::string Utf8(const CXTString<wchar_t>& text)
{
    CXTString<char> result;
    if (!XEncodeText(text.GetConstBuffer(), text.GetLength64(), xEncodingUtf8, result))
        return {};
    return {result.GetConstBuffer(), result.GetLength64()};
}

CXTString<wchar_t> FromUtf8(const std::string& text)
{
    CXTString<wchar_t> result;
    if (!XDecodeText(text.data(), text.size(), xEncodingUtf8, result))
        return {};
    return result;
}

PrivateFolder::PrivateFolder(const fs::path& beside) : m_path(PrivateName(beside, platform::ProcessId()))
{
    fs::remove_all(m_path); // an earlier process of the same identifier
    if (!fs::create_directory(m_path))
        throw fs::filesystem_error("in use", m_path, std::make_error_code(std::errc::file_exists));
    std::error_code failure;
    fs::permissions(m_path, fs::perms::owner_all, failure);
}

PrivateFolder::~PrivateFolder()
{
    std::error_code failure;
    fs::remove_all(m_path, failure);
}

void RemoveReportFile(const CXTString<wchar_t>& path) noexcept
{
    std::string name;
    if (platform::WidePathToSystem(path, name) && !name.empty())
        std::remove(name.c_str());
}

void RemovePrivateFolder(const fs::path& beside, unsigned process) noexcept
{
    std::error_code failure;
    fs::remove_all(PrivateName(beside, process), failure);
}
} // namespace tev
