#include "crash/CrashPaths.h"

#include "crash/Attempt.h"
#include "platform/FatalSignals.h"
#include "platform/PathNames.h"
#include "text/TextEncoding.h"

#include <cstdio>
#include <string_view>
#include <system_error>
#include <vector>

namespace tev
{
namespace
{
namespace fs = std::filesystem;

constexpr const char* kLockName = "lock";

fs::path PrivateName(const fs::path& beside, unsigned process)
{
    return beside.string() + "." + std::to_string(process);
}

bool IsPrivateName(const std::string& name, const std::string& start)
{
    constexpr std::string_view kEnd = "Report.zip."; // before the process
    const std::size_t end = name.find_last_not_of("0123456789") + 1;
    return end < name.size() && end >= start.size() + kEnd.size() && name.compare(0, start.size(), start) == 0 &&
           name.compare(end - kEnd.size(), kEnd.size(), kEnd) == 0;
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
    std::error_code failure; // then there is no folder below
    fs::create_directories(m_path.parent_path(), failure);
    fs::remove_all(m_path); // an earlier process of the same identifier
    if (!fs::create_directory(m_path))
        throw fs::filesystem_error("in use", m_path, std::make_error_code(std::errc::file_exists));
    fs::permissions(m_path, fs::perms::owner_all, failure);
    const std::string lock = m_path / kLockName;
    if (platform::WritePrivateFile(lock.c_str(), {}))
        m_lock.emplace(lock); // some file systems have no locks
}

PrivateFolder::~PrivateFolder()
{
    std::error_code failure;
    fs::remove_all(m_path, failure);
}

void RemoveLeftFolders(const CXTString<wchar_t>& folder, const CXTString<wchar_t>& start) noexcept
{
    Attempt([&] {
        std::error_code failure;
        std::vector<fs::path> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(SystemFilePath(folder), failure))
        {
            if (entry.is_directory(failure) &&
                IsPrivateName(entry.path().filename().string(), SystemFilePath(start).string()))
                found.push_back(entry.path());
        }
        for (const fs::path& path : found)
        {
            const fs::path lock = path / kLockName;
            const platform::LeftRecord left(lock.string());
            if (left.IsHeld() || !fs::exists(lock))
                fs::remove_all(path, failure);
        }
    });
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
