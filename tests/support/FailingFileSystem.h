#pragma once

#include "platform/FileSystem.h"
#include "tests/support/Testing.h"

namespace tev::test
{

/// Stands in for the process's file system while it lives and passes everything on to the one before, except what it is
/// told to fail. One thread at a time.
class FailingFileSystem final : public platform::FileSystem
{
public:
    FailingFileSystem() : m_real(platform::ReplaceFileSystem(this)) {}
    ~FailingFileSystem() { platform::ReplaceFileSystem(m_real); }
    FailingFileSystem(const FailingFileSystem&) = delete;
    FailingFileSystem& operator=(const FailingFileSystem&) = delete;

    /// The n-th operation from now on, from 1, fails with `error`, once. A close that fails closes all the same.
    void FailAt(unsigned n, int error)
    {
        m_untilFailure = n;
        m_error = error;
    }
    /// Each operation of that name fails with `error`; an empty name ends this.
    void FailEach(std::string step, int error)
    {
        m_failingStep = std::move(step);
        m_error = error;
    }
    /// The disk has room for this many more bytes; a write that does not fit writes a part and fails with ENOSPC.
    void LimitSpace(std::uint64_t bytes) { m_space = bytes; }
    /// Called whenever that operation is about to be done.
    void AtStep(std::string step, std::function<void()> call)
    {
        m_watchedStep = std::move(step);
        m_atStep = std::move(call);
    }
    /// The operations so far that are among `wanted`, such as "sync" and "rename", in their order.
    std::vector<std::string> Steps(const std::set<std::string>& wanted) const
    {
        std::vector<std::string> steps;
        std::copy_if(m_steps.begin(), m_steps.end(), std::back_inserter(steps),
                     [&](const std::string& step) { return wanted.count(step) != 0; });
        return steps;
    }
    /// The operation that failed as it was told to; empty as long as none did.
    const std::string& FailedStep() const { return m_failedStep; }
    /// No read or write moves more than this at once, without an error.
    void LimitTransfer(std::size_t bytes) { m_transfer = bytes; }

    platform::FileHandle Open(const wchar_t* path, const platform::FileOpenMode& mode) override
    {
        return Fails("open") ? nullptr : m_real->Open(path, mode);
    }
    bool Read(platform::FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = 0;
        return !Fails("read") && m_real->Read(file, buffer, std::min(count, m_transfer), delivered);
    }
    bool ReadAvailable(platform::FileHandle file, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = 0;
        return !Fails("read") && m_real->ReadAvailable(file, buffer, std::min(count, m_transfer), delivered);
    }
    bool Write(platform::FileHandle file, const void* buffer, std::size_t count, std::size_t& written) override
    {
        written = 0;
        if (Fails("write"))
            return false;
        const auto fitting = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_space));
        const bool done = m_real->Write(file, buffer, std::min(fitting, m_transfer), written);
        m_space -= written;
        if (!done || fitting == count)
            return done;
        errno = ENOSPC;
        return false;
    }
    bool CopyRange(platform::FileHandle from, platform::FileHandle to, std::uint64_t offset, std::size_t count,
                   std::size_t& copied) override
    {
        const auto fitting = static_cast<std::size_t>(std::min<std::uint64_t>(std::min(count, m_transfer), m_space));
        copied = 0;
        errno = ENOSPC;
        const bool done = !Fails("copy") && fitting != 0 && m_real->CopyRange(from, to, offset, fitting, copied);
        m_space -= copied;
        return done;
    }
    bool Seek(platform::FileHandle file, std::int64_t offset, platform::SeekOrigin origin,
              std::uint64_t& position) override
    {
        return !Fails("seek") && m_real->Seek(file, offset, origin, position);
    }
    bool GetLength(platform::FileHandle file, std::uint64_t& length) override
    {
        return !Fails("get length") && m_real->GetLength(file, length);
    }
    bool SetLength(platform::FileHandle file, std::uint64_t length) override
    {
        return !Fails("set length") && m_real->SetLength(file, length);
    }
    bool Sync(platform::FileHandle file) override { return !Fails("sync") && m_real->Sync(file); }
    bool Close(platform::FileHandle file) override
    {
        const bool failed = Fails("close");
        const bool closed = m_real->Close(file);
        errno = failed ? m_error : errno;
        return closed && !failed;
    }
    bool ResolveLinks(const wchar_t* path, std::wstring& target) override
    {
        return !Fails("resolve links") && m_real->ResolveLinks(path, target);
    }
    platform::FileHandle LockFolder(const wchar_t* path, unsigned timeoutMs) override
    {
        return Fails("lock folder") ? nullptr : m_real->LockFolder(path, timeoutMs);
    }
    platform::FileHandle OpenFolder(const wchar_t* path) override
    {
        return Fails("open folder") ? nullptr : m_real->OpenFolder(path);
    }
    void Unlock(platform::FileHandle locked) noexcept override
    {
        m_steps.push_back("unlock");
        m_real->Unlock(locked);
    }
    platform::FileHandle KeepLock(platform::FileHandle file) override
    {
        return Fails("keep lock") ? nullptr : m_real->KeepLock(file);
    }
    platform::FileHandle CreateLike(const wchar_t* path, const wchar_t* model) override
    {
        return Fails("create") ? nullptr : m_real->CreateLike(path, model);
    }
    platform::FileHandle CreateTemporary(const wchar_t* model, std::wstring& path, bool& isNamed) override
    {
        return Fails("create") ? nullptr : m_real->CreateTemporary(model, path, isNamed);
    }
    bool Name(platform::FileHandle file, const wchar_t* path) override
    {
        return !Fails("name") && m_real->Name(file, path);
    }
    bool Rename(const wchar_t* path, const wchar_t* newPath) override
    {
        return !Fails("rename") && m_real->Rename(path, newPath);
    }
    bool SyncFolder(platform::FileHandle folder) override
    {
        return !Fails("sync folder") && m_real->SyncFolder(folder);
    }
    void RemoveLeftTemporaries(platform::FileHandle folder) noexcept override { m_real->RemoveLeftTemporaries(folder); }
    bool Remove(const wchar_t* path) override { return !Fails("remove") && m_real->Remove(path); }

private:
    bool Fails(const std::string& step)
    {
        m_steps.push_back(step);
        if (step == m_watchedStep)
            m_atStep();
        if (step != m_failingStep && (m_untilFailure == 0 || --m_untilFailure != 0))
            return false;
        m_failedStep = step;
        errno = m_error;
        return true;
    }

    platform::FileSystem* m_real;
    unsigned m_untilFailure = 0; ///< 0: none is planned
    int m_error = 0;
    std::string m_failingStep; ///< empty: none
    std::uint64_t m_space = std::numeric_limits<std::uint64_t>::max();
    std::size_t m_transfer = std::numeric_limits<std::size_t>::max();
    std::string m_watchedStep;
    std::function<void()> m_atStep;
    std::vector<std::string> m_steps;
    std::string m_failedStep;
};

} // namespace tev::test
