#pragma once

#include "tests/support/TempFolder.h"
#include "tests/support/ZipTools.h"

namespace tev::test
{
class Watcher final : public CZipExtractCallback
{
public:
    bool OnProgress(unsigned __int64 processed) override
    {
        EXPECT_GT(processed, m_processed);
        m_processed = processed;
        if (m_throws)
            throw std::runtime_error("from the callback");
        if (m_lacksMemory)
            CXMemoryException::Throw();
        return processed < m_cancelFrom;
    }
    int OnExtractEntry(const CZipFileInfo& entry, const wchar_t* targetPath) override
    {
        EXPECT_EQ(GetEntryName(), entry.GetFileName());
        EXPECT_STREQ(GetTargetPath(), targetPath);
        EXPECT_GE(GetStep(), 1U);
        m_target = targetPath;
        return m_answer;
    }
    void OnActionBegin(XZipAction action, unsigned __int64 total) override
    {
        m_action = action;
        m_total = total;
        m_processed = 0;
    }
    void OnActionEnd(XZipAction action) noexcept override { m_ended = action == m_action; }

    int m_answer = 0;
    bool m_throws = false;
    bool m_lacksMemory = false; // as new says it where crashes are reported
    bool m_ended = false;
    unsigned __int64 m_cancelFrom = ~0ull;
    unsigned __int64 m_processed = 0;
    unsigned __int64 m_total = 0;
    XZipAction m_action = XZipAction::kTesting;
    std::wstring m_target;
};

/// An archive of a.txt ("first"), folder/b.bin (1 MB) and the folder itself.
class CZipArchive : public testing::Test
{
protected:
    void SetUp() override
    {
        m_folder.WriteFile("a.txt", "first");
        m_folder.WriteFile("folder/b.bin", m_large);
        ASSERT_TRUE(ChangeArchive(m_path, zipCreate, [&](CZip& zip) {
            return zip.AddNewFile(m_folder.WidePath("a.txt").c_str(), false, zipLevelDefault) &&
                   zip.AddNewFile(m_folder.WidePath("folder").c_str(), L"folder", zipLevelDefault) &&
                   zip.AddNewFile(m_folder.WidePath("folder/b.bin").c_str(), L"folder\\b.bin", zipLevelBest);
        }));
        m_bytes = m_folder.ReadFile("x.zip");
    }

    void Open(CZip& zip, ZipOpenMode mode = zipOpenReadWrite)
    {
        ASSERT_TRUE(zip.Open(m_path.c_str(), mode, false, &m_watcher));
    }

    TempFolder m_folder;
    const std::string m_large = std::string(1000000, 'b');
    const std::wstring m_path = m_folder.WidePath("x.zip");
    const std::wstring m_out = m_folder.WidePath("out");
    std::string m_bytes;
    Watcher m_watcher;
};
} // namespace tev::test
