#pragma once

#include "files/CXFile.h"
#include "qt/log/LogDocument.h"
#include "services/Paths.h"

#include <QTest>

#include <filesystem>
#include <fstream>
#include <string>

/// A folder of the test, with files of bytes.
class LogFolder
{
public:
    LogFolder() : m_path(fileCreateTemporaryFolder(L"tev-log")) {}
    ~LogFolder() { std::filesystem::remove_all(static_cast<const wchar_t*>(m_path)); }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    std::filesystem::path Path(const char* name) const
    {
        return std::filesystem::path(static_cast<const wchar_t*>(m_path)) / name;
    }
    CXTString<wchar_t> Write(const char* name, const std::string& bytes,
                             std::ios::openmode mode = std::ios::trunc) const
    {
        std::ofstream(Path(name), std::ios::binary | mode) << bytes;
        return CXTString<wchar_t>(Path(name).wstring());
    }
    CXTString<wchar_t> Append(const char* name, const std::string& bytes) const
    {
        return Write(name, bytes, std::ios::app);
    }

private:
    CPathString m_path;
};

constexpr int kDeadline = 60000;

/// Waits until everything is counted.
inline bool WaitUntilIdle(LogDocument& document)
{
    return QTest::qWaitFor(
        [&] {
            document.Tick();
            return document.IsIdle();
        },
        kDeadline);
}

inline std::vector<std::string> TextsOf(const std::vector<LogRow>& rows)
{
    std::vector<std::string> texts;
    for (const LogRow& row : rows)
        texts.push_back(row.m_text.toStdString());
    return texts;
}
