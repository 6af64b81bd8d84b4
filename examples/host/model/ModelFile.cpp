#include "examples/host/model/ModelFile.h"

#include <filesystem>

namespace host
{
namespace
{
constexpr unsigned kObjLoader = XFourCharacterCode("HOBJ");
constexpr unsigned kSceneClass = XFourCharacterCode("HSCN");
constexpr unsigned kReading = CXFile::modeRead | CXFile::shareDenyNone | CXFile::modeNoInherit;

/// Unpacks with the caller's progress, and remembers that it cancelled.
class Unpacker : public CMiniZip
{
public:
    explicit Unpacker(const Progress& progress) : m_progress(progress)
    {
        CXExtractionLimits limits;
        limits.m_totalBytes = 4ULL << 30;
        limits.m_ratio = 2000;
        SetLimits(limits);
    }
    ~Unpacker() override { Clean(); } // before OnProgress goes

protected:
    bool OnProgress(unsigned __int64 done, unsigned __int64 total) override
    {
        return !m_progress || m_progress(done, total);
    }

private:
    const Progress& m_progress;
};

[[noreturn]] void FailUnpacking(const CMiniZip& unpacker)
{
    if (unpacker.GetFailure() == CXExtractionFailure::kCancelled)
        CXUserException::Throw();
    XThrow<ModelException>(0, XGetText(unpacker.GetFailure()));
}

bool HasExtension(const CXTString<wchar_t>& path, const wchar_t* extension)
{
    return fileGetExtension(path).CompareNoCase(extension) == 0;
}

/// A file that a model names. A model from elsewhere has no business outside its own folder: empty for such names.
CPathString Beneath(const CPathString& folder, const CXTString<wchar_t>& name)
{
    CXTString<wchar_t> plain = name;
    plain.Replace(L'\\', L'/');
    const std::filesystem::path relative = CPathString(plain);
    if (relative.empty() || relative.is_absolute())
        return {};
    for (const std::filesystem::path& part : relative)
    {
        if (part == "..")
            return {};
    }
    const CPathString path = folder / plain;
    return fileIsFile(path) ? path : CPathString();
}

class ModelOpening
{
public:
    ModelOpening(const Progress& progress, const ImageReader& readImage) : m_progress(progress), m_readImage(readImage)
    {
    }

    /// `folder` is where the files lie that the model names.
    OpenedModel Read(const CPathString& path, const CPathString& folder)
    {
        std::vector<CXTString<wchar_t>> materialFiles;
        CXFile file(path, kReading);
        ReadObj(file, ModelLimits(), m_progress, m_model.m_mesh, materialFiles);
        for (const CXTString<wchar_t>& name : materialFiles)
            ReadMaterials(folder, name);
        for (Material& material : m_model.m_mesh.m_materials)
            ReadTexture(folder, material);
        return std::move(m_model);
    }

private:
    void Warn(const CXTString<wchar_t>& name, const CXTString<wchar_t>& reason)
    {
        m_model.m_warnings.push_back(name + L": " + reason);
    }

    /// A model without its colours is better than none.
    void ReadMaterials(const CPathString& folder, const CXTString<wchar_t>& name)
    {
        const CPathString path = Beneath(folder, name);
        if (path.IsEmpty())
            return Warn(name, Say(L"there is no such file of materials", L"ce fichier de mat\u00e9riaux n'existe pas"));
        m_model.m_files.emplace_back(path);
        try
        {
            CXFile file(path, kReading);
            ReadMtl(file, m_progress, m_model.m_mesh);
        }
        catch (ModelException* e)
        {
            Warn(name, e->GetMessageText());
            e->Delete();
        }
        catch (CXFileException* e)
        {
            Warn(name, XGetExceptionText(e));
            e->Delete();
        }
    }

    void ReadTexture(const CPathString& folder, Material& material)
    {
        if (material.m_textureName.IsEmpty() || !m_readImage)
            return;
        if (m_progress && !m_progress(0, 0))
            CXUserException::Throw();
        const CPathString path = Beneath(folder, material.m_textureName);
        if (!path.IsEmpty())
        {
            m_model.m_files.emplace_back(path);
            material.m_texture = m_readImage(path);
        }
        if (material.m_texture == nullptr)
            Warn(material.m_textureName, Say(L"the texture cannot be read", L"la texture est illisible"));
    }

    const Progress& m_progress;
    const ImageReader& m_readImage;
    OpenedModel m_model;
};
} // namespace

bool FileState::Look()
{
    const XFileStamp before = m_seen;
    return XGetFileStamp(m_path, m_seen) && m_seen != before;
}

void RegisterFileTypes()
{
    CFileExt model(Say(L"Models", L"Mod\u00e8les"), L".obj", XFourCharacterCode("HMOD"),
                   xFile3DScene | xFilePreferred | 0x1, kObjLoader);
    CFileExt scene(Say(L"Scenes", L"Sc\u00e8nes"), L".tevscene", kSceneClass, xFile3DScene | 0x3, kSceneClass,
                   kSceneClass);
    fileRegisterFile(model);
    fileRegisterFile(scene);
}

bool IsModelName(const CXTString<wchar_t>& path)
{
    if (fileGetLoader(path) == kObjLoader || HasExtension(path, L".zip"))
        return true;
    return (HasExtension(path, L".gz") || HasExtension(path, L".zst")) &&
           fileGetLoader(CPathString(path).GetTitle()) == kObjLoader;
}

bool IsSceneName(const CXTString<wchar_t>& path)
{
    return fileGetClass(path) == kSceneClass;
}

OpenedModel OpenModel(const CPathString& path, const Progress& progress, const ImageReader& readImage)
{
    ModelOpening opening(progress, readImage);
    if (!CMiniZip::IsPackedFile(path))
        return opening.Read(path, path.GetFolder());
    Unpacker unpacker(progress);
    if (!unpacker.ExtractAny(path) || unpacker.GetFailure() != CXExtractionFailure::kNone)
        FailUnpacking(unpacker);
    if (CMiniZip::IsZFile(path)) // which lies beside the files that its model names
        return opening.Read(unpacker.GetExtractedFiles()[0], path.GetFolder());
    for (const CPathString file : unpacker.GetExtractedFiles())
    {
        if (fileGetLoader(file) != kObjLoader)
            continue;
        OpenedModel model = opening.Read(file, file.GetFolder());
        model.m_files.clear();
        return model;
    }
    XThrow<ModelException>(0, Say(L"there is no model in the archive", L"il n'y a pas de mod\u00e8le dans l'archive"));
}
} // namespace host
