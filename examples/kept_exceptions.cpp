// Exceptions that leave the thread that threw them, or the catch block that has them: each has one owner at a time.

#include "TevTools.h"

#include <exception>
#include <functional>
#include <future>
#include <iostream>
#include <memory>

namespace
{
int LoadOnThisThread(const wchar_t* path)
{
    const CXFile file(path, CXFile::modeRead); // throws
    return static_cast<int>(file.GetLength());
}

int Load(const wchar_t* path)
{
    try
    {
        return LoadOnThisThread(path);
    }
    catch (CXException* exception)
    {
        XKeepException(exception);
        throw;
    }
}

bool LoadInTheBackground()
{
    std::future<int> size = std::async(std::launch::async, Load, L"missing.obj");
    try
    {
        return size.get() >= 0;
    }
    catch (CXFileException* exception)
    {
        std::cout << "cause " << exception->GetCause() << '\n';
        exception->Delete();
    }
    return false;
}

class CImport
{
public:
    void Run(const wchar_t* path)
    {
        try
        {
            LoadOnThisThread(path);
        }
        catch (CXException* exception)
        {
            m_failure.reset(XKeepException(exception));
        }
    }
    const CXException* GetFailure() const { return m_failure.get(); }

private:
    std::unique_ptr<CXException> m_failure;
};

/// For code that knows of std::exception_ptr only.
std::unique_ptr<CXException> FailureOf(const std::function<void()>& work)
{
    std::exception_ptr caught;
    try
    {
        work();
    }
    catch (...)
    {
        caught = std::current_exception();
    }
    return std::unique_ptr<CXException>(XKeepException(caught));
}

bool LoadOnAThread()
{
    const auto body = [](void* path) { return LoadOnThisThread(static_cast<const wchar_t*>(path)) >= 0; };
    wchar_t path[] = L"missing.obj";
    const std::unique_ptr<CXThread> thread(
        CXThread::BeginThread(body, path, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0));
    if (thread == nullptr || !thread->WaitForEnd(60000))
        return false;
    const std::unique_ptr<CXException> failure(thread->TakeException());
    if (failure != nullptr)
        std::cout << "ended by " << failure->GetRuntimeClassDescriptor()->m_name << '\n';
    return failure == nullptr;
}
} // namespace

int main()
{
    CImport import;
    import.Run(L"missing.obj");
    const bool isKept = import.GetFailure() != nullptr && FailureOf([] { CXUserException::Throw(); }) != nullptr;
    return isKept && !LoadInTheBackground() && !LoadOnAThread() ? 0 : 1;
}
