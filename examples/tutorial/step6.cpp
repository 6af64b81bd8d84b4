// Step 6: a worker reads, while the program stays at hand: it shows how far the worker is, and can end it at any moment.
// usage: step6 [FOLDER]

#include "examples/tutorial/Model.h"

#include <atomic>
#include <cstdio>
#include <memory>

namespace
{
class CModelReader : public CCustomThread
{
public:
    explicit CModelReader(const CPathString& path) : m_path(path) {}

    unsigned GetPercent() const noexcept { return m_percent.load(); }
    /// When the worker has ended.
    const CModel& GetModel() const noexcept { return m_model; }

protected:
    bool Run() override
    {
        m_model.Read(m_path, [this](unsigned __int64 done, unsigned __int64 total) {
            m_percent = static_cast<unsigned>(done * 100 / total);
            return !ShouldCancel() && !MustTerminate();
        });
        return true;
    }

private:
    const CPathString m_path;
    std::atomic<unsigned> m_percent{0};
    CModel m_model;
};

/// Null when no thread is to be had.
std::unique_ptr<CModelReader> StartToRead(const CPathString& path)
{
    auto* const reader = new CModelReader(path);
    const bool runs =
        CXThread::BeginThread(reader, xThreadPriorityBelowNormal, CXThread::kBeginWithoutAutoDelete, 0) != nullptr;
    return std::unique_ptr<CModelReader>(runs ? reader : nullptr); // else the object is deleted already
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    const CPathString path = CPathString(argumentCount > 1 ? arguments[1] : ".") / L"pawn.obj";
    std::unique_ptr<CModelReader> reader = StartToRead(path);
    if (reader == nullptr)
        return 1;
    while (!reader->WaitForEnd(50)) // a window asks from a timer
        std::printf("%u %%\n", reader->GetPercent());
    if (const std::unique_ptr<CXException> failure(reader->TakeException()); failure != nullptr)
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(failure.get())).GetConstBuffer());
    const bool isRead = reader->GetModel().m_vertices.size() == 74;

    reader = StartToRead(path); // and now the person closes the program
    if (reader != nullptr)
    {
        reader->SetCancel();
        while (!reader->WaitForEnd(1000))
            std::puts("the worker ends soon");
    }
    reader.reset();
    CCustomThread::WaitEndOfThreads(true);
    return isRead ? 0 : 1;
}
