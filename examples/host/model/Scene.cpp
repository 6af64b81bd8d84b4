#include "examples/host/model/Scene.h"

#include <algorithm>

X_IMPLEMENT_NAMED_ABSTRACT_CLASS(host::Shape, CXObject, 1, "host.Shape")
X_IMPLEMENT_NAMED_ABSTRACT_CLASS(host::Primitive, host::Shape, 1, "host.Primitive")
X_IMPLEMENT_NAMED_CLASS(host::MeshShape, host::Shape, 1 | xSchemaVersionable, "host.MeshShape")
X_IMPLEMENT_NAMED_CLASS(host::KeptShape, host::Shape, xSchemaNotSerializable, "host.KeptShape")
X_IMPLEMENT_NAMED_CLASS(host::Scene, CXObject, 1 | xSchemaVersionable, "host.Scene")

namespace host
{
namespace
{
constexpr unsigned kDeepest = 16; // objects within an object of a scene

/// The file of a scene. At each step of reading, which takes long, it asks whether to go on.
class SceneFile : public CXFile
{
public:
    SceneFile(const CPathString& path, const Progress& progress)
        : CXFile(path, modeRead | shareDenyNone | modeNoInherit), m_progress(progress), m_length(GetLength())
    {
    }
    void Ask() const
    {
        if (m_progress && !m_progress(m_done, m_length))
            CXUserException::Throw();
    }
    unsigned int Read(void* buffer, unsigned int count) override
    {
        Ask();
        const unsigned int size = CXFile::Read(buffer, count);
        m_done += size;
        return size;
    }

private:
    const Progress& m_progress;
    const unsigned __int64 m_length;
    unsigned __int64 m_done = 0;
};

/// The bytes of a shape, which may be as long as the file: an archive gets them in steps, too, instead of the memory itself.
class ShapeBytes : public CXMemFile
{
public:
    ShapeBytes(const std::vector<unsigned char>& bytes, const SceneFile* scene)
        : CXMemFile(bytes.data(), bytes.size(), false), m_scene(scene)
    {
    }
    unsigned int Read(void* buffer, unsigned int count) override
    {
        if (m_scene != nullptr)
            m_scene->Ask();
        return CXMemFile::Read(buffer, count);
    }
    unsigned __int64 BufferCommand(unsigned int, unsigned __int64, unsigned char**, unsigned char**) override
    {
        return 0;
    }

private:
    const SceneFile* const m_scene;
};

CXArchive& operator<<(CXArchive& archive, const Vector& vector)
{
    return archive << vector.x << vector.y << vector.z;
}
CXArchive& operator>>(CXArchive& archive, Vector& vector)
{
    return archive >> vector.x >> vector.y >> vector.z;
}
CXArchive& operator<<(CXArchive& archive, const TexturePoint& point)
{
    return archive << point.u << point.v;
}
CXArchive& operator>>(CXArchive& archive, TexturePoint& point)
{
    return archive >> point.u >> point.v;
}
CXArchive& operator<<(CXArchive& archive, const Triangle& triangle)
{
    for (int i = 0; i < 3; ++i)
        archive << triangle.m_vertices[i] << triangle.m_texturePoints[i];
    return archive << triangle.m_material;
}
CXArchive& operator>>(CXArchive& archive, Triangle& triangle)
{
    for (int i = 0; i < 3; ++i)
        archive >> triangle.m_vertices[i] >> triangle.m_texturePoints[i];
    return archive >> triangle.m_material;
}
CXArchive& operator<<(CXArchive& archive, const Material& material)
{
    const Image none;
    const Image& image = material.m_texture != nullptr ? *material.m_texture : none;
    archive << material.m_name << material.m_color << image.m_width << image.m_height;
    for (const unsigned pixel : image.m_pixels)
        archive << pixel;
    return archive;
}
CXArchive& operator>>(CXArchive& archive, Material& material)
{
    Image image;
    archive >> material.m_name >> material.m_color >> image.m_width >> image.m_height;
    if (image.m_width < 0 || image.m_height < 0)
        CXArchiveException::Throw(archiveBadIndex);
    unsigned pixel = 0;
    for (auto left = static_cast<unsigned __int64>(image.m_width) * static_cast<unsigned>(image.m_height); left > 0;
         --left)
    {
        archive >> pixel;
        image.m_pixels.push_back(pixel);
    }
    if (!image.m_pixels.empty())
        material.m_texture = std::make_shared<const Image>(std::move(image));
    return archive;
}

template <class Element>
void StoreList(CXArchive& archive, const std::vector<Element>& list)
{
    archive.WriteCount(list.size());
    for (const Element& element : list)
        archive << element;
}

/// Grows with what is read: a count is only a claim.
template <class Element>
void LoadList(CXArchive& archive, std::vector<Element>& list)
{
    list.clear();
    for (auto left = archive.ReadCount(); left > 0; --left)
        archive >> list.emplace_back();
}

/// What the drawing relies on.
bool IsValid(const Mesh& mesh)
{
    const auto isInRange = [](float value) { return std::fabs(value) <= kLargestCoordinate; };
    const auto isFinite = [&](const Vector& v) { return isInRange(v.x) && isInRange(v.y) && isInRange(v.z); };
    const auto isInMesh = [&mesh](const Triangle& triangle) {
        for (int i = 0; i < 3; ++i)
        {
            const unsigned point = triangle.m_texturePoints[i];
            if (triangle.m_vertices[i] >= mesh.m_vertices.size() ||
                (point != Triangle::kNone && point >= mesh.m_texturePoints.size()))
                return false;
        }
        return triangle.m_material < mesh.m_materials.size();
    };
    return std::all_of(mesh.m_vertices.begin(), mesh.m_vertices.end(), isFinite) &&
           std::all_of(mesh.m_triangles.begin(), mesh.m_triangles.end(), isInMesh);
}

void StoreBlock(CXArchive& archive, const CXTString<char>& className, const void* bytes, unsigned __int64 size)
{
    archive << className;
    archive.WriteCount(size);
    archive.Write(bytes, size);
}

/// The bytes of one shape, as an archive of its own.
void StoreShape(CXArchive& archive, const Shape& shape)
{
    const auto* const kept = dynamic_cast<const KeptShape*>(&shape);
    const CXTString<char> className =
        kept != nullptr ? kept->m_className : CXTString<char>(shape.GetRuntimeClassDescriptor()->m_name);
    if (kept != nullptr || !shape.m_bytes.empty())
        return StoreBlock(archive, className, shape.m_bytes.data(), shape.m_bytes.size());
    CCustomMemFile memory(CCustomMemFile::growProportionally);
    CXArchive block(&memory, xArchiveStore);
    block << &shape;
    block.Close();
    StoreBlock(archive, className, memory.GetBuffer(), memory.GetLength());
}

std::vector<unsigned char> LoadBytes(CXArchive& archive)
{
    constexpr unsigned __int64 kStep = 1 << 20;
    std::vector<unsigned char> bytes;
    for (auto left = archive.ReadCount(); left > 0;)
    {
        const auto step = std::min(left, kStep);
        bytes.resize(bytes.size() + static_cast<std::size_t>(step));
        archive.EnsureRead(bytes.data() + bytes.size() - step, step);
        left -= step;
    }
    return bytes;
}

/// Null where the class is not there, or does not understand the bytes.
std::unique_ptr<Shape> ReadShape(const CXTString<char>& className, const std::vector<unsigned char>& bytes,
                                 const SceneFile* scene)
{
    std::unique_ptr<Shape> shape;
    if (CXRuntimeClass::FindRuntimeClass(className) == nullptr || bytes.empty())
        return shape;
    ShapeBytes memory(bytes, scene);
    CXArchive block(&memory, xArchiveLoad | xArchiveStrict);
    block.SetBudget(bytes.size(), kDeepest, kDeepest);
    try
    {
        block >> shape;
        block.Close();
        if (shape != nullptr && memory.GetPosition() < memory.GetLength())
            shape->m_bytes = bytes;
    }
    catch (CXArchiveException* e)
    {
        WriteToLogFile(1, L"a shape cannot be read: %s\n", XGetExceptionText(e));
        e->Delete();
    }
    return shape;
}
} // namespace

void Shape::Serialize(CXArchive& archive)
{
    if (archive.IsStoring())
        archive << m_name << m_color;
    else
        archive >> m_name >> m_color;
}

void Shape::NoteChange()
{
    m_losesNewer = m_losesNewer || !m_bytes.empty();
    m_bytes.clear();
}

void Primitive::SerializeParameters(CXArchive& archive, std::size_t count)
{
    for (const Parameter& parameter : GetParameters())
    {
        if (archive.IsStoring())
            archive << *parameter.m_value;
        else if (count-- == 0)
            return;
        else
        {
            archive >> *parameter.m_value;
            *parameter.m_value = std::fmin(std::fmax(*parameter.m_value, parameter.m_least), parameter.m_most);
        }
    }
}

void MeshShape::Serialize(CXArchive& archive)
{
    Shape::Serialize(archive);
    if (archive.IsStoring())
    {
        StoreList(archive, m_mesh->m_vertices);
        StoreList(archive, m_mesh->m_texturePoints);
        StoreList(archive, m_mesh->m_triangles);
        StoreList(archive, m_mesh->m_materials);
        return;
    }
    Mesh mesh;
    LoadList(archive, mesh.m_vertices);
    LoadList(archive, mesh.m_texturePoints);
    LoadList(archive, mesh.m_triangles);
    LoadList(archive, mesh.m_materials);
    if (!IsValid(mesh))
        CXArchiveException::Throw(archiveBadIndex);
    m_mesh = std::make_shared<const Mesh>(std::move(mesh));
}

void Scene::Serialize(CXArchive& archive)
{
    if (archive.IsStoring())
    {
        archive.WriteCount(m_shapes.size());
        for (const std::unique_ptr<Shape>& shape : m_shapes)
            StoreShape(archive, *shape);
        return;
    }
    for (auto left = archive.ReadCount(); left > 0; --left)
    {
        CXTString<char> className;
        archive >> className;
        std::vector<unsigned char> bytes = LoadBytes(archive);
        std::unique_ptr<Shape> shape = ReadShape(className, bytes, dynamic_cast<const SceneFile*>(archive.GetFile()));
        if (shape == nullptr)
        {
            auto kept = std::make_unique<KeptShape>();
            kept->m_name = CXTString<wchar_t>(className);
            kept->m_className = className;
            kept->m_bytes = std::move(bytes);
            shape = std::move(kept);
        }
        m_shapes.push_back(std::move(shape));
    }
}

void SaveScene(const Scene& scene, const CPathString& path)
{
    XReplaceFile(path, [&](CXFile& file) {
        CXArchive archive(&file, xArchiveStore);
        archive << &scene;
    });
}

std::unique_ptr<Scene> LoadScene(const CPathString& path, const Progress& progress)
{
    SceneFile file(path, progress);
    CXArchive archive(&file, xArchiveLoad | xArchiveStrict);
    archive.SetBudget(file.GetLength(), 1, 1);
    std::unique_ptr<Scene> scene;
    archive >> scene;
    return scene;
}
} // namespace host
