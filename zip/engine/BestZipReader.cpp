#include "zip/engine/PlainZipReader.h"

#include "zip/engine/EngineZipReader.h"
#include "zip/engine/MinizZipReader.h"

namespace tev::platform
{
namespace
{
/// Asks the engine for what miniz does not know, once there is such an entry.
class BestZipReader final : public PlainZipReader
{
public:
    BestZipReader(std::unique_ptr<PlainZipReader> miniz, std::wstring path, std::string password)
        : m_miniz(std::move(miniz)), m_path(std::move(path)), m_password(std::move(password))
    {
    }

    std::unique_ptr<PlainZipReader> Another() const override
    {
        std::unique_ptr<PlainZipReader> miniz = m_miniz->Another();
        return std::make_unique<BestZipReader>(std::move(miniz), m_path, m_password);
    }

    std::uint64_t Size() const override { return m_miniz->Size(); }
    std::uint64_t Count() const override { return m_miniz->Count(); }

    bool GetEntry(std::uint64_t index, PlainZipEntry& entry) override { return m_miniz->GetEntry(index, entry); }

    ZipReadResult Read(std::uint64_t index, const ZipSink& sink) override
    {
        const ZipReadResult result = m_miniz->Read(index, sink);
        if (result != ZipReadResult::Unsupported)
            return result;
        if (m_engine == nullptr)
            m_engine = OpenWithEngine(m_path.c_str(), m_password);
        return m_engine == nullptr ? result : m_engine->Read(index, sink);
    }

private:
    std::unique_ptr<PlainZipReader> m_miniz;
    std::unique_ptr<PlainZipReader> m_engine;
    std::wstring m_path;
    std::string m_password;
};
} // namespace

std::unique_ptr<PlainZipReader> PlainZipReader::Open(const wchar_t* path, const std::string& password, By by)
{
    if (by == By::Engine)
        return OpenWithEngine(path, password);
    std::unique_ptr<PlainZipReader> miniz = OpenWithMiniz(path);
    if (by == By::Miniz)
        return miniz;
    if (miniz == nullptr)
        return OpenWithEngine(path, password);
    return std::make_unique<BestZipReader>(std::move(miniz), path, password);
}
} // namespace tev::platform
