#include "examples/host/window/Loading.h"

#include "qt/toolkit/QtText.h"

#include <QImageReader>

namespace host
{
namespace
{
std::shared_ptr<const Image> ReadImageFile(const CPathString& path)
{
    constexpr int kLargest = 8192;
    QImageReader reader(XToQString(path));
    const QSize size = reader.size();
    if (!size.isValid() || size.width() > kLargest || size.height() > kLargest)
        return nullptr;
    const QImage read = reader.read().convertToFormat(QImage::Format_RGB32);
    if (read.isNull())
        return nullptr;
    auto image = std::make_shared<Image>(Image{read.width(), read.height(), {}});
    for (int row = 0; row < read.height(); ++row)
    {
        const auto* pixels = reinterpret_cast<const unsigned*>(read.constScanLine(row));
        image->m_pixels.insert(image->m_pixels.end(), pixels, pixels + read.width());
    }
    return image;
}
} // namespace

bool Loading::Start()
{
    CrashThreadInstall();
    return true;
}

bool Loading::Run()
{
    const auto progress = [this](unsigned __int64 done, unsigned __int64 total) {
        constexpr unsigned kWhole = 1000;
        m_progress =
            total == 0 ? -1 : static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * kWhole);
        if (m_perform)
            m_perform();
        return !ShouldCancel() && !MustTerminate();
    };
    if (IsSceneName(m_path))
    {
        m_scene = LoadScene(m_path, progress);
        return true;
    }
    OpenedModel model = OpenModel(m_path, progress, ReadImageFile);
    m_warnings = std::move(model.m_warnings);
    m_files.insert(m_files.end(), model.m_files.begin(), model.m_files.end());
    auto shape = std::make_unique<MeshShape>(std::move(model.m_mesh));
    shape->m_name = m_path.GetTitle();
    auto scene = std::make_unique<Scene>();
    scene->m_shapes.push_back(std::move(shape));
    m_scene = std::move(scene);
    return true;
}

void Loading::Finish()
{
    CrashThreadUninstall();
}
} // namespace host
